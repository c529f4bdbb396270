#include <map>
#include <vector>

#include "cert/cert_sign.h"
#include "inv/record.h"
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
    nodes_.assign(signers.size(), {});
    for (std::size_t i = 0; i < signers.size(); ++i) {
      const auto [kind, number] = signers[i];
      known_[number] = {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number + 100)};
      nodes_[i] = {i + 1 < nodes_.size() ? &nodes_[i + 1] : nullptr, static_cast<std::uint16_t>(kind), &known_[number]};
    }
    list.head = nodes_.data();
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
  std::vector<cert_sign_node> nodes_;
  std::map<int, cert_context> known_;
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
  [[nodiscard]] bool says(const char* line) const { return log.find(line) != std::string::npos; }
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
  Entries fifteen;
  for (int i = 1; i <= 15; ++i) fifteen.emplace_back(1, i);
  Entries sixteen = fifteen;
  sixteen.emplace_back(1, 16);
  Entries with_repeat = sixteen;
  with_repeat.emplace_back(1, 7);
  const struct {
    Entries signers, expected;  // kinds: 1 embedded, 2 catalogue, 3 both
    const char* line;
  } rows[] = {
      {{}, {}, "No certificate extracted from file a.exe."},
      {{{1, 1}}, {{1, 1}}, "File: a.exe has 1 unique certificates."},
      {{{1, 1}, {1, 1}, {1, 1}}, {{1, 1}}, "Number of total certs: 3 and duplicate certs: 2."},
      {{{2, 1}, {1, 1}}, {{3, 1}}, "Number of total certs: 2 and duplicate certs: 1."},
      {{{2, 2}, {1, 1}, {1, 2}, {2, 3}, {1, 1}}, {{3, 2}, {1, 1}, {2, 3}}, "total certs: 5 and dupl"},
      {fifteen, fifteen, "File: a.exe has 15 unique certificates."},
      // The line tells the count with repeats.
      {with_repeat, sixteen,
       "File a.exe has 17 certificates. Maximum limit 15. No kernel syncing of the certificates."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(gather(row.signers), QERR_OK);
    EXPECT_EQ(entries(), row.expected);
    EXPECT_TRUE(says(row.line)) << log;
    EXPECT_EQ(record->status_flags, row.expected.size() > 15 ? INV_STATUS_MANY_CERTS : 0U);
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  EXPECT_EQ(record->certs[0].public_key.value[0], 101);
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
      {QERR_OK, 1, QERR_ALL_BITS, "number of certificates extracted for file a.exe. num_certs = 3 and idx = 2."},
      {QERR_OK, -1, QERR_ALL_BITS, "num_certs = 1 and idx = 2."},
  };
  for (const auto& row : rows) {
    module.code = row.code;
    module.count_off = row.count_off;
    EXPECT_EQ(gather({{1, 1}, {1, 2}}), row.expected);
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
    EXPECT_EQ(record->certs, nullptr);
    EXPECT_TRUE(says(row.line)) << row.line << log;
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  record->cert_count = 2;
  EXPECT_EQ(inv_get_certificates_info_deduped(record.get()), QERR_OK) << "of entries that are not there";
  record->cert_count = INV_CERTS_NOT_GATHERED;
  cert_sign_init(nullptr);
  EXPECT_EQ(gather(), QERR_ALL_BITS);
  EXPECT_TRUE(says(" Cert: Cert module is not initialized.\n")) << log;
  qcksum hash{};
  const cert_context certificate{1, 1};
  EXPECT_EQ(cert_utl_get_cert_hash(&certificate, &hash), QERR_ALL_BITS);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(&certificate, &hash), QERR_ALL_BITS);
}

}  // namespace
