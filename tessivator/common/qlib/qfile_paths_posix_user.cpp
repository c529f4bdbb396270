// Names on the local disk on POSIX systems, and the provider of local files.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_place_posix_user.h"
#include "common/qlib/qfile_posix_user.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"

namespace {

std::atomic<qfile_provider*> share_provider{nullptr};

template <class Call>
qsys_status on_name(const qchar* path, Call call) {
  qfile_place place;
  const int error = place.reach(path);
  if (error != 0) return qfile_status_of(error);
  return qsys_retry([&] { return call(place.directory(), place.name()); }) == 0 ? qsys_status{}
                                                                                : qfile_status_of(errno);
}

// Resolves "." and ".." after `root` by text alone; the result stays below the root.
std::u16string resolve(std::u16string_view root, std::u16string_view rest, qchar separator) {
  std::vector<std::u16string_view> parts;
  while (!rest.empty()) {
    const std::size_t end = rest.find(separator);
    const std::u16string_view part = rest.substr(0, end);
    rest = end == std::u16string_view::npos ? std::u16string_view() : rest.substr(end + 1);
    if (part.empty() || part == u".") continue;
    if (part != u"..") {
      parts.push_back(part);
    } else if (!parts.empty()) {
      parts.pop_back();
    }
  }
  std::u16string path(root);
  for (const std::u16string_view part : parts) {
    path += separator;
    path += part;
  }
  return path;
}

// A share's root is its server and share name.
std::u16string resolve_share(std::u16string_view path) {
  qpath_share parts;
  return qpath_parse_share(path, parts) ? resolve(parts.root, parts.rest, u'\\') : std::u16string(path);
}

qsys_status current_directory(std::u16string& out) {
  const std::unique_ptr<char, FreeWith<std::free>> name(::getcwd(nullptr, 0));
  if (!name) return qfile_status_of(errno);
  out = qstr_name_from_bytes(name.get());
  return {};
}

bool stat_of(const qchar* path, struct stat& about) {
  return on_name(path, [&](int at, const char* name) { return ::fstatat(at, name, &about, 0); }).ok();
}

bool same_file(const qchar* source_path, const qchar* target_path) {
  struct stat a {};
  struct stat b {};
  return stat_of(source_path, a) && stat_of(target_path, b) && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

qsys_status copy_bytes(qfile_object& from, qfile_object& to) noexcept {
  std::array<std::byte, std::size_t{64} << 10U> buffer;
  for (;;) {
    std::uint32_t got = 0;
    qsys_status status = from.read(buffer.data(), static_cast<std::uint32_t>(buffer.size()), got);
    if (!status.ok() || got == 0) return status;
    for (std::uint32_t put = 0; put < got;) {
      std::uint32_t done = 0;
      status = to.write(buffer.data() + put, got - put, done);
      if (!status.ok()) return status;
      if (done == 0) return qfile_status_of(EIO);
      put += done;
    }
  }
}

class local_provider final : public qfile_provider {
 public:
  qsys_status open(const qchar* path, std::uint32_t flags, std::unique_ptr<qfile_object>& out) override {
    return qfile_posix_open(path, flags, out);
  }
  qsys_status create_exclusive(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return qfile_posix_create_exclusive(path, out);
  }
  qsys_status create_nameless(const qchar* path, std::unique_ptr<qfile_object>& out) override {
    return qfile_posix_create_nameless(path, out);
  }
  qsys_status search(const qchar* pattern, std::unique_ptr<qfile_search>& out) override {
    return qfile_posix_search(pattern, out);
  }
  qsys_status list(const qfile_listing& wanted, std::unique_ptr<qfile_search>& out) override {
    return qfile_posix_list(wanted, out);
  }
  qsys_status exists(const qchar* path) override {
    struct stat about {};
    return on_name(path, [&](int at, const char* name) { return ::fstatat(at, name, &about, AT_SYMLINK_NOFOLLOW); });
  }
  qsys_status info(const qchar* path, qfile_info& out) override {
    qsys_status status;
    const qsys_status reached = on_name(path, [&](int at, const char* name) {
      status = *name != '\0' ? qfile_posix_info(at, name, out) : qfile_status_of(QFILE_NO_SUCH_NAME);
      return 0;
    });
    return reached.ok() ? status : reached;
  }
  qsys_status rename(const qchar* source, const qchar* target) override {
    qfile_place to;
    const int error = to.reach(target);
    if (error != 0) return qfile_status_of(error);
    return on_name(source, [&](int at, const char* name) { return ::renameat(at, name, to.directory(), to.name()); });
  }
  qsys_status remove(const qchar* path) override {
    return on_name(path, [](int at, const char* name) { return ::unlinkat(at, name, 0); });
  }
  qsys_status make_directory(const qchar* path) override {
    return on_name(path, [](int at, const char* name) { return ::mkdirat(at, name, 0777); });
  }
  qsys_status remove_directory(const qchar* path) override {
    return on_name(path, [](int at, const char* name) { return ::unlinkat(at, name, AT_REMOVEDIR); });
  }
  qsys_status copy(const qchar* source, const qchar* target, bool fail_if_exists) override;
  // Linux file systems compress by their own settings, not by file.
  qsys_status compress(const qchar* path) override {
    (void)path;
    return {};
  }
  qsys_status full_path(const qchar* path, std::u16string& out) override;
};

qsys_status local_provider::copy(const qchar* source, const qchar* target, bool fail_if_exists) {
  std::unique_ptr<qfile_object> from;
  qsys_status status = qfile_posix_open(source, QFILE_READ, from);
  if (!status.ok()) return status;
  // Truncating the target would empty the source.
  if (!fail_if_exists && same_file(source, target)) return {QERR_SHARING, qsys_condition::none};
  std::unique_ptr<qfile_object> to;
  status = fail_if_exists ? qfile_posix_create_exclusive(target, to)
                          : qfile_posix_open(target, QFILE_WRITE | QFILE_CREATE | QFILE_TRUNCATE, to);
  if (!status.ok()) return status;
  status = copy_bytes(*from, *to);
  if (!status.ok()) (void)remove(target);
  return status;
}

qsys_status local_provider::full_path(const qchar* path, std::u16string& out) {
  if (path[0] == 0) return qfile_status_of(ENOENT);
  if (qpath_is_unc(path)) {
    out = resolve_share(path);
    return {};
  }
  std::u16string whole;
  if (path[0] != u'/') {
    const qsys_status status = current_directory(whole);
    if (!status.ok()) return status;
    whole += u'/';
  }
  whole += path;
  whole = resolve({}, whole, u'/');
  if (whole.empty()) whole.push_back(u'/');
  out = std::move(whole);
  return {};
}

}  // namespace

qsys_status qfile_status_of(int error) noexcept {
  qsys_status status{qsys_code_of(error), qsys_condition::none};
  if (error == ENOENT) status.condition = qsys_condition::not_found;
  if (error == EEXIST) status.condition = qsys_condition::already_exists;
  if (error == EMFILE || error == ENFILE) status.condition = qsys_condition::no_handles;
  return status;
}

bool qfile_native_path(const qchar* path, std::string& out) { return qstr_name_to_bytes(path, out); }

qfile_provider& qfile_local_provider() noexcept {
  static local_provider provider;
  return provider;
}

void qfile_posix_set_share_provider(qfile_provider* provider) noexcept {
  share_provider.store(provider, std::memory_order_release);
}

qfile_provider& qfile_platform_provider_for(const qchar* path) noexcept {
  qfile_provider* const shares = qpath_is_unc(path) ? share_provider.load(std::memory_order_acquire) : nullptr;
  return shares != nullptr ? *shares : qfile_local_provider();
}
