#include "utils/signing/brantle/brantle_details.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qsys.h"
#include "details/details_text.h"
#include "utils/signing/brantle/brantle_report.h"

static constexpr std::uint32_t module_id = QLOG_PROG;
#undef QLOG_SOURCE
#define QLOG_SOURCE "brantle.cpp"

namespace {

constexpr const qchar* name = u"details.jsonl";
constexpr const qchar* other_name = u"details-new.jsonl";  // while another program has the old one open

// What is gathered before it is written.
constexpr std::size_t piece = 65536;

std::string now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds);
  return details_time_text(seconds.count(), static_cast<std::uint32_t>(rest.count()));
}

std::string timeText(const qfile_time& time) {
  return time == qfile_time{} ? std::string() : details_time_text(time.seconds, time.nanoseconds);
}

}  // namespace

bool Brantle::takeDetailsFromEnvironment() {
  const std::u16string asked = qsys_environment("BRANTLE_DETAILS");
  details = BRANTLE_DETAILS_OFF;
  if (asked == u"1") details = BRANTLE_DETAILS_ON;
  if (asked == u"digests") details = BRANTLE_DETAILS_DIGESTS;
  return asked.empty() || details != BRANTLE_DETAILS_OFF;
}

BrantleDetails::BrantleDetails(const std::u16string& path, const details_header& header) noexcept
    : code_(file_.begin(path.c_str())),
      watch_{
          [](void* self, blib_bin* image) noexcept { return static_cast<BrantleDetails*>(self)->beginDigests(image); },
          this} {
  step([&] { put(header); });
}

void BrantleDetails::beginFile(std::uint64_t ordinal, const std::u16string& path, blib_file& file) noexcept {
  step([&] {
    line_ = {};
    whole_ = true;
    described_ = false;
    kinds_ = 0;
    line_.ordinal = ordinal;
    describe(path, file);
  });
}

void BrantleDetails::describe(const std::u16string& path, blib_file& file) {
  if (!brantleReportText(line_.name, path)) line_.name_bytes = details_path_bytes(path);
  line_.read_at = now();
  stamped_ = false;
  if (blib_file_open(file, path.c_str()) != QERR_OK) return addProblem("open_failed");
  stamped_ = qfile_get_stamp(file.file.get(), &stamp_) == QERR_OK;
  if (!stamped_) return addProblem("state_unknown");
  line_.size = stamp_.size;
  line_.file_number = stamp_.number;
  line_.modified = timeText(stamp_.modified);
  line_.changed = timeText(stamp_.changed);
}

void BrantleDetails::setRecord(const BrantleRecord& record, const sgn_cert_name* names) noexcept {
  step([&] {
    details_record& values = line_.record.emplace();
    values.bare = record.isBare;
    const auto set = [&](std::string& text, BrantleRecord::Field field) {
      (void)brantleReportText(text, record.texts[field]);
    };
    set(values.sha1, BrantleRecord::SHA1);
    set(values.sha256, BrantleRecord::SHA256);
    set(values.company_name, BrantleRecord::companyName);
    set(values.is_installer, BrantleRecord::isInstaller);
    set(values.product_name, BrantleRecord::productName);
    set(values.product_version, BrantleRecord::productVersion);
    for (; names != nullptr; names = names->next) {
      line_.certificates.push_back({qstr_to_utf8(names->name), details_hex(names->sha256)});
    }
  });
}

void BrantleDetails::endFile(blib_file& file, msi_package* package, bool whole) noexcept {
  step([&] {
    whole_ = whole_ && whole;
    if (file.file.get() != QFILE_INVALID) complete(file, package);
    if (code_ != QERR_OK) return;
    line_.complete = whole_ && stamped_;
    put(line_);
    ++lines_;
  });
}

void BrantleDetails::complete(blib_file& file, msi_package* package) {
  const qfile_t handle = file.file.get();
  if (file.image) describeImage(file.image.get());
  describeSignatures(handle, file.image.get(), package);
  keepDigestsThatWereTold();
  endDigests();
  if (qfile_failure(handle) != QERR_OK) whole_ = false;
  qfile_stamp after;
  if (stamped_ && qfile_get_stamp(handle, &after) == QERR_OK && after == stamp_) return;
  if (stamped_) addProblem("changed_while_read");
  whole_ = false;
}

void BrantleDetails::addProblem(std::string_view code, std::uint64_t count) {
  const auto same = [&](const details_problem& problem) { return problem.code == code; };
  const auto known = std::find_if(line_.problems.begin(), line_.problems.end(), same);
  if (known != line_.problems.end()) {
    known->count += count;
  } else {
    line_.problems.push_back({std::string(code), count});
  }
}

qerr_t BrantleDetails::finish(details_end end, const qchar* otherName, qfile_committed* how) noexcept {
  step([&] {
    end.files = lines_;
    end.ended = now();
    put(end);
    drain();
  });
  if (code_ == QERR_OK) {
    code_ = *how == qfile_committed::beside ? file_.commit_beside(otherName) : file_.commit_over_held(otherName, how);
  }
  file_.abandon();
  return code_;
}

void BrantleDetails::append(std::string_view line) {
  pending_ += line;
  if (pending_.size() > piece) drain();
}

void BrantleDetails::drain() noexcept {
  if (code_ != QERR_OK) return;
  if (const qerr_t code = file_.write(pending_.data(), pending_.size()); code != QERR_OK) return fail(code);
  pending_.clear();
}

void BrantleDetails::fail(qerr_t code) noexcept {
  code_ = code;
  file_.abandon();
}

void Brantle::beginDetails() {
  details_header header;
  header.program = "brantle " BRANTLE_VERSION;
  header.system = details_system();
  details_request& request = header.request;
  if (!brantleReportText(request.path, reposPath)) request.path_bytes = details_path_bytes(reposPath);
  request.share = nwMode != 0;
  request.all_certificates = allCerts != 0;
  request.digests = details == BRANTLE_DETAILS_DIGESTS;
  if (!part.isWhole()) request.part = std::to_string(part.index) + '/' + std::to_string(part.count);
  header.started = now();
  detailsFile = std::make_unique<BrantleDetails>(detailsPath(), header);
  report->wantDigest();
}

void Brantle::endFileDetails() {
  if (isNoFile || qlib_is_cancelled()) return;
  const bool stored = currentNames == nullptr || sgn_store_cache_failures(storeCache.get()).certificates == 0;
  detailsFile->endFile(openFile, openPackage.get(), isWhole && stored);
}

// After the report: until then the old details belong to what stands there. Where the old report stays, so do they.
void Brantle::finishDetails(qfile_committed reportHow) {
  if (!detailsFile) return;
  details_end end;
  end.records = done.records;
  end.certificates = done.certificates;
  end.left_out_directories = missed.directories;
  end.left_out_files = missed.files;
  end.ended_early = missed.ended_early;
  end.info_sha256 = report->digest();
  const bool follows = reportHow == qfile_committed::beside;
  auto how = follows ? reportHow : qfile_committed::renamed;
  const qerr_t code = detailsFile->finish(std::move(end), other_name, &how);
  if (code == QERR_OK && follows) {
    QLOG(QLOG_WARNING, u"The details of the new report are %s.\n", qpath_join(outputPath, other_name));
  } else {
    noteDocument(name, other_name, code, how);
  }
}

std::u16string Brantle::detailsPath() const { return qpath_join(outputPath, name); }
