// Decoding signatures and choosing, naming and writing their certificates.
#include "sgn/sgn_pkcs7.h"

#include "sgn/sgn_cache.h"
#include "sgn/sgn_types.h"
#include "sgn/support.h"
#include "support/faulty_provider.h"

// The linker sends the product's calls here.
static std::size_t name_comparisons = 0;
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __real_X509_NAME_cmp(const X509_NAME* a, const X509_NAME* b);
extern "C" int __wrap_X509_NAME_cmp(const X509_NAME* a, const X509_NAME* b) {
  ++name_comparisons;
  return __real_X509_NAME_cmp(a, b);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using SgnPkcs7 = Runtime;

constexpr qerr_t undecodable = QERR_ALL_BITS;

// Every bare signature of the fixtures, against what openssl finds in it.
TEST_F(SgnPkcs7, YieldsTheNamesAndFilesOfTheTable) {
  const fs::path folder = scratch_folder("table");
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, 77);
  for (const fixture_row& row : fixture_table("pkcs7")) {
    SCOPED_TRACE(row.at("file"));
    const std::string bytes = file_text(fixture_path(row.at("file")));
    for (sgn_store_cache* const used : {static_cast<sgn_store_cache*>(nullptr), cache.get()}) {
      for (const std::uint32_t all : {0U, 1U}) {
        const Outcome outcome = extract_bytes(bytes, folder, all, used);
        EXPECT_EQ(outcome.code, row.at("decode") == "0" ? QERR_OK : undecodable);
        EXPECT_EQ(outcome.names, fixture_cells(row.at(all != 0 ? "all" : "signers"), ','));
      }
      expect_certificate_files(folder, fixture_cells(row.at("all"), ','));
    }
    SgnP7Owner p7;
    (void)decode(bytes, p7);
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_last_error()), 77) << "the caller's errors are left";
    for (std::size_t i = 0; p7 != nullptr && i < p7->certificates.size(); ++i) {
      const sgn_error_scope errors;
      EXPECT_EQ(X509_get0_pubkey(p7->certificates[i]->x509.get()), nullptr) << "no public key is decoded";
    }
  }
  ERR_clear_error();
}

// An issuer whose one-line text is longer than a mebibyte ends the work with a code; what came before is handed out.
TEST_F(SgnPkcs7, AnIssuerTooLongToNameIsAnError) {
  const std::string good = der::certificate(1, "good");
  const std::string bad = der::certificate(2, std::string(std::size_t{300} * 1024, '\x01'));  // each becomes four
  const Outcome outcome = extract_bytes(der::signed_data(good + bad, ""), scratch_folder("long"), 1);
  EXPECT_EQ(outcome.code, QERR_INVALID);
  EXPECT_EQ(outcome.names, extract_bytes(der::signed_data(good, ""), scratch_folder("long"), 1).names);
}

std::string repeated(const std::string& text, std::size_t count) {
  std::string out;
  while (count-- != 0) out += text;
  return out;
}

// Each bound at its limit and one further.
TEST_F(SgnPkcs7, DecodesOnlyWithinItsBounds) {
  const std::string one = der::certificate(1, "x");
  const std::string by = der::signer(1, "x");
  const auto padded = [&](std::size_t n) { return der::signed_data(one, der::signer(1, "x", std::string(n, 'a'))); };
  constexpr std::size_t most = std::size_t{16} << 20;
  const std::size_t fits = most - (padded(most - 400).size() - (most - 400));
  ASSERT_EQ(padded(fits).size(), most);
  const std::string many = repeated(der::algorithm, 150000);  // 300,000 elements of three bytes
  const std::string no_element = der::element(0x30, der::element(0x06, "\x2a\x03") + der::element(0x30, "\x04\x7f"));
  const auto with_algorithms = [&](int tag, const std::string& content) {
    return der::signed_data(one, by, der::element(tag, content));
  };
  const std::tuple<const char*, std::string, qerr_t> rows[] = {
      {"4,096 of each", der::signed_data(repeated(one, 4096), repeated(by, 4096)), QERR_OK},
      {"4,097 certificates", der::signed_data(repeated(one, 4097), by), undecodable},
      {"4,097 signers", der::signed_data(one, repeated(by, 4097)), undecodable},
      {"16 MiB", padded(fits), QERR_OK},
      {"16 MiB and what follows", padded(fits) + "stuffing", QERR_OK},
      {"a byte more", padded(fits + 1), undecodable},
      {"of open length, in 16 MiB", "\x30\x80" + one + std::string(most, '\0'), undecodable},
      {"elements of any form", with_algorithms(0x11, der::algorithm + no_element), QERR_OK},
      {"too many elements", with_algorithms(0x31, many), undecodable},
      {"in a set that is not marked as one", with_algorithms(0x11, many), undecodable},
      {"behind what is no element", with_algorithms(0x31, no_element + many), undecodable},
  };
  for (const auto& [what, bytes, code] : rows) {
    SgnP7Owner p7;
    EXPECT_EQ(decode(bytes, p7), code) << what << " " << bytes.size();
  }
}

