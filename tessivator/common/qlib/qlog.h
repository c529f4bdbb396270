// Logging: module masks, line columns, console echo, log file and its rotation.
//
// A source file names its module once, at file scope:   static constexpr std::uint32_t module_id = QLOG_BLIB;
// and logs with                                          QLOG(QLOG_ERROR, u"Failed to open %s: %d", path, code);
// A disabled level costs one load and one AND; arguments are not evaluated.
#pragma once

#include <array>
#include <atomic>
#include <string>

#include "common/qlib/qfmt.h"
#include "common/qlib/qtypes.h"

// Levels are bits.
inline constexpr std::uint32_t QLOG_ERROR = 1;
inline constexpr std::uint32_t QLOG_WARNING = 2;
inline constexpr std::uint32_t QLOG_SYSTEM = 4;
inline constexpr std::uint32_t QLOG_INFO = 8;
inline constexpr std::uint32_t QLOG_DETAIL = 16;
inline constexpr std::uint32_t QLOG_FNENTRY = 32;
inline constexpr std::uint32_t QLOG_FNEXIT = 64;

// Module ids; the numbers are shared by a family of components and stay.
inline constexpr std::uint32_t QLOG_QCKSUM = 0;
inline constexpr std::uint32_t QLOG_QCONF = 1;
inline constexpr std::uint32_t QLOG_QREG = 2;
inline constexpr std::uint32_t QLOG_QTIMER = 3;
inline constexpr std::uint32_t QLOG_QTPOOL = 4;
inline constexpr std::uint32_t QLOG_BLIB = 8;
inline constexpr std::uint32_t QLOG_CERT = 10;
inline constexpr std::uint32_t QLOG_CFG = 14;
inline constexpr std::uint32_t QLOG_INV = 28;
inline constexpr std::uint32_t QLOG_KUMSG = 30;
inline constexpr std::uint32_t QLOG_PROG = 42;
inline constexpr std::uint32_t QLOG_SCAN = 52;
inline constexpr std::uint32_t QLOG_SGN = 59;
inline constexpr std::uint32_t QLOG_UTL = 65;
inline constexpr std::uint32_t QLOG_CACHE = 80;
inline constexpr std::uint32_t QLOG_MODULE_COUNT = 87;

// Columns of a line, in the order in which they are written.
inline constexpr std::uint32_t QLOG_COLUMN_IDS = 64;
inline constexpr std::uint32_t QLOG_COLUMN_TIME = 32;
inline constexpr std::uint32_t QLOG_COLUMN_LEVEL = 1;
inline constexpr std::uint32_t QLOG_COLUMN_MODULE = 2;
inline constexpr std::uint32_t QLOG_COLUMN_FUNCTION = 4;
inline constexpr std::uint32_t QLOG_COLUMN_SOURCE = 16;
inline constexpr std::uint32_t QLOG_COLUMN_LINE = 8;

// OR of all module masks; read by QLOG before anything else.
extern std::atomic<std::uint32_t> qlog_union_mask;

// Writes one line whose arguments are already captured. Returns QERR_OK when the line was emitted, whatever became of
// it, or filtered out; QERR_CORRUPTED when not initialised, QERR_ARG2 for a module id of 87 or more, QERR_ARG1 for a
// level index of 7 or more, QERR_LOW_MEMORY. Text arguments go through the
// filter of qprintable.h. Of equal lines that a thread logs in a row within a minute a hundred are emitted, then one
// with the count of the rest.
[[nodiscard]] qerr_t qlog_write_list(std::uint32_t level, std::uint32_t module_id, const char* function_name,
                                     const char* source_file, std::uint32_t line, const qchar* format,
                                     std::span<const qfmt_arg> arguments) noexcept;

template <class... Args>
[[nodiscard]] qerr_t qlog_write(std::uint32_t level, std::uint32_t module_id, const char* function_name,
                                const char* source_file, std::uint32_t line, const qchar* format,
                                const Args&... args) noexcept {
  const std::array<qfmt_arg, sizeof...(Args) + 1> list{qfmt_arg(args)..., qfmt_arg(0)};
  return qlog_write_list(level, module_id, function_name, source_file, line, format,
                         std::span(list).first(sizeof...(Args)));
}

// The source file that a line tells. Operators and their tools know lines by it: a source that holds part of another's
// work defines it anew as that one's name, and such parts log with QLOG_AS under the function that they belong to.
#define QLOG_SOURCE __FILE__

// Logs under the given function name.
#define QLOG_AS(level, function, ...)                                                                     \
  do {                                                                                                    \
    if ((qlog_union_mask.load(std::memory_order_relaxed) & (level)) != 0) {                               \
      (void)qlog_write((level), module_id, (function), QLOG_SOURCE, static_cast<std::uint32_t>(__LINE__), \
                       __VA_ARGS__);                                                                      \
    }                                                                                                     \
  } while (false)

// Logs under the full signature of the calling function; the writer cuts it to the qualified name.
#define QLOG(level, ...) QLOG_AS(level, __PRETTY_FUNCTION__, __VA_ARGS__)

