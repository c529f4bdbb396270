// Decoding signatures and choosing, naming and writing their certificates.
#include "sgn/sgn_pkcs7.h"

#include <gtest/gtest.h>

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
  const auto rows = fixture_table("pkcs7");
  ASSERT_GT(rows.size(), 90U);
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, 77);
  for (const fixture_row& row : rows) {
    SCOPED_TRACE(row.at("file"));
    const std::string bytes = file_text(fixture_path(row.at("file")));
    const qerr_t code = row.at("decode") == "0" ? QERR_OK : undecodable;
    for (sgn_store_cache* const used : {static_cast<sgn_store_cache*>(nullptr), cache.get()}) {
      const Outcome signers = extract_bytes(bytes, folder, 0, used);
      EXPECT_EQ(signers.code, code);
      EXPECT_EQ(signers.names, list_of(row.at("signers")));
      const Outcome all = extract_bytes(bytes, folder, 1, used);
      EXPECT_EQ(all.code, code);
      EXPECT_EQ(all.names, list_of(row.at("all")));
      expect_certificate_files(folder, all.names);
    }
  }
  EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 77) << "the caller's errors are left";
  EXPECT_EQ(ERR_get_error(), 0UL);
}

TEST_F(SgnPkcs7, DecodesNoPublicKey) {
  for (const char* const file : {"pkcs7/signed_rsa.der", "pkcs7/odd_key_explicit_composite_modulus.der"}) {
    SgnP7Owner p7;
    ASSERT_EQ(decode(file_text(fixture_path(file)), p7), QERR_OK);
    ASSERT_FALSE(p7->certificates.empty());
    EXPECT_EQ(X509_get0_pubkey(p7->certificates.front()->x509.get()), nullptr) << file;
    ERR_clear_error();
  }
}

// Names that differ in letter case and white space are one issuer, as RFC 5280, 7.1 compares them; the first
// certificate of several is the signer's.
TEST_F(SgnPkcs7, FindsTheSignerAsNamesCompare) {
  const std::string first = der::certificate(5, der::common_name("An  Issuer"));
  const std::string second = der::certificate(5, der::common_name("an issuer"));
  const std::string other = der::certificate(6, der::common_name("an issuer"));
  const std::string signers = der::signer(der::common_name(" AN ISSUER "), der::number(5));
  const fs::path folder = scratch_folder("compare");
  const Outcome found = extract_bytes(der::signed_data(other + first + second, signers), folder, 0);
  const Outcome alone = extract_bytes(der::signed_data(first, signers), folder, 1);
  EXPECT_EQ(found.names.size(), 1U);
  EXPECT_EQ(found.names, alone.names);
}

// OpenSSL tells a set by class and number of its tag, in whatever form they are written.
TEST_F(SgnPkcs7, FindsTheSetsInEveryForm) {
  using namespace std::string_literals;
  const std::string one = der::certificate(5, der::common_name("x"));
  const std::string by = der::signer(der::common_name("x"), der::number(5));
  for (const auto& [certificates, signers] :
       {std::pair("\xa0"s, "\x31"s), {"\x80"s, "\x11"s}, {"\xbf\0"s, "\x3f\x11"s}, {"\x9f\x80\0"s, "\x1f\x80\x11"s}}) {
    const std::string bytes = der::signed_data_of(der::element(certificates, one) + der::element(signers, by));
    EXPECT_EQ(extract_bytes(bytes, scratch_folder("forms"), 0).names.size(), 1U) << int{certificates[0]};
  }
}

// An issuer whose one-line text is longer than a mebibyte ends the work with a code; what came before is handed out.
TEST_F(SgnPkcs7, AnIssuerTooLongToNameIsAnError) {
  const std::string text(std::size_t{300} * 1024, '\x01');  // each byte becomes four characters
  const std::string good = der::certificate(1, der::common_name("good"));
  const std::string bad = der::certificate(2, der::common_name(text));
  const Outcome outcome = extract_bytes(der::signed_data(good + bad, ""), scratch_folder("long"), 1);
  EXPECT_EQ(outcome.code, QERR_INVALID);
  EXPECT_EQ(outcome.names, extract_bytes(der::signed_data(good, ""), scratch_folder("long"), 1).names);
}

std::string repeated(const std::string& text, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += text;
  return out;
}

