// A file provider that stands before another one and lets chosen operations fail.
#pragma once

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "common/qlib/qfile_provider.h"
#include "support/replaced.h"

// What can be made to fail; the other operations go through.
enum class file_op : std::uint8_t {
  open,
  create_exclusive,
  read,
  write,
  seek,
  size,
  info,
  view,
  flush,
  list,
  next,
  exists,
  rename,
  remove,
  make_directory,
  full_path,
  pause,
  count
};

// Puts itself before all providers while it lives:
//
//   faulty_provider disk;
//   disk.fail(file_op::read, 2, QERR_IO);       // the second read from now on fails, once
//   disk.fail(file_op::open, 1, QERR_PERMISSION, faulty_provider::ALWAYS);
//   disk.only(u".dll");                         // faults meet only paths with this end
//   disk.before(file_op::read, [] { ... });     // something happens before each read
class faulty_provider final : public qfile_provider, replaced<qfile_set_provider> {
 public:
  static constexpr std::uint32_t ALWAYS = std::numeric_limits<std::uint32_t>::max();

  faulty_provider() : replaced(this) {}

  // The `nth` operation of this kind from now (1: the next one) fails with `code`, and `times` - 1 more after it.
  void fail(file_op op, std::uint32_t nth, qerr_t code, std::uint32_t times = 1,
            qsys_condition condition = qsys_condition::none) {
    operations_[op].planned = {nth, times, {code, condition}};
  }
  void before(file_op op, std::function<void()> event) { operations_[op].event = std::move(event); }
  void only(std::u16string suffix) { suffix_ = std::move(suffix); }
  std::uint32_t most_read = std::numeric_limits<std::uint32_t>::max();  // bytes that one read gives
  std::uint64_t room = std::numeric_limits<std::uint64_t>::max();       // bytes until the disk is full

  // Calls so far, faulty ones and those on other paths included.
  [[nodiscard]] std::uint32_t calls(file_op op) { return operations_[op].calls; }
  std::uint32_t parked = 0;  // searches that gave their handle back

  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override {
    return wrapped<file>(path, out, on<&qfile_provider::open>(file_op::open, path, flags, out));
  }
  qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return wrapped<file>(path, out, on<&qfile_provider::create_exclusive>(file_op::create_exclusive, path, out));
  }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    return wrapped<searching>(pattern, out, below_.search(pattern, out));
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    qfile_listing inner(wanted);
    if (wanted.above != nullptr) inner.above = static_cast<searching*>(wanted.above)->below_.get();
    const qsys_status status = meet(file_op::list, concerns(wanted.path));
    return wrapped<searching>(wanted.path, out, status.ok() ? below_.list(inner, out) : status);
  }
  qsys_status exists(const qchar* path) override { return on<&qfile_provider::exists>(file_op::exists, path); }
  qsys_status remove(const qchar* path) override { return on<&qfile_provider::remove>(file_op::remove, path); }
  qsys_status rename(const qchar* source, const qchar* target) override {
    const qsys_status status = meet(file_op::rename, concerns(target));
    return status.ok() ? below_.rename(source, target) : status;
  }
  qsys_status make_directory(const qchar* path) override {
    return on<&qfile_provider::make_directory>(file_op::make_directory, path);
  }
  qsys_status full_path(const qchar* path, std::u16string& out) override {
    return on<&qfile_provider::full_path>(file_op::full_path, path, out);
  }
  void pause(std::uint32_t) noexcept override { (void)meet(file_op::pause, true); }  // takes no time
  qsys_status info(const qchar* path, qfile_info& out) override { return below_.info(path, out); }
  qsys_status remove_directory(const qchar* path) override { return below_.remove_directory(path); }
  qsys_status compress(const qchar* path) override { return below_.compress(path); }
  qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) override {
    return below_.copy(source, target, fail_if_exists);
  }

 private:
  struct operation {
    struct {
      std::uint32_t nth, times;
      qsys_status status;
    } planned{};
    std::function<void()> event;
    std::uint32_t calls = 0;
  };

  [[nodiscard]] bool concerns(std::u16string_view path) const { return path.ends_with(suffix_); }

  // The status with which this call must fail, or success.
  qsys_status meet(file_op op, bool concerned) {
    auto& [planned, event, calls] = operations_[op];
    ++calls;
    if (!concerned) return {};
    if (event) event();
    if (planned.times == 0 || planned.nth == 0 || --planned.nth > 0) return {};
    if (--planned.times > 0) planned.nth = 1;
    return planned.status;
  }

  // What stands before an open file or a search.
  template <class Kind>
  struct before_one : Kind {
    before_one(faulty_provider& owner, std::unique_ptr<Kind> below, bool concerned)
        : owner_(owner), below_(std::move(below)), concerned_(concerned) {}
    template <auto Method, class... Args>
    qsys_status on(file_op op, Args&&... args) noexcept {
      const qsys_status status = owner_.meet(op, concerned_);
      return status.ok() ? (below_.get()->*Method)(args...) : status;
    }
    faulty_provider& owner_;
    std::unique_ptr<Kind> below_;
    bool concerned_;
  };

  struct file final : before_one<qfile_object> {
    using before_one::before_one;
    qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      const std::uint32_t most = concerned_ ? std::min(size, owner_.most_read) : size;
      return on<&qfile_object::read>(file_op::read, buffer, most, done);
    }
    qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      if (owner_.room == 0 && size > 0) return {QERR_NO_SPACE};
      const auto part = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, owner_.room));
      owner_.room -= part;
      return on<&qfile_object::write>(file_op::write, buffer, part, done);
    }
    qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override {
      return on<&qfile_object::seek>(file_op::seek, offset, origin, position);
    }
    qsys_status size(std::uint64_t& bytes) noexcept override { return on<&qfile_object::size>(file_op::size, bytes); }
    qsys_status info(qfile_info& out) noexcept override { return on<&qfile_object::info>(file_op::info, out); }
    qsys_status stamp(qfile_stamp& out) noexcept override { return below_->stamp(out); }
    qsys_status flush() noexcept override { return on<&qfile_object::flush>(file_op::flush); }
    qsys_status truncate(std::uint64_t bytes) noexcept override { return below_->truncate(bytes); }
    qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
      return on<&qfile_object::view>(file_op::view, destination, length, done);
    }
  };

  struct searching final : before_one<qfile_search> {
    using before_one::before_one;
    qsys_status next(qfile_entry& entry) override { return on<&qfile_search::next>(file_op::next, entry); }
    void park() override {
      ++owner_.parked;
      below_->park();
    }
    bool identity(qfile_identity& out) const noexcept override { return below_->identity(out); }
    void resume(const qfile_search& below) noexcept override {
      below_->resume(*static_cast<const searching&>(below).below_);
    }
    void offer(std::u16string_view directory) override { below_->offer(directory); }
  };

  template <auto Method, class... Args>
  qsys_status on(file_op op, const qchar* path, Args&&... args) {
    const qsys_status status = meet(op, concerns(path));
    return status.ok() ? (below_.*Method)(path, args...) : status;
  }
  template <class Faulty, class Kind>
  qsys_status wrapped(std::u16string_view path, std::unique_ptr<Kind>& out, qsys_status status) {
    if (status.ok()) out = std::make_unique<Faulty>(*this, std::move(out), concerns(path));
    return status;
  }

  std::map<file_op, operation> operations_;
  std::u16string suffix_;
  qfile_provider& below_ = qfile_local_provider();
};