// Signers times certificates would be 16 million comparisons.
TEST_F(SgnPkcs7, ManySignersAndCertificatesTakeFewComparisons) {
  constexpr std::uint32_t count = 4096;
  std::string certificates;
  std::string signers;
  for (std::uint32_t i = 0; i < count; ++i) {
    // One serial number for all, so that only the issuers tell them apart.
    certificates += der::certificate(9, std::to_string(i));
    signers += der::signer(9, std::to_string(count - 1 - i));
  }
  SgnP7Owner p7;
  name_comparisons = 0;
  ASSERT_EQ(decode(der::signed_data(certificates, signers), p7), QERR_OK);
  const Outcome outcome = process(p7.get(), scratch_folder("many") / "missing", 0);
  EXPECT_EQ(outcome.names.size(), count);
  EXPECT_LT(name_comparisons, 40 * count);
}

// --- files ---

class SgnStore : public Runtime {
 protected:
  // Extracts the signer of one fixture into `folder_`.
  Outcome extract() { return extract_bytes(bytes_, folder_, 0); }
  fs::path file(const Outcome& outcome) const { return folder_ / (outcome.names.at(0) + ".cer"); }

  const fs::path folder_ = scratch_folder("store");
  const std::string bytes_ = file_text(fixture_path("pkcs7/signed_rsa.der"));
};

// A folder is left alone and no link is followed; the output folder is not made. The names are handed out all the same.
TEST_F(SgnStore, ReplacesLinksAndLeavesDirectories) {
  const Outcome first = extract();
  EXPECT_EQ(extract_bytes(bytes_, folder_ / "missing", 0).names, first.names);
  EXPECT_FALSE(fs::exists(folder_ / "missing"));
  const fs::path at = file(first), victim = folder_ / "victim";
  std::ofstream(victim) << "precious";
  fs::remove(at);
  // Windows lets only privileged users make symbolic links; a hard link must be replaced just as well.
  if (qpath_native_separator() == u'/') {
    fs::create_symlink(victim, at);
  } else {
    fs::create_hard_link(victim, at);
  }
  EXPECT_EQ(extract().names, first.names);
  expect_certificate_files(folder_, first.names);
  EXPECT_EQ(file_text(victim), "precious");
  fs::remove(at);
  fs::create_directory(at);
  EXPECT_EQ(extract().names, first.names);
  EXPECT_TRUE(fs::is_directory(at));
}

// More certificates than the cache keeps decoded, each listed four times: each file is written once in each folder.
TEST_F(SgnStore, ManyCertificatesAreEachWrittenOnce) {
  constexpr std::uint32_t count = 300;
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  std::string certificates;
  std::string signers;
  for (std::uint32_t i = 0; i < count; ++i) {
    certificates += der::certificate(i, "x");
    signers += der::signer(i, "x");
  }
  const std::string bytes = der::signed_data(certificates, signers + signers);
  faulty_provider disk;
  for (const fs::path& folder : {folder_, folder_, scratch_folder("store_elsewhere")}) {
    EXPECT_EQ(extract_bytes(bytes, folder, 0, cache.get()).names.size(), 2 * count);
    EXPECT_EQ(disk.calls(file_op::create_exclusive), folder == folder_ ? count : 2 * count);
  }
}

}  // namespace
