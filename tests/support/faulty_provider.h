// File providers for tests: one that stands before another provider and lets chosen operations fail.
#pragma once

#include <array>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "common/qlib/qfile_provider.h"
#include "support/replaced.h"

enum class file_op : std::uint8_t {
  open,
  create_exclusive,
  read,
  write,
  seek,
  size,
  truncate,
  info,
  view,
  flush,
  search,
  list,
  next,
  exists,
  info_by_name,
  rename,
  remove,
  make_directory,
  remove_directory,
  copy,
  compress,
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
class faulty_provider final : public qfile_provider, replaced<qfile_set_provider> {
 public:
  static constexpr std::uint32_t ALWAYS = std::numeric_limits<std::uint32_t>::max();

  explicit faulty_provider(qfile_provider& below = qfile_local_provider())
      : replaced(this), state_(std::make_shared<state>()), below_(below) {}

  // The `nth` operation of this kind from now (1: the next one) fails with `code`, and `times` - 1 more after it.
  void fail(file_op op, std::uint32_t nth, qerr_t code, std::uint32_t times = 1,
            qsys_condition condition = qsys_condition::none) {
    state_->faults[index(op)] = {nth, times, {code, condition}};
  }
  void only(std::u16string suffix) { state_->suffix = std::move(suffix); }
  void most_read(std::uint32_t bytes) { state_->most_read = bytes; }
  void room(std::uint64_t bytes) { state_->room = bytes; }

