// The page: its own sources, and between them the report's data in chunks that the script takes one by one while the
// browser reads on. Chunks are JSON, column by column, under the names of report_names.def:
//
//   texts            met for the first time; they are numbered through the page, and other columns name them by number
//   newCertificates  met for the first time, likewise: lists of the fields of report_names.def
//   folder product version company certificates signature   a text's number a row
//   file             a name a row
//   digests          27 + 43 characters of base64 a row, blanks for what is missing
//   installer        a character a row: 1 for an installer, 0 for none, a blank where the report has no word
//   verdict          a digit a row: a ReportVerdict
//
// A row's certificates are a text "signers|others|stamps" of certificate numbers, so that equal ones stand there once.
// Its signature is the verdict in words, with dates and names; empty without details. Where there are details, an
// element of lines follows, one line a row, which the script reads when it needs one.
#include <openssl/evp.h>

#include <array>
#include <new>
#include <unordered_map>

#include "common/qlib/qcksum.h"
#include "common/qlib/qerr.h"
#include "utils/report/report_commands.h"
#include "utils/report/report_output.h"
#include "utils/report/report_page.h"
#include "utils/report/report_page_details.h"
#include "utils/report/report_survey.h"
#include "utils/report/report_text.h"

namespace {

constexpr std::size_t chunk_bytes = std::size_t{1} << 20U;  // bytes
constexpr std::size_t chunk_rows = 4096;
// A survey of more files has no room on the page for what the dialog shows of each.
constexpr std::uint64_t max_detailed = 100000;
constexpr std::size_t sha1_base64 = 27;
constexpr std::size_t sha256_base64 = 43;
// The chunk before this element is complete.
constexpr std::string_view take = "survey.take()";

// The source expression of a Content-Security-Policy that allows exactly this text.
std::string policyHash(std::string_view text) {
  std::array<std::uint8_t, QCKSUM_SHA512_BIN_LEN> digest{};
  if (qcksum_buf_sha256(text.data(), text.size(), digest.data()) != QERR_OK) throw std::bad_alloc();
  std::array<unsigned char, 48> base64{};
  const int length = EVP_EncodeBlock(base64.data(), digest.data(), static_cast<int>(QCKSUM_SHA256_BIN_LEN));
  return "'sha256-" + std::string(base64.begin(), base64.begin() + length) + "'";
}

// Numbers for texts. A text that was forgotten comes again under a new number.
class TextNumbers {
 public:
  std::uint32_t numberOf(const std::string& text, std::string& fresh) {
    if (const auto found = known_.find(text); found != known_.end()) return found->second;
    if (!fresh.empty()) fresh += ',';
    appendJson(fresh, text);
    if (bytes_ > max_bytes || known_.size() > max_texts) {
      known_.clear();
      bytes_ = 0;
    }
    if (text.size() <= max_text) {
      known_.emplace(text, count_);
      bytes_ += text.size();
    }
    return count_++;
  }

 private:
  static constexpr std::size_t max_bytes = std::size_t{4} << 20U;
  static constexpr std::size_t max_texts = std::size_t{1} << 15U;
  static constexpr std::size_t max_text = std::size_t{1} << 14U;
  std::unordered_map<std::string, std::uint32_t> known_;
  std::size_t bytes_ = 0;
  std::uint32_t count_ = 0;
};

#define REPORT_TEXT_COLUMN(name) name,
enum class TextColumn : std::uint8_t {
#include "utils/report/report_names.def"
};
#define REPORT_TEXT_COLUMN(name) #name,
constexpr std::array text_columns{
#include "utils/report/report_names.def"
};
#define REPORT_PART(name) constexpr std::string_view part_##name = #name;
#include "utils/report/report_names.def"

void appendValue(std::string& out, const CertificateName& name) { appendJson(out, bytesToHex(name)); }
void appendValue(std::string& out, const std::string& text) { appendJson(out, text); }
void appendValue(std::string& out, Seconds seconds) { out += std::to_string(seconds); }

class PageData {
 public:
  PageData(ReportOutput& out, ReportSurvey& survey)
      : out_(out), survey_(survey), isDetailed_(survey.hasDetails() && survey.records() <= max_detailed) {
    survey_.certificates().seen = [this](const CertificateFacts& facts) { addCertificate(facts); };
  }

  void add(const SurveyFile& file) {
    const ReportRecord& record = *file.record;
    const SplitPath path = splitPath(record.name());
    addText(TextColumn::certificates, certificatesOf(file));
    addText(TextColumn::signature, file.details == nullptr ? std::string() : wordsOf(file.verdict));
    addText(TextColumn::folder, std::string(path.folder));
    addText(TextColumn::product, record[ReportField::Product]);
    addText(TextColumn::version, record[ReportField::Version]);
    addText(TextColumn::company, record[ReportField::Company]);
    appendJson(separated(files_), path.name);
    addDigest(record[ReportField::Sha1], sha1_base64);
    addDigest(record[ReportField::Sha256], sha256_base64);
    installers_ += installerOf(record);
    verdicts_ += static_cast<char>('0' + static_cast<int>(file.verdict.kind));
    if (isDetailed_) lines_ += pageDetailsOf(*file.details, survey_.certificates()) + '\n';
    std::size_t size = texts_.size() + newCertificates_.size() + files_.size() + lines_.size();
    for (const std::string& column : columns_) size += column.size();
    if (++rows_ >= chunk_rows || size >= chunk_bytes) flush();
  }

