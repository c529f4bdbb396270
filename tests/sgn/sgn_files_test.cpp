// Whole files: images with their tables, packages, cabinets and everything else, and what the log tells of them.
#include "sgn/sgn_cab.h"
#include "sgn/sgn_cache.h"
#include "sgn/sgn_err.h"
#include "sgn/support.h"
#include "support/faulty_provider.h"

namespace {

using SgnFiles = Runtime;

Outcome extract_file(const fs::path& path, const fs::path& folder, std::uint32_t all, sgn_store_cache* cache) {
  sgn_cert_name* list = nullptr;
  const qerr_t code = sgn_x509_get_certnames_and_store_certs_ex(path.u16string().c_str(), folder.u16string().c_str(),
                                                                &list, 0, all, cache);
  return {code, take_names(list)};
}

Outcome extract_cabinet(const fs::path& path, const fs::path& folder, std::uint32_t all, sgn_store_cache* cache) {
  sgn_p7* out = nullptr;
  const qerr_t code = sgn_extract_cab_cert_alloc(path.u16string().c_str(), &out);
  const SgnP7Owner p7(out);
  EXPECT_EQ(out == nullptr, code != QERR_OK);
  return code != QERR_OK ? Outcome{code, {}} : process(p7.get(), folder, all, cache);
}

// Of the fixtures, with the routine that is theirs.
Outcome extract(const std::string& file, const fs::path& folder, std::uint32_t all = 0,
                sgn_store_cache* cache = nullptr) {
  return (file.starts_with("cabinets/") ? extract_cabinet : extract_file)(fixture_path(file), folder, all, cache);
}

TEST_F(SgnFiles, YieldTheNamesAndFilesOfTheTable) {
  const fs::path folder = scratch_folder("files");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  for (const fixture_row& row : fixture_table("certificates")) {
    SCOPED_TRACE(row.at("file"));
    for (const std::uint32_t all : {0U, 1U}) {
      const Names expected = fixture_cells(row.at(all != 0 ? "all" : "signers"), ',');
      const Outcome outcome = extract(row.at("file"), folder, all, cache.get());
      EXPECT_EQ(outcome.code == QERR_OK, !expected.empty()) << outcome.code;
      EXPECT_EQ(outcome.names, expected);
      expect_certificate_files(folder, outcome.names);
    }
  }
}

// Certificate tables and cabinet headers, damaged one field at a time. The code is that of the last entry, the names
// are those of all that decode.
TEST_F(SgnFiles, FollowDamagedTables) {
  for (const char* const table : {"cert_table", "cabinets"}) {
    for (const fixture_row& row : fixture_table(table)) {
      SCOPED_TRACE(row.at("file"));
      const fs::path folder = scratch_folder("damaged");
      const Outcome outcome = extract(row.at("file"), folder);
      EXPECT_EQ(outcome.code, row.number("extraction"));
      EXPECT_EQ(outcome.names.size(), row.number("named"));
      EXPECT_EQ(fs::is_empty(folder), outcome.names.empty());
      expect_certificate_files(folder, outcome.names);
    }
  }
}

TEST_F(SgnFiles, ThatAreNeitherImageNorPackageAreNotFound) {
  const fs::path folder = scratch_folder("others");
  for (const char* const file : {"pkcs7/signed_rsa.der", "cabinets/signed_rsa.cab", "there is no such file", "pkcs7"}) {
    EXPECT_EQ(extract_file(fixture_path(file), folder, 0, nullptr).code, QERR_NOT_FOUND) << file;
  }
  EXPECT_TRUE(fs::is_empty(folder));
}

// Each step's failure comes back as it is: the open, two header reads, the reserve, the size, then to the signature's
// head and the same for all of it.
TEST_F(SgnFiles, PassOnWhatTheDiskAnswers) {
  const std::string cabinet = "cabinets/signed_rsa.cab";
  const std::pair<file_op, std::uint32_t> steps[] = {
      {file_op::open, 1}, {file_op::read, 5}, {file_op::size, 1}, {file_op::seek, 2}};
  for (const auto& [op, times] : steps) {
    for (std::uint32_t nth = 1; nth <= times; ++nth) {
      faulty_provider disk;
      disk.fail(op, nth, QERR_PERMISSION);
      EXPECT_EQ(extract(cabinet, "").code, QERR_PERMISSION) << static_cast<int>(op) << " " << nth;
    }
  }
  faulty_provider disk;
  disk.most_read = 7;
  EXPECT_EQ(extract(cabinet, scratch_folder("short_reads")).names.size(), 1U);
}

// --- the log ---

// {} stands for the file; `below` is a folder that is not there.
TEST_F(SgnFiles, TellInTheLogWhatWasFound) {
  for (const fixture_row& row : fixture_rows("sgn/log.tsv")) {
    const fs::path folder = scratch_folder("log") / row.at("below");
    const std::string log = logged(QLOG_SGN, [&] { (void)extract(row.at("file"), folder); });
    std::string line = row.at("line");
    if (const std::size_t at = line.find("{}"); at != line.npos) line.replace(at, 2, fixture_path(row.at("file")));
    EXPECT_EQ(log.find(line) != log.npos, row.at("there") == "yes") << line << " in\n" << log;
  }
}

// The last of two certificates of one name stands.
TEST_F(SgnFiles, NameInTheLogBothFilesOfOneName) {
  const fs::path folder = scratch_folder("log_names");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  const std::string genuine = file_text(fixture_path("pkcs7/signed_rsa.der"));
  std::string forged = genuine;
  forged.replace(forged.find("Signer RSA"), 6, "SIGNER");  // in the subject
  const auto stored = [&](const std::string& bytes, const char16_t* path) {
    sgn_cert_name* names = nullptr;
    EXPECT_EQ(sgn_x509_store_certs_of_signature(std::as_bytes(std::span(bytes)), path, folder.u16string().c_str(),
                                                &names, 1, cache.get()),
              QERR_OK);
    return file_text(folder / (take_names(names).at(0) + ".cer"));
  };
  const std::string log = logged(QLOG_SGN, [&] {
    const std::string first = stored(genuine, u"genuine.msi");
    EXPECT_EQ(stored(genuine, u"again.msi"), first);
    EXPECT_NE(stored(forged, u"forged.msi"), first);
    EXPECT_EQ(stored(genuine, u"late.msi"), first);
  });
  EXPECT_THAT(log, HasSubstr("the certificate from genuine.msi is overwritten by another one from forged.msi"));
  EXPECT_THAT(log, HasSubstr("the certificate from forged.msi is overwritten by another one from late.msi"));
}

TEST_F(SgnFiles, DumpAndEmptyTheErrorQueue) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_PEM, ERR_R_MALLOC_FAILURE);
  ERR_raise(ERR_LIB_ASN1, ERR_R_NESTED_ASN1_ERROR);
  const std::string log = logged(QLOG_SGN, [] { sgn_dump_err(); });
  for (const char* const line :
       {"    SSL Error Stack Entry:[", "        LIB:    PEM routines", "        LIB:    asn1 encoding routines",
        "        FUNC:   ", "        REASON: malloc failure", "        REASON: nested asn1 error"}) {
    EXPECT_THAT(log, HasSubstr(line));
  }
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
