#include "common/qlib/qlog.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "common/qlib/qconsole.h"
#include "common/qlib/qerr.h"
#include "common/qlib/qlog_file.h"
#include "common/qlib/qlog_state.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"

qlog_shared qlog_state;

namespace {

constexpr std::size_t line_units = 8192;
constexpr std::array<const qchar*, 12> months{u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun",
                                              u"Jul", u"Aug", u"Sep", u"Oct", u"Nov", u"Dec"};

// Appends to the buffer of the line; text that does not fit is cut, the terminator always fits.
class line_writer {
 public:
  explicit line_writer(qchar* buffer) noexcept : buffer_(buffer) { buffer_[0] = 0; }

  void append_list(const qchar* format, std::span<const qfmt_arg> arguments) noexcept {
    const int written =
        qfmt_format(buffer_ + used_, (line_units - used_) * sizeof(qchar), format, arguments, qfmt_values::printable);
    used_ = written < 0 ? line_units - 1 : used_ + static_cast<std::size_t>(written);
  }
  template <class... Args>
  void append(const qchar* format, const Args&... args) noexcept {
    const std::array<qfmt_arg, sizeof...(Args)> list{qfmt_arg(args)...};
    append_list(format, list);
  }
  void end_with_line_feed() noexcept {
    if (used_ != 0 && buffer_[used_ - 1] == u'\n') return;
    if (used_ == line_units - 1) --used_;
    buffer_[used_++] = u'\n';
    buffer_[used_] = 0;
  }
  [[nodiscard]] std::u16string_view text() const noexcept { return {buffer_, used_}; }