  // Ends the chunk. One of texts and certificates alone has no rows.
  void flush() {
    if (rows_ == 0 && texts_.empty() && newCertificates_.empty()) return;
    std::string& chunk = out_.buffer();
    chunk += "<script type=\"application/json\">{";
    appendPart(part_texts, '[', texts_, ']');
    appendPart(part_newCertificates, '[', newCertificates_, ']');
    for (std::size_t i = 0; i < columns_.size(); ++i) appendPart(text_columns[i], '[', columns_[i], ']');
    appendPart(part_file, '[', files_, ']');
    appendPart(part_digests, '"', digests_, '"');
    appendPart(part_installer, '"', installers_, '"');
    appendPart(part_verdict, '"', verdicts_, '"');
    chunk.back() = '}';
    chunk.append("</script><script>").append(take).append("</script>\n");
    if (isDetailed_) {
      chunk.append("<script type=\"text/plain\">").append(lines_).append("</script><script>");
      chunk.append(take).append("</script>\n");
      lines_.clear();
    }
    rows_ = 0;
    out_.spill();
  }

 private:
  static char installerOf(const ReportRecord& record) noexcept {
    if (record[ReportField::Installer].empty()) return ' ';
    return record.isInstaller() ? '1' : '0';
  }

  static std::string& separated(std::string& list) {
    if (!list.empty()) list += ',';
    return list;
  }

  void appendPart(std::string_view name, char start, std::string& content, char end) {
    std::string& chunk = out_.buffer();
    chunk.append("\"").append(name).append("\":").append(1, start).append(content).append(1, end).append(",");
    content.clear();
  }

  void addText(TextColumn column, const std::string& text) {
    separated(columns_[static_cast<std::size_t>(column)]) += std::to_string(numbers_.numberOf(text, texts_));
  }

  void addDigest(const std::string& hex, std::size_t width) {
    const std::size_t before = digests_.size();
    appendBase64OfHex(digests_, hex);
    digests_.resize(before + width, ' ');
  }

  std::string certificatesOf(const SurveyFile& file) {
    const FileCertificates found = survey_.certificatesOf(file);
    std::string text;
    for (const auto* const list : {&found.signers, &found.others, &found.stamps}) {
      if (list != &found.signers) text += '|';
      for (const CertificateBook::EntryPtr& entry : *list) {
        if (!text.empty() && text.back() != '|') text += ',';
        text += std::to_string(entry->number);
      }
    }
    return text;
  }

  void addCertificate(const CertificateFacts& facts) {
    std::string& out = separated(newCertificates_);
    char before = '[';
#define REPORT_CERTIFICATE_FIELD(name) \
  out += before;                       \
  appendValue(out, facts.name);        \
  before = ',';
#include "utils/report/report_names.def"
    out += ']';
    if (out.size() >= chunk_bytes) flush();  // one row may have any number of certificates
  }

  ReportOutput& out_;
  ReportSurvey& survey_;
  bool isDetailed_;
  TextNumbers numbers_;
  std::string texts_;
  std::string newCertificates_;
  std::array<std::string, text_columns.size()> columns_;
  std::string files_;
  std::string digests_;
  std::string installers_;
  std::string verdicts_;
  std::string lines_;
  std::size_t rows_ = 0;
};

void writeHead(ReportOutput& out) {
  out.write(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; base-uri 'none'; form-action 'none'; "
      "script-src " +
      policyHash(REPORT_PAGE_SCRIPT) + ' ' + policyHash(take) + "; style-src " + policyHash(REPORT_PAGE_STYLE) +
      "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<title>Survey</title>\n<style>");
  out.write(REPORT_PAGE_STYLE);
  out.write("</style>\n</head>\n");
  out.write(REPORT_PAGE_BODY);
  out.write("<script>");
  out.write(REPORT_PAGE_SCRIPT);
  out.write("</script>\n");
}

}  // namespace

void reportHtml(const std::u16string& folder, const std::u16string& output, Seconds now) {
  ReportWarnings warnings;
  ReportSurvey survey(folder, warnings, now);
  const ReportReader& reader = survey.reader();
  ReportOutput out(output);
  writeHead(out);
  PageData data(out, survey);
  survey.read([&](const SurveyFile& file) { data.add(file); });
  data.flush();
  std::string& end = out.buffer();
  end += "<script type=\"application/json\">{\"now\":" + std::to_string(now) +
         ",\"hasDetails\":" + (survey.hasDetails() ? "true" : "false") + ",\"incomplete\":";
  appendJson(end, reader.omissions().text());
  end.append("}</script><script>").append(take).append("</script>\n</body>\n</html>\n");
  out.finish();
  if (reader.omissions().any()) warnings.tell(reader.incompleteText());
}
