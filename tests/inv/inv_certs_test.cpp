#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "cert/cert_sign.h"
#include "common/qlib/qerr.h"
#include "inv/record_text.h"

// What the module below knows of a certificate.
struct cert_context {
  std::uint8_t number;
  bool key_fails = false;
  bool whole_fails = false;
};

namespace {

struct Signer {
  std::uint16_t kind;
  cert_context certificate;
};

// Answers with the signers it was given, the first at the list's head.
class GivenSigners final : public cert_sign_module {
 public:
  std::deque<Signer> signers;
  qerr_t code = QERR_OK;
  std::int32_t count_off = 0;  // what the count lies by
  std::uint32_t asked_embedded = 99;
  int released = 0;

  qerr_t find_signers(const qchar* /*path*/, std::uint32_t embedded, cert_sign_list& list) noexcept override {
    asked_embedded = embedded;
    nodes_.clear();
    for (std::size_t i = 0; i < signers.size(); ++i)
      nodes_.push_back({nullptr, signers[i].kind, &signers[i].certificate});
    for (std::size_t i = 0; i + 1 < nodes_.size(); ++i) nodes_[i].next = &nodes_[i + 1];
    list.head = nodes_.empty() ? nullptr : &nodes_.front();
    list.count = static_cast<std::int32_t>(nodes_.size()) + count_off;
    return code;
  }
  void release(cert_sign_list& list) noexcept override {
    ++released;
    list = {};
  }
  qerr_t public_key_hash(const cert_context* certificate, qcksum& hash) noexcept override {
    return fill(hash, static_cast<std::uint8_t>(certificate->number + 100), certificate->key_fails);
  }
  qerr_t certificate_hash(const cert_context* certificate, qcksum& hash) noexcept override {
    return fill(hash, certificate->number, certificate->whole_fails);
  }

 private:
  static qerr_t fill(qcksum& hash, std::uint8_t number, bool fails) noexcept {
    if (fails) return QERR_INVALID;
    hash = {QCKSUM_SHA1, QCKSUM_SHA1_BIN_LEN, {number}};
    return QERR_OK;
  }
  std::deque<cert_sign_node> nodes_;
};

class Certificates : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    (void)qlog_set_format(QLOG_COLUMN_LEVEL | QLOG_COLUMN_FUNCTION);
    ASSERT_EQ(qlog_set_logtype(u"INV=127"), QERR_OK);
    cert_sign_init(&module);
  }
  void TearDown() override {
    cert_sign_init(nullptr);
    Runtime::TearDown();
  }
  // Gathers with the given signers; what was logged is in `log`.
  qerr_t gather() {
    qerr_t code = 0;
    log = printed([&] { code = inv_get_certificates_info_alloc(u"a.exe", record.get()); });
    return code;
  }
  // Kind and number of each entry.
  [[nodiscard]] std::vector<std::pair<int, int>> entries() const {
    std::vector<std::pair<int, int>> out;
    out.reserve(static_cast<std::size_t>(std::max(record->cert_count, 0)));
    for (std::int32_t i = 0; i < record->cert_count; ++i) {
      out.emplace_back(record->certs[i].kind, record->certs[i].certificate.value[0]);
    }
    return out;
  }
  GivenSigners module;
  InvCfciOwner record = new_record();
  std::string log;
};

using Entries = std::vector<std::pair<int, int>>;

