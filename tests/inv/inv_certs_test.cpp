#include <gmock/gmock.h>

#include <vector>

#include "cert/cert_sign.h"
#include "inv/inv_cfci.h"
#include "record/new_record.h"
#include "support/replaced.h"

// The module below tells a certificate by its place in a row.
struct cert_context {};

namespace {

using Entries = std::vector<std::pair<int, int>>;  // kind and number

// Answers with the signers it was given, the first at the list's head. Hashing number 0 fails, and the key of 55.
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
      nodes_[i] = {i + 1 < nodes_.size() ? &nodes_[i + 1] : nullptr, static_cast<std::uint16_t>(kind), &known[number]};
    }
    list = {nodes_.data(), static_cast<std::int32_t>(nodes_.size()) + count_off};
    return code;
  }
  void release(cert_sign_list& list) noexcept override {
    ++released;
    list = {};
  }
  qerr_t public_key_hash(const cert_context* one, qcksum& hash) noexcept override {
    return fill(hash, one == &known[55] ? 0 : one - known + 100);
  }
  qerr_t certificate_hash(const cert_context* one, qcksum& hash) noexcept override { return fill(hash, one - known); }

 private:
  static qerr_t fill(qcksum& hash, std::ptrdiff_t number) noexcept {
    if (number == 0) return QERR_INVALID;
    hash = {QCKSUM_SHA1, QCKSUM_SHA1_BIN_LEN, {static_cast<std::uint8_t>(number)}};
    return QERR_OK;
  }
  static constexpr cert_context known[100] = {};
  std::vector<cert_sign_node> nodes_;
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
  Entries fifteen;
  for (int i = 1; i <= 15; ++i) fifteen.emplace_back(1, i);
  Entries sixteen = fifteen;
  sixteen.emplace_back(1, 16);
  Entries with_repeat = sixteen;
  with_repeat.emplace_back(1, 7);
  const std::tuple<Entries, Entries, const char*> rows[] = {
      // kinds: 1 embedded, 2 catalogue, 3 both
      {{}, {}, "No certificate extracted from file a.exe."},
      {{{1, 1}}, {{1, 1}}, "File: a.exe has 1 unique certificates."},
      {{{1, 1}, {1, 1}, {1, 1}}, {{1, 1}}, "Number of total certs: 3 and duplicate certs: 2."},
      {{{2, 1}, {1, 1}}, {{3, 1}}, "Number of total certs: 2 and duplicate certs: 1."},
      {{{2, 2}, {1, 1}, {1, 2}, {2, 3}, {1, 1}}, {{3, 2}, {1, 1}, {2, 3}}, "total certs: 5 and dupl"},
      // A hash that fails leaves the rest of its entry zero; two such cannot be told apart, so they count as one.
      {{{1, 55}, {2, 0}}, {{3, 0}}, "total certs: 2 and duplicate certs: 1."},
      {fifteen, fifteen, "File: a.exe has 15 unique certificates."},
      // The line tells the count with repeats.
      {with_repeat, sixteen,
       "File a.exe has 17 certificates. Maximum limit 15. No kernel syncing of the certificates."},
  };
  for (const auto& [signers, expected, line] : rows) {
    record->is_signed = static_cast<std::uint32_t>(expected.size());
    record->status_flags = 1;
    EXPECT_EQ(gather(signers), QERR_OK);
    EXPECT_EQ(module.asked_embedded, record->is_signed);
    EXPECT_EQ(entries(), expected);
    EXPECT_THAT(log, ::testing::HasSubstr(line));
    EXPECT_EQ(record->status_flags, expected.size() > 15 ? 1 | INV_STATUS_MANY_CERTS : 1U) << line;
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  EXPECT_EQ(record->certs[0].public_key.value[0], 101);
}

TEST_F(Certificates, FailuresKeepTheirCodesAndReleaseTheList) {
  const std::tuple<qerr_t, std::int32_t, qerr_t, const char*> rows[] = {
      {QERR_INVALID, 0, QERR_INVALID, "Failed to extract certificates from file a.exe, error = 22."},
      {QERR_OK, -3, QERR_ALL_BITS, "Failed to extract certificates from file a.exe, error = 0."},
      {QERR_OK, 1, QERR_ALL_BITS, "number of certificates extracted for file a.exe. num_certs = 3 and idx = 2."},
      {QERR_OK, -1, QERR_ALL_BITS, "num_certs = 1 and idx = 2."},
  };
  for (const auto& [code, count_off, expected, line] : rows) {
    module.code = code;
    module.count_off = count_off;
    EXPECT_EQ(gather({{1, 1}, {1, 2}}), expected);
    EXPECT_EQ(record->cert_count, INV_CERTS_NOT_GATHERED);
    EXPECT_EQ(record->certs, nullptr);
    EXPECT_THAT(log, ::testing::HasSubstr(line));
  }
  EXPECT_EQ(module.released, static_cast<int>(std::size(rows)));
  record->cert_count = 2;
  EXPECT_EQ(inv_get_certificates_info_deduped(record.get()), QERR_OK) << "of entries that are not there";
  record->cert_count = INV_CERTS_NOT_GATHERED;
  cert_sign_init(nullptr);
  EXPECT_EQ(gather(), QERR_ALL_BITS);
  cert_sign_list list;
  EXPECT_EQ(cert_sign_get_signed_file_cert_context(u"x", 1, &list), QERR_ALL_BITS);
  EXPECT_THAT(log, ::testing::HasSubstr(" Cert: Cert module is not initialized.\n"));
  qcksum hash{};
  const cert_context certificate{};
  EXPECT_EQ(cert_utl_get_cert_hash(&certificate, &hash), QERR_ALL_BITS);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(&certificate, &hash), QERR_ALL_BITS);
}

TEST_F(Certificates, MissingArgumentIsReportedByPosition) {
  const std::uint32_t word = 0;
  const auto* certificate = reinterpret_cast<const cert_context*>(&word);
  EXPECT_EQ(cert_sign_get_signed_file_cert_context(nullptr, 1, nullptr), QERR_ARG1);
  EXPECT_EQ(cert_sign_get_signed_file_cert_context(u"x", 1, nullptr), QERR_ARG3);
  EXPECT_EQ(cert_utl_get_cert_hash(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(cert_utl_get_cert_hash(certificate, nullptr), QERR_ARG2);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(nullptr, nullptr), QERR_ARG1);
  EXPECT_EQ(cert_utl_get_cert_pub_key_hash(certificate, nullptr), QERR_ARG2);
  EXPECT_EQ(inv_get_cfci_alloc(nullptr, nullptr, nullptr, 0), QERR_ARG1);
  EXPECT_EQ(inv_get_cfci_alloc(u"x", nullptr, nullptr, 0), QERR_ARG2);
}

}  // namespace
