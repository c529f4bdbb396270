// System services of the path helpers, from the mount table. There are no short names and no registry.
#include <fcntl.h>
#include <limits.h>

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile_place_posix_user.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/qsys_posix_user.h"
#include "utl/utl_mounts_posix_user.h"
#include "utl/utl_system.h"

namespace {

// A table of thousands of mounts has some hundred bytes for each; a longer one is cut here.
constexpr std::size_t largest_table = std::size_t{16} << 20U;

std::string read_text(const char* name) {
  std::string text;
  const qsys_descriptor file(::open(name, O_RDONLY | O_CLOEXEC));
  char buffer[16384];
  while (text.size() < largest_table) {
    const ssize_t got = qsys_retry([&] { return ::read(file.get(), buffer, sizeof buffer); });
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

// Blanks, tabs, line ends and backslashes are written as \ and three octal digits.
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

// Opens the deepest part of `path` that exists, links followed, only to ask what it is. 0 or an errno value.
int open_existing(std::u16string path, qsys_descriptor& out) {
  for (;;) {
    qfile_place place;
    int error = place.reach(path.empty() ? u"/" : path.c_str());
    if (error == 0) {
      out = qsys_descriptor(qsys_retry([&] { return ::openat(place.directory(), place.name(), O_PATH | O_CLOEXEC); }));
      if (out.valid()) return 0;
      error = errno;
    }
    const std::size_t cut = path.rfind(u'/');
    if (path.empty() || cut == std::u16string::npos || (error != ENOENT && error != ENOTDIR)) return error;
    path.resize(cut);
  }
}

std::string proc_file(const char* folder, const qsys_descriptor& file) {
  return std::string("/proc/self/") + folder + "/" + std::to_string(file.get());
}

// Empty for a path that is longer than the system tells.
std::string real_path(const qsys_descriptor& file) {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = ::readlink(proc_file("fd", file).c_str(), path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return path;
}

bool lies_under(std::string_view path, std::string_view point) noexcept {
  return point == "/" || (path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/'));
}

// The kernel's number of the mount that the file lies on; 0 where it does not tell.
std::uint64_t mount_number(const qsys_descriptor& file) {
  static constexpr std::string_view key = "mnt_id:\t";
  const std::string text = read_text(proc_file("fdinfo", file).c_str());
  const std::size_t at = text.find(key);
  std::uint64_t number = 0;
  if (at != std::string::npos) (void)std::from_chars(&text[at] + key.size(), &text[0] + text.size(), number);
  return number;
}

// By number. A table that does not show the mount, as in a changed root, is searched for the longest mount point above
// the path, the later of two equal ones since it covers the other.
utl_mount choose(std::string_view table, std::uint64_t number, const std::string& real) {
  utl_mount best{"/", "", ""};
  while (!table.empty()) {
    const std::size_t end = table.find('\n');
    table_row row;
    const bool valid = parse_row(table.substr(0, end), row);
    table = end == std::string_view::npos ? std::string_view() : table.substr(end + 1);
    if (!valid) continue;
    if (number != 0 && row.id == number) return row.mount;
    if (lies_under(real, row.mount.point) && row.mount.point.size() >= best.point.size()) best = row.mount;
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
  qsys_descriptor file;
  const int error = open_existing(path, file);
  if (error != 0) return error;
  out = choose(read_text("/proc/self/mountinfo"), mount_number(file), real_path(file));
  return 0;
}

utl_system& utl_platform_system() noexcept {
  static posix_system system;
  return system;
}
