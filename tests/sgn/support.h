// What the signature tests share: places, names, the tables' certificate files, and a writer of DER structures.
#pragma once

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

using Names = std::vector<std::string>;

// Takes the list over and frees it.
inline Names take_names(sgn_cert_name* list) {
  Names names;
  for (const sgn_cert_name* node = list; node != nullptr; node = node->next) names.push_back(qstr_to_utf8(node->name));
  sgn_cert_names_free(list);
  return names;
}

// A list of stems as a table writes it.
inline Names list_of(const std::string& cell) { return cell.empty() ? Names() : fixture_cells(cell, ','); }

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

inline Outcome extract_file(const fs::path& path, const fs::path& folder, std::uint32_t all,
                            sgn_store_cache* cache = nullptr) {
  sgn_cert_name* list = nullptr;
  const qerr_t code = sgn_x509_get_certnames_and_store_certs_ex(path.u16string().c_str(), folder.u16string().c_str(),
                                                                &list, 0, all, cache);
  return {code, take_names(list)};
}

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

inline std::string element(std::string_view tag, std::string_view content) {
  std::string length;
  std::size_t rest = content.size();
  if (rest < 128) {
    length = static_cast<char>(rest);
  } else {
    for (; rest != 0; rest >>= 8) length.insert(length.begin(), static_cast<char>(rest & 0xFF));
    length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
  }
  return std::string(tag) + length + std::string(content);
}

inline std::string element(unsigned tag, std::string_view content) {
  return element(std::string(1, static_cast<char>(tag)), content);
}

// A non-negative INTEGER in its shortest form.
inline std::string number(std::uint32_t value) {
  std::string bytes(1, '\0');
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>((value >> shift) & 0xFF);
  std::size_t start = 0;
  while (start + 1 < bytes.size() && bytes[start] == 0 && static_cast<unsigned char>(bytes[start + 1]) < 0x80) ++start;
  return element(0x02, std::string_view(bytes).substr(start));
}

inline std::string oid(std::string_view content) { return element(0x06, content); }

// 1.2.840.113549.1.7.N
inline std::string content_type(char last) { return oid(std::string("\x2a\x86\x48\x86\xf7\x0d\x01\x07") + last); }

inline const std::string algorithm = element(0x30, oid("\x2a\x03"));

inline std::string common_name(std::string_view text) {
  return element(0x30, element(0x31, element(0x30, oid("\x55\x04\x03") + element(0x0c, text))));
}

inline std::string signer(std::string_view issuer, std::string_view serial, std::string_view digest = "x") {
  return element(0x30, number(1) + element(0x30, std::string(issuer) + std::string(serial)) + algorithm + algorithm +
                           element(0x04, digest));
}

// `sets`: certificates and signers with their headers.
inline std::string signed_data_of(std::string_view sets, std::string_view algorithms = element(0x31, algorithm)) {
  const std::string content = number(1) + std::string(algorithms) + element(0x30, content_type(1)) + std::string(sets);
  return element(0x30, content_type(2) + element(0xa0, element(0x30, content)));
}

inline std::string signed_data(std::string_view certificates, std::string_view signers) {
  return signed_data_of((certificates.empty() ? "" : element(0xa0, certificates)) + element(0x31, signers));
}

// A small certificate of no use but to be listed.
inline std::string certificate(std::uint32_t serial, std::string_view issuer) {
  const std::string time = element(0x17, "250101000000Z");
  const std::string key = element(0x30, algorithm + element(0x03, std::string_view("\0k", 2)));
  const std::string body =
      number(serial) + algorithm + std::string(issuer) + element(0x30, time + time) + common_name("subject") + key;
  return element(0x30, element(0x30, body) + algorithm + element(0x03, std::string_view("\0s", 2)));
}

}  // namespace der