 private:
  qchar* buffer_;
  std::size_t used_ = 0;
};

void append_time(line_writer& line) noexcept {
  const std::uint64_t now = qsys_time_ms();
  const qsys_local_time local = qsys_to_local_time(now);
  line.append(u"%s %02u %u:%02u:%02u:%02u.%03u: ", months[local.month % months.size()], local.day, local.year,
              local.hour, local.minute, local.second, now % 1000);
}

// A signature may continue after the parameter list: "const", "noexcept", "[with T = int]".
std::string_view without_qualifiers(std::string_view name) noexcept {
  const std::size_t close = name.rfind(')');
  const std::size_t bindings = name.find(" [");
  if (name.ends_with(']') && bindings != std::string_view::npos) name = name.substr(0, bindings);
  for (const std::string_view word : {" noexcept", " &&", " &", " volatile", " const"}) {
    if (close != std::string_view::npos && name.ends_with(word)) name.remove_suffix(word.size());
  }
  return name;
}

// The parenthesis that matches the last character of `name`, or npos.
std::size_t opening_parenthesis(std::string_view name) noexcept {
  std::size_t depth = 0;
  for (std::size_t i = name.size(); i-- > 0;) {
    if (name[i] == ')') ++depth;
    if (name[i] == '(' && --depth == 0) return i;
  }
  return std::string_view::npos;
}

// The qualified name in a full signature: the part between the return type and the parameter list. Blanks inside
// template arguments or "(anonymous namespace)" belong to the name.
std::string_view short_function_name(std::string_view name) noexcept {
  const std::string_view signature = without_qualifiers(name);
  if (!signature.ends_with(')')) return name;
  const std::size_t open = opening_parenthesis(signature);
  if (open == std::string_view::npos) return name;
  std::size_t depth = 0;
  std::size_t start = open;
  for (; start > 0; --start) {
    const char before = signature[start - 1];
    if (before == '>' || before == ')') ++depth;
    if ((before == '<' || before == '(') && depth > 0) --depth;
    if (before == ' ' && depth == 0) break;
  }
  std::string_view result = signature.substr(start, open - start);
  // "char *f(int)": the stars belong to the return type.
  while (result.starts_with('*') || result.starts_with('&')) result.remove_prefix(1);
  return result;
}

void append_function(line_writer& line, const char* function_name) noexcept {
  const std::string_view name = short_function_name(function_name == nullptr ? "" : function_name);
  line.append(u"%.*hs(): ", name.size(), name.data());
}

const char* base_name(const char* source_file) noexcept {
  if (source_file == nullptr) return "";
  const char* separator = std::strrchr(source_file, '\\');
  if (separator == nullptr) separator = std::strrchr(source_file, '/');
  return separator == nullptr ? source_file : separator + 1;
}

struct call_site {
  std::uint32_t level_index;
  std::uint32_t module_id;
  const char* function_name;
  const char* source_file;
  std::uint32_t line;
};

void append_columns(line_writer& line, const call_site& site) noexcept {
  const std::uint32_t columns = qlog_state.format.load(std::memory_order_relaxed);
  if ((columns & QLOG_COLUMN_IDS) != 0) line.append(u"U.%04u.%04u: ", qsys_process_id(), qsys_thread_id());
  if ((columns & QLOG_COLUMN_TIME) != 0) append_time(line);
  if ((columns & QLOG_COLUMN_LEVEL) != 0) line.append(u"  %s: ", qlog_level_name(site.level_index));
  if ((columns & QLOG_COLUMN_MODULE) != 0) line.append(u"%s: ", qlog_module_name(site.module_id));
  if ((columns & QLOG_COLUMN_FUNCTION) != 0) append_function(line, site.function_name);
  if ((columns & QLOG_COLUMN_SOURCE) != 0) line.append(u"%-12hs: ", base_name(site.source_file));
  if ((columns & QLOG_COLUMN_LINE) != 0) line.append(u"%4d: ", site.line);
}

// Failures of the console or the file are ignored: losing a log line is not an error of the caller.
void emit(std::u16string_view line) noexcept {
  if (qlog_state.console.load(std::memory_order_relaxed)) (void)qconsole_put(line);
  (void)qlog_file_emit(line);
}

// The last line of a thread and how often it came. A damaged file can cause millions of equal lines.
struct repeated_line {
  std::uint32_t thread;
  call_site site;
  std::uint64_t digest;
  std::uint32_t times;
  std::uint64_t since;  // ms
};
constexpr std::uint32_t most_repeats = 100;
// Indexed by thread; a thread that finds another in its slot ends the run of that one. No thread_local: with MinGW its
// destructor would outlive a library that a host unloads.
std::mutex last_lines_lock;  // no constant with MinGW
constinit std::array<repeated_line, 64> last_lines{};
std::atomic<std::uint32_t> begun_rows{0};  // slots in use: where none is, no thread has a row to end

repeated_line& slot_of(std::uint32_t thread) noexcept { return last_lines[(thread * 2654435761U) >> 26]; }

// FNV-1a over the message and its call site.
std::uint64_t digest_of(const call_site& site, std::u16string_view message) noexcept {
  std::uint64_t digest = 0xcbf29ce484222325;
  const auto add = [&](std::uint32_t value) { digest = (digest ^ value) * 0x100000001b3; };
  add(site.level_index);
  add(site.module_id);
  add(site.line);
  for (const qchar unit : message) add(unit);
  return digest;
}

void write_count(qchar* buffer, const repeated_line& ended) noexcept {
  if (ended.times <= most_repeats) return;
  line_writer line(buffer);
  append_columns(line, ended.site);
  line.append(u"The last line came %u times more\n", ended.times - most_repeats);
  emit(line.text());
}

// Whether to write the line; ends a run of other lines.
bool is_new(qchar* buffer, const call_site& site, const qchar* format, std::span<const qfmt_arg> arguments) noexcept {
  line_writer message(buffer);
  message.append_list(format, arguments);
  const repeated_line now{qsys_thread_id(), site, digest_of(site, message.text()), 1, qsys_time_ms()};
  repeated_line ended{};
  {
    const std::lock_guard<std::mutex> lock(last_lines_lock);
    repeated_line& last = slot_of(now.thread);
    const bool same = last.times != 0 && last.thread == now.thread && last.digest == now.digest;
    // What comes every few seconds, a host's sign of life, is not to fall silent.
    const bool recent = now.since - last.since < qlog_state.repeat_ms.load(std::memory_order_relaxed);
    if (same && recent) return ++last.times <= most_repeats;
    ended = std::exchange(last, now);
    if (ended.times == 0) ++begun_rows;
  }
  write_count(buffer, ended);
  return true;
}

QmemPtr<qchar> line_buffer() noexcept {
  return QmemPtr<qchar>(static_cast<qchar*>(qmem_alloc(line_units * sizeof(qchar))));
}

}  // namespace

