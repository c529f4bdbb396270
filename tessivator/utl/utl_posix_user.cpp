// The path helpers' system services from the mount table; there are no short names and no registry.
#include <fcntl.h>
#include <sys/stat.h>

#include <charconv>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys_posix_user.h"
#include "utl/utl_mounts_posix_user.h"
#include "utl/utl_system.h"

namespace {

// A table of thousands of mounts has some hundred bytes for each; beyond this it is cut.
constexpr std::size_t largest_table = std::size_t{16} << 20U;

std::string read_table() {
  std::string text;
  const qsys_descriptor table(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
  char buffer[16384];
  while (text.size() < largest_table) {
    const ssize_t got = qsys_retry([&] { return ::read(table.get(), buffer, sizeof buffer); });
    if (got <= 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
}

std::string_view take_field(std::string_view& line) noexcept {
  const std::size_t end = line.find(' ');
  const std::string_view field = line.substr(0, end);
  line = end == std::string_view::npos ? std::string_view() : line.substr(end + 1);
  return field;
}

// Blanks, tabs, line ends and backslashes stand as \ and three octal digits.
std::string unescape(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    unsigned value = 0;
    const bool escaped = field[i] == '\\' && field.size() - i > 3 &&
                         std::from_chars(&field[i + 1], &field[i] + 4, value, 8).ptr == &field[i] + 4;
    text += escaped ? static_cast<char>(value) : field[i];
    if (escaped) i += 3;
  }
  return text;
}

struct table_row {
  std::uint64_t id = 0;
  utl_mount mount;
};

// id parent major:minor root POINT options [optional fields] - TYPE SOURCE super-options (see proc_pid_mountinfo(5))
bool parse_row(std::string_view line, table_row& row) {
  const std::string_view id = take_field(line);
  if (std::from_chars(id.data(), id.data() + id.size(), row.id).ec != std::errc()) return false;
  for (int skipped = 0; skipped < 3; ++skipped) (void)take_field(line);
  row.mount.point = unescape(take_field(line));
  while (!line.empty() && take_field(line) != "-") {
  }
  row.mount.type = unescape(take_field(line));
  row.mount.source = unescape(take_field(line));
  return !row.mount.point.empty() && !row.mount.type.empty();
}

// The real path of the deepest part of `path` that exists.
int resolve_existing(std::string path, std::string& real) {
  for (;;) {
    const std::unique_ptr<char, FreeWith<std::free>> found(::realpath(path.empty() ? "/" : path.c_str(), nullptr));
    if (found) {
      real = found.get();
      return 0;
    }
    const std::size_t cut = path.rfind('/');
    if (path.empty() || cut == std::string::npos || (errno != ENOENT && errno != ENOTDIR)) return errno;
    path.resize(cut);
  }
}

bool lies_under(std::string_view path, std::string_view point) noexcept {
  return point == "/" || (path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/'));
}

// The kernel's own number of the mount, or 0 where it does not tell (before Linux 5.8).
std::uint64_t mount_number(const std::string& path) noexcept {
  struct statx about {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &about) != 0) return 0;
  return (about.stx_mask & STATX_MNT_ID) != 0 ? about.stx_mnt_id : 0;
}

// By number; else the longest mount point above the path, the later of two equal ones since it covers the other.
utl_mount choose(std::string_view table, const std::string& real) {
  const std::uint64_t number = mount_number(real);
  utl_mount best{"/", "", ""};
  while (!table.empty()) {
    const std::size_t end = table.find('\n');
    table_row row;
    const bool valid = parse_row(table.substr(0, end), row);
    table = end == std::string_view::npos ? std::string_view() : table.substr(end + 1);
    if (!valid || !lies_under(real, row.mount.point)) continue;
    if (number != 0 && row.id == number) return row.mount;
    if (row.mount.point.size() >= best.point.size()) best = row.mount;
  }
  return best;
}

class posix_system final : public utl_system {
 public:
  // There are no short names.
  std::uint32_t long_name(const qchar* path, qchar* buffer, std::uint32_t& units) override {
    const std::u16string_view name(path);
    const auto needed = static_cast<std::uint32_t>(name.size() + 1);
    const std::uint32_t room = units;
    units = needed;
    if (buffer == nullptr) return 0;
    if (room < needed) return ERANGE;
    name.copy(buffer, name.size());
    buffer[name.size()] = 0;
    return 0;
  }

  qerr_t translate(std::uint32_t error) noexcept override { return qsys_code_of(static_cast<int>(error)); }

  qerr_t volume_path(const qchar* path, std::u16string& out) override {
    utl_mount mount;
    const int error = utl_find_mount(path, mount);
    if (error != 0) return qsys_code_of(error);
    out = qstr_name_from_bytes(mount.point);
    return QERR_OK;
  }

  // There is no registry.
  qerr_t registry_text(const qchar* key, const qchar* value, qchar* buffer, std::uint32_t& bytes) noexcept override {
    (void)key;
    (void)value;
    (void)buffer;
    (void)bytes;
    return QERR_NOT_FOUND;
  }
};

}  // namespace

int utl_find_mount(const qchar* path, utl_mount& out) {
  std::string name;
  if (!qstr_name_to_bytes(path, name)) return ENOENT;
  std::string real;
  const int error = resolve_existing(name, real);
  if (error != 0) return error;
  out = choose(read_table(), real);
  return 0;
}

utl_system& utl_platform_system() noexcept {
  static posix_system system;
  return system;
}