// Each bound at its limit and one further.
TEST_F(SgnPkcs7, DecodesOnlyWithinItsBounds) {
  const std::string one = der::certificate(1, der::common_name("x"));
  const std::string by = der::signer(der::common_name("x"), der::number(1));
  const auto sized = [&](std::size_t size) {
    const auto padded = [&](std::size_t n) {
      return der::signed_data(one, der::signer(der::common_name("x"), der::number(1), std::string(n, 'a')));
    };
    return padded(size - (padded(size - 400).size() - (size - 400)));
  };
  constexpr std::size_t most = std::size_t{16} << 20;
  const std::string many = repeated(der::algorithm, 150000);  // 300,000 elements of three bytes
  const std::string no_element = der::element(0x30, der::oid("\x2a\x03") + der::element(0x30, "\x04\x7f"));
  const auto with_algorithms = [&](unsigned tag, const std::string& content) {
    return der::signed_data_of(der::element(0xa0, one) + der::element(0x31, by), der::element(tag, content));
  };
  const struct {
    const char* what;
    std::string bytes;
    qerr_t code;
  } cases[] = {
      {"4,096 of each", der::signed_data(repeated(one, 4096), repeated(by, 4096)), QERR_OK},
      {"4,097 certificates", der::signed_data(repeated(one, 4097), by), undecodable},
      {"4,097 signers", der::signed_data(one, repeated(by, 4097)), undecodable},
      {"16 MiB", sized(most), QERR_OK},
      {"16 MiB and what follows", sized(most) + "stuffing", QERR_OK},
      {"a byte more", sized(most + 1), undecodable},
      {"of open length, in 16 MiB", "\x30\x80" + one + std::string(most, '\0'), undecodable},
      {"elements of any form", with_algorithms(0x11, der::algorithm + no_element), QERR_OK},
      {"too many elements", with_algorithms(0x31, many), undecodable},
      {"in a set that is not marked as one", with_algorithms(0x11, many), undecodable},
      {"behind what is no element", with_algorithms(0x31, no_element + many), undecodable},
  };
  for (const auto& one_case : cases) {
    SgnP7Owner p7;
    EXPECT_EQ(decode(one_case.bytes, p7), one_case.code) << one_case.what << " " << one_case.bytes.size();
  }
}

// Signers times certificates would be 16 million comparisons.
TEST_F(SgnPkcs7, ManySignersAndCertificatesTakeFewComparisons) {
  constexpr std::uint32_t count = 4096;
  std::string certificates;
  std::string signers;
  for (std::uint32_t i = 0; i < count; ++i) {
    // One serial number for all, so that only the issuers tell them apart.
    certificates += der::certificate(9, der::common_name(std::to_string(i)));
    signers += der::signer(der::common_name(std::to_string(count - 1 - i)), der::number(9));
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
  Outcome extract(sgn_store_cache* cache = nullptr) { return extract_bytes(bytes_, folder_, 0, cache); }
  fs::path file(const Outcome& outcome) const { return folder_ / (outcome.names.at(0) + ".cer"); }

  const fs::path folder_ = scratch_folder("store");
  const std::string bytes_ = file_text(fixture_path("pkcs7/signed_rsa.der"));
};

// A folder is left alone, all else is replaced, and no link is followed. The output folder is not made.
TEST_F(SgnStore, WhatStandsAtTheTarget) {
  const Outcome first = extract();
  EXPECT_EQ(extract_bytes(bytes_, folder_ / "missing", 0).names, first.names);
  EXPECT_FALSE(fs::exists(folder_ / "missing"));
  const fs::path at = file(first), victim = folder_ / "victim";
  std::ofstream(victim) << "precious";
  for (const char* const what : {"folder", "longer file", "victim", "dangling"}) {
    fs::remove(at);
    std::error_code failed;
    if (what == std::string("folder")) {
      fs::create_directory(at);
    } else if (what == std::string("longer file")) {
      std::ofstream(at) << std::string(5000, '.');
    } else {
      fs::create_symlink(folder_ / what, at, failed);
    }
    if (failed) continue;  // Windows lets only privileged users make them
    EXPECT_EQ(extract().names, first.names);
    if (!fs::is_directory(at)) expect_certificate_files(folder_, first.names);
    EXPECT_EQ(fs::is_regular_file(fs::symlink_status(at)), what != std::string("folder")) << what;
    EXPECT_EQ(file_text(victim), "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2) << what;
  }
}

// Only what this request has itself written, with the very same bytes, is not written again.
TEST_F(SgnStore, TheCacheSkipsOnlyTheSameBytesUnderTheSameName) {
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  const Outcome first = extract(cache.get());
  fs::remove(file(first));
  EXPECT_EQ(extract(cache.get()).names, first.names);
  EXPECT_FALSE(fs::exists(file(first)));
  const fs::path elsewhere = scratch_folder("store_elsewhere");
  EXPECT_EQ(extract_bytes(bytes_, elsewhere, 0, cache.get()).names, first.names);
  expect_certificate_files(elsewhere, first.names);
}

// More certificates than the cache keeps decoded, each listed four times: each file is written once.
TEST_F(SgnStore, ManyCertificatesAreEachWrittenOnce) {
  constexpr std::uint32_t count = 300;
  const SgnStoreCacheOwner cache(sgn_store_cache_create());
  std::string certificates;
  std::string signers;
  for (std::uint32_t i = 0; i < count; ++i) {
    certificates += der::certificate(i, der::common_name("x"));
    signers += der::signer(der::common_name("x"), der::number(i));
  }
  faulty_provider disk;
  for (int round = 0; round < 2; ++round) {
    const std::string bytes = der::signed_data(certificates, signers + signers);
    EXPECT_EQ(extract_bytes(bytes, folder_, 0, cache.get()).names.size(), 2 * count);
  }
  EXPECT_EQ(disk.calls(file_op::create_exclusive), count);
}

}  // namespace
