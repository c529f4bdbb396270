// A file provider that stands before another one and lets chosen operations fail.
#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
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
  count
};

// Puts itself before all providers while it lives:
//
//   faulty_provider disk;
//   disk.fail(file_op::read, 2, QERR_IO);       // the second read from now on fails, once
//   disk.fail(file_op::open, 1, QERR_PERMISSION, faulty_provider::ALWAYS);
//   disk.only(u".dll");                         // faults meet only paths with this end
//   disk.most_read(7);                          // every read gives at most 7 bytes
//   disk.room(1000);                            // after 1,000 written bytes the disk is full
//   disk.before(file_op::read, [] { ... });     // something happens before each read
class faulty_provider final : public qfile_provider, replaced<qfile_set_provider> {
 public:
  static constexpr std::uint32_t ALWAYS = std::numeric_limits<std::uint32_t>::max();

  faulty_provider() : replaced(this) {}

  // The `nth` operation of this kind from now (1: the next one) fails with `code`, and `times` - 1 more after it.
  void fail(file_op op, std::uint32_t nth, qerr_t code, std::uint32_t times = 1,
            qsys_condition condition = qsys_condition::none) {
    operation& planned = at(op);
    planned = {nth, times, {code, condition}, std::move(planned.event), planned.calls};
  }
  void before(file_op op, std::function<void()> event) { at(op).event = std::move(event); }
  void only(std::u16string suffix) { suffix_ = std::move(suffix); }
  void most_read(std::uint32_t bytes) { most_read_ = bytes; }
  void room(std::uint64_t bytes) { room_ = bytes; }

  // Calls so far, faulty ones and those on other paths included.
  [[nodiscard]] std::uint32_t calls(file_op op) { return at(op).calls; }
  std::uint32_t parked = 0;  // searches that gave their handle back

  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override {
    return opened(path, out, on<&qfile_provider::open>(file_op::open, path, flags, out));
  }
  qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return opened(path, out, on<&qfile_provider::create_exclusive>(file_op::create_exclusive, path, out));
  }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    return searched(pattern, out, below_.search(pattern, out));
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    qfile_listing inner(wanted);
    if (wanted.above != nullptr) inner.above = static_cast<faulty_search*>(wanted.above)->below();
    const qsys_status status = meet(file_op::list, concerns(wanted.path));
    return searched(wanted.path, out, status.ok() ? below_.list(inner, out) : status);
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
  qsys_status info(const qchar* path, qfile_info& out) override { return below_.info(path, out); }
  qsys_status remove_directory(const qchar* path) override { return below_.remove_directory(path); }
  qsys_status compress(const qchar* path) override { return below_.compress(path); }
  qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) override {
    return below_.copy(source, target, fail_if_exists);
  }

 private:
  struct operation {
    std::uint32_t nth = 0;
    std::uint32_t times = 0;
    qsys_status status;
    std::function<void()> event;
    std::uint32_t calls = 0;
  };

  operation& at(file_op op) { return operations_[static_cast<std::size_t>(op)]; }
  [[nodiscard]] bool concerns(std::u16string_view path) const { return path.ends_with(suffix_); }

  // The status with which this call must fail, or success.
  qsys_status meet(file_op op, bool concerned) noexcept {
    operation& planned = at(op);
    ++planned.calls;
    if (concerned && planned.event) planned.event();
    if (!concerned || planned.nth == 0) return {};
    if (planned.nth > 1) {
      --planned.nth;
      return {};
    }
    if (planned.times != ALWAYS && --planned.times == 0) planned.nth = 0;
    return planned.status;
  }

  class faulty_file final : public qfile_object {
   public:
    faulty_file(faulty_provider& owner, std::unique_ptr<qfile_object> below, bool concerned)
        : owner_(owner), below_(std::move(below)), concerned_(concerned) {}
    qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      const std::uint32_t most = concerned_ && size > owner_.most_read_ ? owner_.most_read_ : size;
      return on<&qfile_object::read>(file_op::read, buffer, most, done);
    }
    qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      if (owner_.room_ == 0 && size > 0) return {QERR_NO_SPACE};
      const auto part = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, owner_.room_));
      owner_.room_ -= part;
      return on<&qfile_object::write>(file_op::write, buffer, part, done);
    }
    qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override {
      return on<&qfile_object::seek>(file_op::seek, offset, origin, position);
    }
    qsys_status size(std::uint64_t& bytes) noexcept override { return on<&qfile_object::size>(file_op::size, bytes); }
    qsys_status info(qfile_info& out) noexcept override { return on<&qfile_object::info>(file_op::info, out); }
    qsys_status flush() noexcept override { return on<&qfile_object::flush>(file_op::flush); }
    qsys_status truncate(std::uint64_t bytes) noexcept override { return below_->truncate(bytes); }
    qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
      return on<&qfile_object::view>(file_op::view, destination, length, done);
    }

   private:
    template <auto Method, class... Args>
    qsys_status on(file_op op, Args&&... args) noexcept {
      const qsys_status status = owner_.meet(op, concerned_);
      return status.ok() ? (below_.get()->*Method)(args...) : status;
    }
    faulty_provider& owner_;
    std::unique_ptr<qfile_object> below_;
    bool concerned_;
  };

  class faulty_search final : public qfile_search {
   public:
    faulty_search(faulty_provider& owner, std::unique_ptr<qfile_search> below, bool concerned)
        : owner_(owner), below_(std::move(below)), concerned_(concerned) {}
    qsys_status next(qfile_entry& entry) override {
      const qsys_status status = owner_.meet(file_op::next, concerned_);
      return status.ok() ? below_->next(entry) : status;
    }
    void park() override {
      ++owner_.parked;
      below_->park();
    }
    bool identity(qfile_identity& out) const noexcept override { return below_->identity(out); }
    void resume(const qfile_search& below) noexcept override {
      below_->resume(*static_cast<const faulty_search&>(below).below_);
    }
    void offer(std::u16string_view directory) override { below_->offer(directory); }
    [[nodiscard]] qfile_search* below() const noexcept { return below_.get(); }

   private:
    faulty_provider& owner_;
    std::unique_ptr<qfile_search> below_;
    bool concerned_;
  };

  template <auto Method, class... Args>
  qsys_status on(file_op op, const qchar* path, Args&&... args) {
    const qsys_status status = meet(op, concerns(path));
    return status.ok() ? (below_.*Method)(path, args...) : status;
  }
  qsys_status opened(std::u16string_view path, std::unique_ptr<qfile_object>& out, qsys_status status) {
    if (status.ok()) out = std::make_unique<faulty_file>(*this, std::move(out), concerns(path));
    return status;
  }
  qsys_status searched(std::u16string_view path, std::unique_ptr<qfile_search>& out, qsys_status status) {
    if (status.ok()) out = std::make_unique<faulty_search>(*this, std::move(out), concerns(path));
    return status;
  }

  std::array<operation, static_cast<std::size_t>(file_op::count)> operations_;
  std::u16string suffix_;
  std::uint32_t most_read_ = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t room_ = std::numeric_limits<std::uint64_t>::max();
  qfile_provider& below_ = qfile_local_provider();
};
