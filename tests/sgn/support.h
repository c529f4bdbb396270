// What the signature tests share: places, names, the tables' certificate files, and a writer of DER structures.
#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "sgn/sgn_ossl.h"
#include "sgn/sgn_pkcs7.h"
#include "sgn/sgn_x509.h"
#include "support/fixture_table.h"
#include "support/scratch.h"

namespace fs = std::filesystem;
using ::testing::HasSubstr;

using Names = std::vector<std::string>;

// Takes the list over and frees it.
inline Names take_names(sgn_cert_name* list) {
  Names names;
  for (const sgn_cert_name* node = list; node != nullptr; node = node->next) names.push_back(qstr_to_utf8(node->name));
  sgn_cert_names_free(list);
  return names;
}

// Every name has its file in `folder`, byte for byte as openssl writes the certificate.
inline void expect_certificate_files(const fs::path& folder, const Names& names) {
  for (const std::string& name : names) {
    const std::string expected = file_text(fixture_path("expected/certificates/" + name + ".cer"));
    EXPECT_FALSE(expected.empty()) << name;
    EXPECT_EQ(file_text(folder / (name + ".cer")), expected) << name;
  }
}

struct Outcome {
  qerr_t code = 0;
  Names names;
};

inline qerr_t decode(std::string_view bytes, SgnP7Owner& out, sgn_store_cache* cache = nullptr) {
  sgn_p7* p7 = nullptr;
  const qerr_t code = sgn_decrypt_certificate_ex(reinterpret_cast<const std::byte*>(bytes.data()),
                                                 static_cast<std::uint32_t>(bytes.size()), &p7, cache);
  out.reset(p7);
  return code;
}

inline Outcome process(sgn_p7* p7, const fs::path& folder, std::uint32_t all, sgn_store_cache* cache = nullptr) {
  sgn_cert_name* list = nullptr;
  const qerr_t code = sgn_process_p7_and_store_cert_ex(p7, folder.u16string().c_str(), &list, 0, all, cache);
  return {code, take_names(list)};
}

// Decodes and processes; the code is that of the first step that fails.
inline Outcome extract_bytes(std::string_view bytes, const fs::path& folder, std::uint32_t all,
                             sgn_store_cache* cache = nullptr) {
  SgnP7Owner p7;
  const qerr_t code = decode(bytes, p7, cache);
  return code != 0 ? Outcome{code, {}} : process(p7.get(), folder, all, cache);
}

// DER: one element, and the structures that the tests put together by hand.
namespace der {

inline std::string element(int tag, std::string_view content) {
  unsigned char header[8] = {};
  unsigned char* end = header;
  ASN1_put_object(&end, tag & 0x20, static_cast<int>(content.size()), tag & 0x1F, tag & 0xC0);
  return std::string(header, end).append(content);
}

// A non-negative INTEGER in its shortest form.
inline std::string number(std::uint32_t value) {
  std::string bytes;
  for (; value != 0 || bytes.empty() || (bytes.front() & 0x80) != 0; value >>= 8) {
    bytes.insert(bytes.begin(), static_cast<char>(value & 0xFF));
  }
  return element(0x02, bytes);
}

inline const std::string algorithm = element(0x30, element(0x06, "\x2a\x03"));

inline std::string common_name(std::string_view text) {
  return element(0x30, element(0x31, element(0x30, element(0x06, "\x55\x04\x03") + element(0x0c, text))));
}

inline std::string signer(std::uint32_t serial, std::string_view issuer, std::string_view digest = "x") {
  const std::string identity = element(0x30, common_name(issuer) + number(serial));
  return element(0x30, number(1) + identity + algorithm + algorithm + element(0x04, digest));
}

// A small certificate of no use but to be listed.
inline std::string certificate(std::uint32_t serial, std::string_view issuer, std::string_view extensions = "") {
  const std::string time = element(0x17, "250101000000Z");
  const std::string key = element(0x30, algorithm + element(0x03, std::string_view("\0k", 2)));
  const std::string body = number(serial) + algorithm + common_name(issuer) + element(0x30, time + time);
  return element(0x30, element(0x30, body + common_name("subject") + key + std::string(extensions)) + algorithm +
                           element(0x03, std::string_view("\0s", 2)));
}

inline std::string signed_data(std::string_view certificates, std::string_view signers,
                               std::string_view algorithms = element(0x31, algorithm)) {
  const std::string pkcs7 = "\x2a\x86\x48\x86\xf7\x0d\x01\x07";  // 1.2.840.113549.1.7; data is 1, signed data 2
  const std::string content = std::string(algorithms) + element(0x30, element(0x06, pkcs7 + "\1"));
  const std::string sets = element(0xa0, certificates) + element(0x31, signers);
  return element(0x30, element(0x06, pkcs7 + "\2") + element(0xa0, element(0x30, number(1) + content + sets)));
}

}  // namespace der
