#include <algorithm>
#include <deque>
#include <vector>

#include "cert/cert_sign.h"
#include "inv/record_text.h"
#include "support/replaced.h"

// What the module below knows of a certificate; hashing number 0 fails.
struct cert_context {
  std::uint8_t certificate, key;
};

namespace {

using Entries = std::vector<std::pair<int, int>>;  // kind and number

// Answers with the signers it was given, the first at the list's head.
class GivenSigners final : public cert_sign_module, replaced<cert_sign_init> {
 public:
  GivenSigners() : replaced(this) {}
  Entries signers;
  qerr_t code = QERR_OK;
  std::int32_t count_off = 0;  // what the count lies by
  std::uint32_t asked_embedded = 99;
  int released = 0;

  qerr_t find_signers(const qchar* /*path*/, std::uint32_t embedded, cert_sign_list& list) noexcept override {
    asked_embedded = embedded;
    nodes_.clear();
    certificates_.clear();
    for (const auto& [kind, number] : signers) {
      certificates_.push_back({static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number + 100)});
      nodes_.push_back({nullptr, static_cast<std::uint16_t>(kind), &certificates_.back()});
      if (nodes_.size() > 1) nodes_[nodes_.size() - 2].next = &nodes_.back();
    }
    list.head = nodes_.empty() ? nullptr : &nodes_.front();
    list.count = static_cast<std::int32_t>(nodes_.size()) + count_off;
    return code;
  }
  void release(cert_sign_list& list) noexcept override {
    ++released;
    list = {};
  }
  qerr_t public_key_hash(const cert_context* one, qcksum& hash) noexcept override {
    return fill(hash, one->key == 155 ? 0 : one->key);
  }
  qerr_t certificate_hash(const cert_context* one, qcksum& hash) noexcept override {
    return fill(hash, one->certificate);
  }

 private:
  static qerr_t fill(qcksum& hash, std::uint8_t number) noexcept {
    if (number == 0) return QERR_INVALID;
    hash = {QCKSUM_SHA1, QCKSUM_SHA1_BIN_LEN, {number}};
    return QERR_OK;
  }
  std::deque<cert_sign_node> nodes_;
  std::deque<cert_context> certificates_;
};

class Certificates : public Runtime {
 protected:
  // Gathers with the given signers; what was logged is in `log`.
  qerr_t gather(Entries signers = {}) {
    module.signers = std::move(signers);
    qerr_t code = 0;
    log = logged(QLOG_INV, [&] { code = inv_get_certificates_info_alloc(u"a.exe", record.get()); });
    return code;
  }
  [[nodiscard]] Entries entries() const {
    Entries out;
    for (std::int32_t i = 0; i < record->cert_count; ++i) {
      out.emplace_back(record->certs[i].kind, record->certs[i].certificate.value[0]);
    }
    return out;
  }
  GivenSigners module;
  InvCfciOwner record = new_record();
  std::string log;
};