  // Calls so far (faulty ones and those on other paths included), and objects that are open now.
  [[nodiscard]] std::uint32_t calls(file_op op) const { return state_->calls[index(op)]; }
  [[nodiscard]] std::uint32_t open_files() const { return state_->open_files; }
  [[nodiscard]] std::uint32_t open_searches() const { return state_->open_searches; }
  [[nodiscard]] std::uint32_t parked() const { return state_->parked; }

  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override {
    return opened(file_op::open, path, out, [&](auto& file) { return below_.open(path, flags, file); });
  }
  qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return opened(file_op::create_exclusive, path, out,
                  [&](auto& file) { return below_.create_exclusive(path, file); });
  }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    return searched(file_op::search, pattern, out, [&](auto& found) { return below_.search(pattern, found); });
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    qfile_listing inner(wanted);
    if (wanted.above != nullptr) inner.above = static_cast<faulty_search*>(wanted.above)->below();
    return searched(file_op::list, wanted.path.data(), out, [&](auto& found) { return below_.list(inner, found); });
  }
  qsys_status exists(const qchar* path) override {
    return on(file_op::exists, path, [&] { return below_.exists(path); });
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    return on(file_op::info_by_name, path, [&] { return below_.info(path, out); });
  }
  qsys_status rename(const qchar* source, const qchar* target) override {
    return on(file_op::rename, target, [&] { return below_.rename(source, target); });
  }
  qsys_status remove(const qchar* path) override {
    return on(file_op::remove, path, [&] { return below_.remove(path); });
  }
  qsys_status make_directory(const qchar* path) override {
    return on(file_op::make_directory, path, [&] { return below_.make_directory(path); });
  }
  qsys_status remove_directory(const qchar* path) override {
    return on(file_op::remove_directory, path, [&] { return below_.remove_directory(path); });
  }
  qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) override {
    return on(file_op::copy, target, [&] { return below_.copy(source, target, fail_if_exists); });
  }
  qsys_status compress(const qchar* path) override {
    return on(file_op::compress, path, [&] { return below_.compress(path); });
  }
  qsys_status full_path(const qchar* path, std::u16string& out) override {
    return on(file_op::full_path, path, [&] { return below_.full_path(path, out); });
  }

 private:
  static constexpr std::size_t index(file_op op) { return static_cast<std::size_t>(op); }
  static constexpr std::size_t OPERATIONS = static_cast<std::size_t>(file_op::count);

  struct fault {
    std::uint32_t nth = 0;
    std::uint32_t times = 0;
    qsys_status status;
  };

  // Shared with the open objects, which may outlive the provider.
  struct state {
    std::array<fault, OPERATIONS> faults;
    std::array<std::uint32_t, OPERATIONS> calls{};
    std::u16string suffix;
    std::uint32_t most_read = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t room = std::numeric_limits<std::uint64_t>::max();
    std::uint32_t open_files = 0;
    std::uint32_t open_searches = 0;
    std::uint32_t parked = 0;

    // The status with which this call must fail, or success.
    qsys_status meet(file_op op, bool concerned) noexcept {
      ++calls[index(op)];
      fault& planned = faults[index(op)];
      if (!concerned || planned.nth == 0) return {};
      if (planned.nth > 1) {
        --planned.nth;
        return {};
      }
      const qsys_status status = planned.status;
      if (planned.times != ALWAYS && --planned.times == 0) planned = {};
      return status;
    }
    bool concerns(const qchar* path) const { return std::u16string_view(path).ends_with(suffix); }
  };

  class faulty_file final : public qfile_object {
   public:
    faulty_file(std::shared_ptr<state> shared, std::unique_ptr<qfile_object> below, bool concerned)
        : state_(std::move(shared)), below_(std::move(below)), concerned_(concerned) {
      ++state_->open_files;
    }
    ~faulty_file() override { --state_->open_files; }
    qsys_status read(void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      const std::uint32_t most = concerned_ && size > state_->most_read ? state_->most_read : size;
      return on(file_op::read, [&] { return below_->read(buffer, most, done); });
    }
    qsys_status write(const void* buffer, std::uint32_t size, std::uint32_t& done) noexcept override {
      const bool full = concerned_ && state_->room == 0 && size > 0;
      if (full) return {28, qsys_condition::none};
      const auto part = concerned_ && size > state_->room ? static_cast<std::uint32_t>(state_->room) : size;
      const qsys_status status = on(file_op::write, [&] { return below_->write(buffer, part, done); });
      if (status.ok() && concerned_ && state_->room != std::numeric_limits<std::uint64_t>::max()) state_->room -= done;
      return status;
    }
    qsys_status seek(std::int64_t offset, std::uint32_t origin, std::uint64_t& position) noexcept override {
      return on(file_op::seek, [&] { return below_->seek(offset, origin, position); });
    }
    qsys_status size(std::uint64_t& bytes) noexcept override {
      return on(file_op::size, [&] { return below_->size(bytes); });
    }
    qsys_status truncate(std::uint64_t bytes) noexcept override {
      return on(file_op::truncate, [&] { return below_->truncate(bytes); });
    }
    qsys_status info(qfile_info& out) noexcept override {
      return on(file_op::info, [&] { return below_->info(out); });
    }
    qsys_status view(std::byte* destination, std::size_t length, std::size_t& done) noexcept override {
      return on(file_op::view, [&] { return below_->view(destination, length, done); });
    }
    qsys_status flush() noexcept override {
      return on(file_op::flush, [&] { return below_->flush(); });
    }

   private:
    template <class Operation>
    qsys_status on(file_op op, Operation operation) noexcept {
      const qsys_status status = state_->meet(op, concerned_);
      return status.ok() ? operation() : status;
    }
    std::shared_ptr<state> state_;
    std::unique_ptr<qfile_object> below_;
    bool concerned_;
  };

  class faulty_search final : public qfile_search {
   public:
    faulty_search(std::shared_ptr<state> shared, std::unique_ptr<qfile_search> below, bool concerned)
        : state_(std::move(shared)), below_(std::move(below)), concerned_(concerned) {
      ++state_->open_searches;
    }
    ~faulty_search() override { --state_->open_searches; }
    qsys_status next(qfile_entry& entry) override {
      const qsys_status status = state_->meet(file_op::next, concerned_);
      return status.ok() ? below_->next(entry) : status;
    }
    void park() override {
      ++state_->parked;
      below_->park();
    }
    bool identity(qfile_identity& out) const noexcept override { return below_->identity(out); }
    void resume(const qfile_search& below) noexcept override {
      below_->resume(*static_cast<const faulty_search&>(below).below_);
    }
    void offer(std::u16string_view directory) override { below_->offer(directory); }
    [[nodiscard]] qfile_search* below() const noexcept { return below_.get(); }

   private:
    std::shared_ptr<state> state_;
    std::unique_ptr<qfile_search> below_;
    bool concerned_;
  };

  template <class Operation>
  qsys_status on(file_op op, const qchar* path, Operation operation) {
    const qsys_status status = state_->meet(op, state_->concerns(path));
    return status.ok() ? operation() : status;
  }
  template <class Open>
  qsys_status opened(file_op op, const qchar* path, std::unique_ptr<qfile_object>& out, Open open_below) {
    std::unique_ptr<qfile_object> below;
    const qsys_status status = on(op, path, [&] { return open_below(below); });
    if (status.ok()) out = std::make_unique<faulty_file>(state_, std::move(below), state_->concerns(path));
    return status;
  }
  template <class Search>
  qsys_status searched(file_op op, const qchar* path, std::unique_ptr<qfile_search>& out, Search search_below) {
    std::unique_ptr<qfile_search> below;
    const qsys_status status = on(op, path, [&] { return search_below(below); });
    if (status.ok()) out = std::make_unique<faulty_search>(state_, std::move(below), state_->concerns(path));
    return status;
  }

  std::shared_ptr<state> state_;
  qfile_provider& below_;
};