TEST_F(Certificates, AreGatheredWithoutRepeats) {
  constexpr auto embedded = INV_CERT_EMBEDDED;
  constexpr auto catalog = INV_CERT_CATALOG;
  const struct {
    const char* what;
    std::deque<Signer> signers;
    Entries expected;
    const char* line;
  } rows[] = {
      {"none", {}, {}, "  INFO: inv_get_certificates_info_alloc(): No certificate extracted from file a.exe."},
      {"one", {{embedded, {1}}}, {{1, 1}}, "File: a.exe has 1 unique certificates."},
      {"three alike",
       {{embedded, {1}}, {embedded, {1}}, {embedded, {1}}},
       {{1, 1}},
       "Number of total certs: 3 and duplicate certs: 2."},
      {"found both ways",
       {{catalog, {1}}, {embedded, {1}}},
       {{3, 1}},
       "Number of total certs: 2 and duplicate certs: 1."},
      {"order and kinds stay",
       {{catalog, {2}}, {embedded, {1}}, {embedded, {2}}, {catalog, {3}}, {embedded, {1}}},
       {{3, 2}, {1, 1}, {2, 3}},
       "Number of total certs: 5 and duplicate certs: 2."},
      {"distinct",
       {{embedded, {1}}, {catalog, {2}}},
       {{1, 1}, {2, 2}},
       "Number of total certs: 2 and duplicate certs: 0."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    module.signers = row.signers;
    EXPECT_EQ(gather(), QERR_OK);
    EXPECT_EQ(record->cert_count, static_cast<std::int32_t>(row.expected.size()));
    EXPECT_EQ(entries(), row.expected);
    EXPECT_EQ(record->certs == nullptr, row.expected.empty());
    EXPECT_NE(log.find(row.line), std::string::npos) << log;
    EXPECT_EQ(record->status_flags, 0U);
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
}

TEST_F(Certificates, MoreThanFifteenSetTheStatusBit) {
  for (std::uint8_t i = 1; i <= 15; ++i) module.signers.push_back({INV_CERT_EMBEDDED, {i}});
  module.signers.push_back({INV_CERT_CATALOG, {7}});
  EXPECT_EQ(gather(), QERR_OK);
  EXPECT_EQ(record->cert_count, 15);
  EXPECT_EQ(record->status_flags, 0U);

  module.signers.push_back({INV_CERT_EMBEDDED, {16}});
  EXPECT_EQ(gather(), QERR_OK);
  EXPECT_EQ(record->cert_count, 16);
  EXPECT_EQ(record->status_flags, INV_STATUS_MANY_CERTS);
  // The line tells the count with repeats.
  EXPECT_NE(
      log.find("  SYSTEM: inv_get_certificates_info_alloc(): File a.exe has 17 certificates. Maximum limit 15. No "
               "kernel syncing of the certificates."),
      std::string::npos)
      << log;
}

TEST_F(Certificates, HashThatFailsLeavesTheRestOfItsEntryZero) {
  module.signers = {{INV_CERT_EMBEDDED, {1, true, false}}, {INV_CERT_CATALOG, {2, false, true}}};
  record->is_signed = 1;
  ASSERT_EQ(gather(), QERR_OK);
  EXPECT_EQ(module.asked_embedded, 1U);
  // Without a certificate hash the two cannot be told apart, so they count as one.
  ASSERT_EQ(entries(), (Entries{{3, 0}}));
  EXPECT_EQ(record->certs[0].public_key.type, 0);
  EXPECT_EQ(record->certs[0].certificate.type, 0);
}

TEST_F(Certificates, FailuresKeepTheirCodesAndReleaseTheList) {
  module.signers = {{INV_CERT_EMBEDDED, {1}}, {INV_CERT_EMBEDDED, {2}}};
  const struct {
    const char* what;
    qerr_t code;
    std::int32_t count_off;
    qerr_t expected;
    const char* line;
  } rows[] = {
      {"the lookup fails", QERR_INVALID, 0, QERR_INVALID,
       "Failed to extract certificates from file a.exe, error = 22."},
      {"a count of -1", QERR_OK, -3, QERR_ALL_BITS, "Failed to extract certificates from file a.exe, error = 0."},
      {"a count too high", QERR_OK, 1, QERR_ALL_BITS,
       "Mismatch in number of certificates extracted for file a.exe. num_certs = 3 and idx = 2."},
      {"a count too low", QERR_OK, -1, QERR_ALL_BITS, "num_certs = 1 and idx = 2."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    module.code = row.code;
    module.count_off = row.count_off;
    EXPECT_EQ(gather(), row.expected);
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
    EXPECT_EQ(record->certs, nullptr);
    EXPECT_NE(log.find(row.line), std::string::npos) << log;
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  EXPECT_EQ(inv_get_certificates_info_alloc(nullptr, record.get()), QERR_INVALID);
  EXPECT_EQ(inv_get_certificates_info_alloc(u"a.exe", nullptr), QERR_INVALID);
}

TEST_F(Certificates, WithoutModuleEveryLookupSaysSo) {
  cert_sign_init(nullptr);
  EXPECT_EQ(gather(), QERR_ALL_BITS);
  EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
  EXPECT_NE(log.find("  ERROR: cert_sign_get_signed_file_cert_context():  Cert: Cert module is not initialized.\n"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("Failed to extract certificates from file a.exe, error = -1."), std::string::npos) << log;
  qcksum hash{};
  const cert_context certificate{1};
  EXPECT_EQ(cert_utl_get_cert_hash(&certificate, &hash), QERR_ALL_BITS);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(&certificate, &hash), QERR_ALL_BITS);
}

}  // namespace
