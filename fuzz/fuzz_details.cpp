// The reader of details over arbitrary bytes. What it accepts our writer writes again, and that is read as the same.
#include <string>

#include "common/qlib/qerr.h"
#include "details/details_reader.h"
#include "details/details_writer.h"
#include "support/memory_file.h"
#include "support/refusing_provider.h"
#include "target.h"

namespace {

// Every path is the one file, which comes in small pieces.
class one_file final : public refusing_provider {
 public:
  explicit one_file(std::string_view text) : text_(text) { qfile_set_provider(this); }
  ~one_file() override { qfile_set_provider(nullptr); }
  qsys_status open(const qchar*, std::uint32_t, Object& out) override {
    auto file = std::make_unique<memory_file>(text_);
    file->most_read = 61;
    out = std::move(file);
    return {};
  }

 private:
  std::string_view text_;
};

// All lines up to the first that is not accepted, written again.
std::string again(std::string_view text) {
  const one_file provider(text);
  details_reader reader;
  details_writer writer;
  details_line line = details_header();
  std::string lines;
  qerr_t code = reader.open(u"details", std::get<details_header>(line));
  for (; code == QERR_OK; code = reader.next(line)) {
    std::string_view written;
    check(std::visit([&](const auto& record) { return writer.write(record, written); }, line) == QERR_OK);
    check(written.size() <= DETAILS_LARGEST_LINE && written.ends_with('\n'));
    lines += written;
  }
  check(code == QERR_END || code == QERR_INVALID || code == QERR_CORRUPTED);
  details_end end;
  check(code != QERR_END || reader.read_end(end) == QERR_OK);
  return lines;
}

}  // namespace

void fuzz(Bytes input) {
  const std::string once = again({reinterpret_cast<const char*>(input.data()), input.size()});
  check(again(once) == once);
}