// 0 when not initialised; 1 for a module or level out of range; else the module's mask bit.
[[nodiscard]] std::uint32_t qlog_is_enabled(std::uint32_t level, std::uint32_t module_id) noexcept;

// Stores the column flags (default 121: ids, time, level, source, line). Returns QERR_OK.
[[nodiscard]] qerr_t qlog_set_format(std::uint32_t flags) noexcept;

// Set or clear bits of the mask of one module, without updating the union mask. QERR_ALL_BITS for a module id of 87 or
// more.
[[nodiscard]] qerr_t qlog_set_module_bits(std::uint32_t module_id, std::uint32_t bits) noexcept;
[[nodiscard]] qerr_t qlog_clear_module_bits(std::uint32_t module_id, std::uint32_t bits) noexcept;
[[nodiscard]] qerr_t qlog_recompute_union() noexcept;

// Parses "NAME=value,NAME=value"; null resets all masks to 7. Returns QERR_OK, QERR_LOW_MEMORY, QERR_INVALID (an item
// without an equals sign) or QERR_NOT_INITIALIZED (a value that is not an integer). Masks set before an error stay set.
[[nodiscard]] qerr_t qlog_set_logtype(const qchar* text) noexcept;

// Writes "NAME=0x%08x," for every module in id order, without the last comma, into a buffer of 4,096 units. Returns
// QERR_ALL_BITS when not initialised, QERR_ARG1 for null, else QERR_OK.
[[nodiscard]] qerr_t qlog_get_logtype(qchar* buffer) noexcept;

// Converts between names and numbers; case-sensitive. -1 or null when unknown, not initialised or out of range.
[[nodiscard]] std::int32_t qlog_module_index(const qchar* name) noexcept;
[[nodiscard]] std::int32_t qlog_level_index(const qchar* name) noexcept;
[[nodiscard]] const qchar* qlog_module_name(std::uint32_t id) noexcept;
[[nodiscard]] const qchar* qlog_level_name(std::uint32_t index) noexcept;
// The mask, or the negative result of the lookup. qlog_module_mask does no range check.
[[nodiscard]] std::int32_t qlog_module_mask_by_name(const qchar* name) noexcept;
[[nodiscard]] std::uint32_t qlog_module_mask(std::uint32_t id) noexcept;

// Ends a run of equal lines of the calling thread: logs their count; the next line is a new one. Call it when a new
// subject begins.
void qlog_end_repeats() noexcept;

// Console echo, on after initialisation.
void qlog_console_on() noexcept;
void qlog_console_off() noexcept;

// Backups to keep and size threshold, for both rotation contexts.
void qlog_set_rotate_count(std::uint32_t count) noexcept;
void qlog_set_rotate_size_kb(std::uint32_t kib) noexcept;
// Time between two checks of the file size, initially 10,000 ms; takes effect at the next wait.
void qlog_set_rotate_interval_ms(std::uint32_t interval_ms) noexcept;

// Start and stop. qlog_init_with_file also sets a log file when `path` is not null, and starts its rotation when
// `start_rotation` is 1.
[[nodiscard]] qerr_t qlog_init() noexcept;
[[nodiscard]] qerr_t qlog_init_with_file(const qchar* path, std::uint32_t start_rotation) noexcept;
void qlog_fini() noexcept;
// Shuts down; stops the rotation thread only when `stop_rotation` is 1.
void qlog_fini_ex(std::uint32_t stop_rotation) noexcept;

// Writes lines to `path` (at most 511 units) as UTF-16 little-endian with a byte-order mark; creates missing
// directories. An empty path ends logging to a file. Returns QERR_OK or the open or write error; the path stays set in
// either case.
[[nodiscard]] qerr_t qlog_set_log_file(const qchar* path) noexcept;

// The same for a file that is kept at 2 MiB with 4 backups by whoever writes a line beyond; no thread is started, and
// several processes may write to it.
[[nodiscard]] qerr_t qlog_set_log_file_kept(const qchar* path) noexcept;

// The same for the file that the environment's variable `name` (ASCII) names: its path, empty when it names none, and
// the code of opening it. One that cannot be opened is tried again with each line.
struct qlog_named_file {
  std::u16string path;
  qerr_t code = 0;
};
[[nodiscard]] qlog_named_file qlog_file_from_environment(const char* name) noexcept;

// One synchronous rotation: when the file has reached size_kib KiB its backups "<stem>_<i>.log" move up by one and the
// file starts anew. Without backups (0) nothing happens. The file is
// first moved aside to "<path>.rotating", a name that nothing else uses: one that cannot be moved costs no backup, and
// is told on the console once. "<path>.lock" keeps processes apart.
// Returns QERR_LOW_MEMORY, the last file error, or QERR_OK; a backup that does not exist yet is no error.
[[nodiscard]] qerr_t qlog_rotate_file(const qchar* path, std::uint32_t size_kib, std::uint32_t count) noexcept;

// Watches a second file with a thread of its own (2048 KiB, 4 backups, every 10 s).
[[nodiscard]] qerr_t qlog_start_rotate_thread_for(const qchar* path) noexcept;