TEST_F(Certificates, AreGatheredWithoutRepeats) {
  const struct {
    const char* what;
    Entries signers, expected;  // kinds: 1 embedded, 2 catalogue, 3 both
    const char* line;
  } rows[] = {
      {"none", {}, {}, "No certificate extracted from file a.exe."},
      {"one", {{1, 1}}, {{1, 1}}, "File: a.exe has 1 unique certificates."},
      {"alike", {{1, 1}, {1, 1}, {1, 1}}, {{1, 1}}, "Number of total certs: 3 and duplicate certs: 2."},
      {"found both ways", {{2, 1}, {1, 1}}, {{3, 1}}, "Number of total certs: 2 and duplicate certs: 1."},
      {"order and kinds",
       {{2, 2}, {1, 1}, {1, 2}, {2, 3}, {1, 1}},
       {{3, 2}, {1, 1}, {2, 3}},
       "total certs: 5 and dupl"},
      {"distinct", {{1, 1}, {2, 2}}, {{1, 1}, {2, 2}}, "Number of total certs: 2 and duplicate certs: 0."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(gather(row.signers), QERR_OK);
    EXPECT_EQ(record->cert_count, static_cast<std::int32_t>(row.expected.size()));
    EXPECT_EQ(entries(), row.expected);
    EXPECT_EQ(record->certs == nullptr, row.expected.empty());
    EXPECT_NE(log.find(row.line), std::string::npos) << log;
    EXPECT_EQ(record->status_flags, 0U);
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  EXPECT_EQ(gather({{1, 1}}), QERR_OK);
  EXPECT_EQ(record->certs[0].public_key.value[0], 101);
}

TEST_F(Certificates, MoreThanFifteenSetTheStatusBit) {
  Entries signers;
  for (int i = 1; i <= 15; ++i) signers.emplace_back(1, i);
  signers.emplace_back(2, 7);
  EXPECT_EQ(gather(signers), QERR_OK);
  EXPECT_EQ(record->cert_count, 15);
  EXPECT_EQ(record->status_flags, 0U);
  signers.emplace_back(1, 16);
  EXPECT_EQ(gather(signers), QERR_OK);
  EXPECT_EQ(record->cert_count, 16);
  EXPECT_EQ(record->status_flags, INV_STATUS_MANY_CERTS);
  // The line tells the count with repeats.
  EXPECT_NE(log.find("File a.exe has 17 certificates. Maximum limit 15. No kernel syncing of the certificates."),
            std::string::npos)
      << log;
}

TEST_F(Certificates, HashThatFailsLeavesTheRestOfItsEntryZero) {
  record->is_signed = 1;
  ASSERT_EQ(gather({{1, 55}, {2, 0}}), QERR_OK);  // no key hash; no certificate hash
  EXPECT_EQ(module.asked_embedded, 1U);
  // Without a certificate hash the two cannot be told apart, so they count as one.
  ASSERT_EQ(entries(), (Entries{{3, 0}}));
  EXPECT_EQ(record->certs[0].public_key.type, 0);
  EXPECT_EQ(record->certs[0].certificate.type, 0);
}

TEST_F(Certificates, FailuresKeepTheirCodesAndReleaseTheList) {
  const struct {
    qerr_t code;
    std::int32_t count_off;
    qerr_t expected;
    const char* line;
  } rows[] = {
      {QERR_INVALID, 0, QERR_INVALID, "Failed to extract certificates from file a.exe, error = 22."},
      {QERR_OK, -3, QERR_ALL_BITS, "Failed to extract certificates from file a.exe, error = 0."},
      {QERR_OK, 1, QERR_ALL_BITS,
       "Mismatch in number of certificates extracted for file a.exe. num_certs = 3 and idx = 2."},
      {QERR_OK, -1, QERR_ALL_BITS, "num_certs = 1 and idx = 2."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    module.code = row.code;
    module.count_off = row.count_off;
    EXPECT_EQ(gather({{1, 1}, {1, 2}}), row.expected);
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
    EXPECT_EQ(record->certs, nullptr);
    EXPECT_NE(log.find(row.line), std::string::npos) << log;
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  record->cert_count = 2;
  log = logged(QLOG_INV, [&] { EXPECT_EQ(inv_get_certificates_info_deduped(record.get()), QERR_OK); });
  EXPECT_EQ(log, "Assertion failed: record->certs != nullptr\n");
  record->cert_count = INV_CERTS_NOT_GATHERED;
  EXPECT_EQ(inv_get_certificates_info_alloc(nullptr, record.get()), QERR_INVALID);
  EXPECT_EQ(inv_get_certificates_info_alloc(u"a.exe", nullptr), QERR_INVALID);
}

TEST_F(Certificates, WithoutModuleEveryLookupSaysSo) {
  cert_sign_init(nullptr);
  EXPECT_EQ(gather(), QERR_ALL_BITS);
  EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
  EXPECT_NE(log.find(" Cert: Cert module is not initialized.\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Failed to extract certificates from file a.exe, error = -1."), std::string::npos) << log;
  qcksum hash{};
  const cert_context certificate{1, 1};
  EXPECT_EQ(cert_utl_get_cert_hash(&certificate, &hash), QERR_ALL_BITS);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(&certificate, &hash), QERR_ALL_BITS);
}

}  // namespace