qerr_t qlog_write_list(std::uint32_t level, std::uint32_t module_id, const char* function_name, const char* source_file,
                       std::uint32_t line_number, const qchar* format, std::span<const qfmt_arg> arguments) noexcept {
  if (!qlog_is_initialised()) return QERR_CORRUPTED;
  const std::uint32_t index = qlog_level_bit_index(level);
  if (module_id >= QLOG_MODULE_COUNT) return QERR_ARG2;
  if (index >= QLOG_LEVEL_COUNT) return QERR_ARG1;
  if (((qlog_module_mask(module_id) >> index) & 1U) == 0) return QERR_OK;
  // A scan logs a line for each file; without a sink, skip the system calls for its columns.
  if (!qlog_state.console.load(std::memory_order_relaxed) && !qlog_file_is_set()) return QERR_OK;

  const QmemPtr<qchar> buffer = line_buffer();
  if (!buffer) return QERR_LOW_MEMORY;
  const call_site site{index, module_id, function_name, source_file, line_number};
  if (!is_new(buffer.get(), site, format, arguments)) return QERR_OK;
  line_writer line(buffer.get());
  append_columns(line, site);
  line.append_list(format, arguments);
  line.end_with_line_feed();
  emit(line.text());
  return QERR_OK;
}

void qlog_end_repeats() noexcept {
  if (begun_rows.load(std::memory_order_relaxed) == 0) return;
  repeated_line ended{};
  {
    const std::uint32_t thread = qsys_thread_id();
    const std::lock_guard<std::mutex> lock(last_lines_lock);
    repeated_line& last = slot_of(thread);
    if (last.thread == thread) ended = std::exchange(last, {});
    if (ended.times != 0) --begun_rows;
  }
  const QmemPtr<qchar> buffer = ended.times > most_repeats ? line_buffer() : nullptr;
  if (buffer) write_count(buffer.get(), ended);
}

qerr_t qlog_set_format(std::uint32_t flags) noexcept {
  qlog_state.format.store(flags, std::memory_order_relaxed);
  return QERR_OK;
}

void qlog_console_on() noexcept { qlog_state.console.store(true, std::memory_order_relaxed); }

void qlog_console_off() noexcept { qlog_state.console.store(false, std::memory_order_relaxed); }

qerr_t qlog_init() noexcept {
  (void)qlog_set_format(QLOG_DEFAULT_FORMAT);
  qlog_reset_masks();
  qlog_console_on();
  qlog_state.initialised.store(true, std::memory_order_release);
  return QERR_OK;
}

qerr_t qlog_init_with_file(const qchar* path, std::uint32_t start_rotation) noexcept {
  (void)qlog_init();
  if (path == nullptr) return QERR_OK;
  const qerr_t code = qlog_set_log_file(path);
  if (start_rotation != 1) return code;
  const qerr_t started = qlog_rotate_start_main(qlog_file_path().data());
  return code != QERR_OK ? code : started;
}

void qlog_fini() noexcept { qlog_fini_ex(1); }

void qlog_fini_ex(std::uint32_t stop_rotation) noexcept {
  qlog_end_repeats();
  if (stop_rotation == 1) qlog_rotate_stop();
  qlog_state.initialised.store(false, std::memory_order_release);
}
