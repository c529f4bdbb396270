// What signatures and certificates say about themselves, against independent readers.
#include "sgn/sgn_facts.h"

#include <openssl/pem.h>

#include "blib/blib_bin.h"
#include "msi/msi_package.h"
#include "sgn/sgn_catalogue.h"
#include "sgn/sgn_cert_facts.h"
#include "sgn/sgn_signatures.h"
#include "sgn/support.h"
#include "support/memory_file.h"

namespace {

using SgnFacts = Runtime;

std::string joined(const std::vector<std::string>& texts, std::string_view between) {
  std::string out;
  for (const std::string& text : texts) out.append(out.empty() ? "" : between).append(text);
  return out;
}

std::string brief(const std::string& digest) { return digest.substr(0, 16); }

std::string text_of(const sgn_digest& digest) { return digest.algorithm + ":" + digest.value; }

std::string text_of(const sgn_signer_facts& signer) {
  const std::string found = signer.certificate.empty() ? "" : brief(signer.certificate) + "|";
  return found + signer.issuer + "|" + signer.serial + "|" + signer.digest_algorithm + "|" + signer.key_algorithm +
         "|" + signer.program_name + "|" + signer.program_url;
}

std::string text_of(const sgn_stamp_facts& stamp) {
  std::vector<std::string> own;
  for (const sgn_certificate_place& one : stamp.certificates) own.push_back(brief(one.sha256));
  const bool is_token = stamp.kind == sgn_stamp_kind::rfc3161;
  return (is_token ? "rfc3161 " : "countersignature ") + stamp.time + " " + text_of(stamp.signer) +
         (is_token ? " (" + joined(own, " ") + ")" : "");
}

// As the table has it.
std::string text_of(const sgn_facts& facts) {
  std::vector<std::string> parts{facts.content_type, facts.digest_algorithm, text_of(facts.signed_digest)};
  for (const auto& signer : facts.signers) parts.push_back("signer " + text_of(signer));
  for (const auto& certificate : facts.certificates) parts.push_back("certificate " + brief(certificate.sha256));
  for (const auto& stamp : facts.stamps) parts.push_back("stamp " + text_of(stamp));
  sgn_catalogue catalogue(facts.list);
  const std::uint64_t members = catalogue.count();
  std::uint64_t seen = 0;
  for (sgn_member_facts one; catalogue.next(one) == QERR_OK; ++seen) parts.push_back("member " + text_of(one.digest));
  EXPECT_EQ(seen, members);
  EXPECT_FALSE(catalogue.is_damaged());
  for (const auto& nested : facts.nested) parts.push_back("nested [" + text_of(nested) + "]");
  return joined(parts, "; ");
}

std::string text_of(const sgn_cert_facts& cert) {
  return joined({brief(cert.sha256),
                 brief(cert.sha1),
                 brief(cert.tbs_sha1),
                 brief(cert.tbs_sha256),
                 brief(cert.tbs_sha384),
                 cert.subject,
                 cert.issuer,
                 cert.serial,
                 cert.not_before,
                 cert.not_after,
                 cert.key_algorithm,
                 std::to_string(cert.key_bits),
                 cert.key_curve,
                 joined(cert.extended_usages, " "),
                 cert.ca ? "ca" : "",
                 cert.self_issued ? "self" : "",
                 cert.common_name,
                 cert.organization,
                 cert.country,
                 cert.registration,
                 cert.stem},
                "; ");
}

sgn_cert_facts certificate_facts(const std::string& file) {
  const std::string text = file_text(fixture_path(file));
  const std::unique_ptr<BIO, FreeWith<BIO_free>> in(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  char *name = nullptr, *header = nullptr;
  unsigned char* der = nullptr;
  long size = 0;
  sgn_cert_facts out;
  EXPECT_EQ(PEM_read_bio(in.get(), &name, &header, &der, &size), 1) << file;
  EXPECT_EQ(sgn_cert_facts_read(std::as_bytes(std::span(der, static_cast<std::size_t>(size))), out), QERR_OK);
  for (void* const one : {static_cast<void*>(name), static_cast<void*>(header), static_cast<void*>(der)}) {
    OPENSSL_free(one);
  }
  return out;
}

// What a file is, its signatures' facts and problems, and the stems of their certificates as a scan lists them.
struct Visited {
  sgn_file_kind kind = sgn_file_kind::other;
  Names facts, signers, all;
  std::vector<sgn_problem> problems;

  void take(const sgn_facts& of_one) {
    std::map<std::string, std::string> stems;
    for (const sgn_certificate_place& place : of_one.certificates) {
      sgn_cert_facts certificate;
      EXPECT_EQ(sgn_cert_facts_read(place.der, certificate), QERR_OK);
      all.insert(all.begin(), stems[place.sha256] = certificate.stem);
    }
    for (const sgn_signer_facts& signer : of_one.signers) {
      if (!signer.certificate.empty()) signers.insert(signers.begin(), stems[signer.certificate]);
    }
    facts.push_back(text_of(of_one));
    problems.insert(problems.end(), of_one.problems.begin(), of_one.problems.end());
  }
};

Visited visit(const std::string& file) {
  Visited out;
  blib_file opened;
  std::shared_ptr<msi_package> package;
  const std::u16string path = fixture_wide(file);
  const bool is_image = blib_file_open_image(opened, path.c_str()) == QERR_OK;
  if (!is_image) (void)msi_package_open_file(path.c_str(), opened.file.get(), &package);
  std::vector<sgn_problem> of_file;
  const auto take = [&](const sgn_facts& facts) {
    out.take(facts);
    return QERR_OK;
  };
  const sgn_signed_file given{opened.file.get(), opened.image.get(), package.get()};
  EXPECT_EQ(sgn_visit_signatures(given, out.kind, of_file, take), QERR_OK);
  out.problems.insert(out.problems.end(), of_file.begin(), of_file.end());
  return out;
}

sgn_facts read(std::string_view bytes) {
  sgn_facts facts;
  sgn_facts_budget budget;
  EXPECT_EQ(sgn_facts_read(std::as_bytes(std::span(bytes)), budget, facts), QERR_OK);
  return facts;
}

TEST_F(SgnFacts, AreThoseOfTheTable) {
  for (const fixture_row& row : fixture_table("facts")) {
    const std::string& file = row.at("file");
    SCOPED_TRACE(file);
    if (file.ends_with(".pem")) {
      const sgn_cert_facts facts = certificate_facts(file);
      EXPECT_EQ(text_of(facts), row.at("facts"));
      EXPECT_TRUE(facts.problems.empty());
    } else {
      const Visited found = visit(file);
      EXPECT_EQ(found.facts, Names{row.at("facts")});
      EXPECT_EQ(found.kind, file.ends_with(".exe")                        ? sgn_file_kind::image
                            : file.find("catalogue") != std::string::npos ? sgn_file_kind::catalogue
                                                                          : sgn_file_kind::other);
    }
  }
}

// Whatever the extraction lists of an image, a package, a cabinet or a bare signature, the facts have as well.
TEST_F(SgnFacts, HaveTheCertificatesThatAScanLists) {
  const std::map<std::string, sgn_file_kind> kinds{{"cab", sgn_file_kind::cabinet}, {"msi", sgn_file_kind::package}};
  for (const fixture_row& row : fixture_table("certificates")) {
    const std::string& file = row.at("file");
    SCOPED_TRACE(file);
    const Visited found = visit(file);
    EXPECT_EQ(found.signers, fixture_cells(row.at("signers"), ','));
    EXPECT_EQ(found.all, fixture_cells(row.at("all"), ','));
    const auto kind = kinds.find(file.substr(file.size() - 3));
    EXPECT_EQ(found.kind, kind == kinds.end() ? sgn_file_kind::image : kind->second);
  }
  for (const fixture_row& row : fixture_table("pkcs7")) {
    SCOPED_TRACE(row.at("file"));
    if (row.at("decode") != "0") continue;
    Visited found;
    const std::string bytes = file_text(fixture_path(row.at("file")));
    found.take(read(bytes));
    EXPECT_EQ(found.signers, fixture_cells(row.at("signers"), ','));
    EXPECT_EQ(found.all, fixture_cells(row.at("all"), ','));
  }
}

std::string codes(const std::vector<sgn_problem>& problems) {
  Names out;
  for (const sgn_problem& one : problems) out.push_back(std::string(one.code) + ":" + std::to_string(one.count));
  return joined(out, " ");
}

std::string repeated(const std::string& text, std::size_t count) {
  std::string out;
  while (count-- != 0) out += text;
  return out;
}

// Each bound at its limit and one further; what is within it is still read.
TEST_F(SgnFacts, TellWhatIsDamagedOrLeftOut) {
  const std::string one = der::certificate(1, "x");
  const std::string by = der::signer(1, "x");
  const std::string plain = der::signed_data(one, by);
  const auto with = [&](const std::string& type, const std::string& values) {
    std::string signer = by.substr(2);  // its header has two bytes
    signer += der::element(0xa1, der::element(0x30, der::element(0x06, type) + der::element(0x31, values)));
    return der::signed_data(one, der::element(0x30, signer));
  };
  const std::string nested = "\x2b\x06\x01\x04\x01\x82\x37\x02\x04\x01";
  const std::string token = "\x2b\x06\x01\x04\x01\x82\x37\x03\x03\x01";
  const std::tuple<const char*, std::string, const char*, std::size_t> rows[] = {
      {"no bytes", "", "undecodable:1", 0},
      {"half of it", plain.substr(0, plain.size() / 2), "undecodable:1", 0},
      {"too large", der::signed_data(std::string(std::size_t{16} << 20, '\0'), ""), "signature_too_large:1", 0},
      {"4,096 of each", der::signed_data(repeated(one, 4096), repeated(by, 4096)), "", 4096},
      {"4,097 of each", der::signed_data(repeated(one, 4097), repeated(by, 4097)),
       "certificates_too_many:1 signers_too_many:1", 4096},
      {"what is no certificate", der::signed_data(one + "\x30\x7f", by), "certificates_unreadable:1", 1},
      {"what is no signer", der::signed_data(one, by + der::element(0x30, "\2\1\1")), "signer_unreadable:1", 1},
      {"4 MiB of issuers", der::signed_data(one, repeated(der::signer(1, std::string(8000, 'a')), 525)),
       "texts_too_many:1", 1},
      {"63 inside", with(nested, repeated(plain, 63)), "", 1},
      {"64 inside", with(nested, repeated(plain, 64)), "signatures_too_many:1", 1},
      {"no token", with(token, plain), "stamp_unreadable:1", 1},
  };
  for (const auto& [what, bytes, problems, certificates] : rows) {
    const sgn_facts facts = read(bytes);
    EXPECT_EQ(codes(facts.problems), problems) << what;
    EXPECT_EQ(facts.certificates.size(), certificates) << what;
  }
  EXPECT_EQ(codes(visit("images/signature_damaged.exe").problems), "undecodable:1");
  EXPECT_EQ(codes(visit("images/cert_table/overrun_75.exe").problems), "signatures_unreadable:1");
}

// A file that is a signature is recognised by its beginning, whatever its length.
TEST_F(SgnFacts, OfAFileAreThoseOfItsBeginning) {
  const std::string one = file_text(fixture_path("pkcs7/signed_rsa.der"));
  std::string catalogue = file_text(fixture_path("pkcs7/catalogue_version_1.der"));
  catalogue.replace(0, 2, "\x30\x83\x7f");  // some 8 MiB, of which the file has less
  std::string large = catalogue;
  large.replace(0, 5, "\x30\x84\x01\x00\x00\x01", 6);
  const std::tuple<std::string, sgn_file_kind, std::size_t, const char*> rows[] = {
      {"PKCX" + one, sgn_file_kind::other, 1, ""},
      {one + std::string(std::size_t{20} << 20, 'x'), sgn_file_kind::other, 1, ""},
      {"text" + one, sgn_file_kind::other, 0, ""},
      {catalogue, sgn_file_kind::catalogue, 1, "undecodable:1"},
      {large, sgn_file_kind::catalogue, 1, "signature_too_large:1"},
  };
  for (const auto& [bytes, kind, signatures, problems] : rows) {
    memory_file file(bytes);
    Visited found;
    std::vector<sgn_problem> of_file;
    const auto take = [&](const sgn_facts& facts) {
      found.take(facts);
      return QERR_OK;
    };
    EXPECT_EQ(sgn_visit_signatures({&file, nullptr, nullptr}, found.kind, of_file, take), QERR_OK);
    EXPECT_EQ(found.kind, kind) << bytes.substr(0, 4);
    EXPECT_EQ(found.facts.size(), signatures) << bytes.substr(0, 4);
    EXPECT_EQ(codes(found.problems) + codes(of_file), problems) << bytes.substr(0, 4);
  }
}

// One odd value leaves the others as they are.
TEST_F(SgnFacts, TellEachValueOfAnOddCertificate) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"key_unknown_algorithm", "", "3011 1.3.6.1.4.1.99999.8 0 "},
      {"key_rsa_garbage", "", "3012 rsa 0 "},
      {"key_explicit_697", "", "3010 ec 0 explicit"},
      {"serial_empty", "serial_unreadable:1 certificate_undecodable:1", " rsa 2048 "},
      {"serial_padded", "certificate_undecodable:1", "05 rsa 2048 "},
  };
  for (const auto& [file, problems, values] : rows) {
    const sgn_cert_facts facts = certificate_facts("pki/odd/" + std::string(file) + ".pem");
    EXPECT_EQ(codes(facts.problems), problems) << file;
    EXPECT_EQ(facts.serial + " " + facts.key_algorithm + " " + std::to_string(facts.key_bits) + " " + facts.key_curve,
              values);
    EXPECT_EQ(facts.common_name, "Fixture Odd") << file;
  }
  const std::string extension = der::element(0x30, der::element(0x06, "\x2a\x03") + der::element(0x04, ""));
  for (const auto& [count, problems] : {std::pair(40000U, ""), std::pair(80000U, "certificate_undecodable:1")}) {
    const std::string many = der::element(0xa3, der::element(0x30, repeated(extension, count)));
    const std::string certificate = der::certificate(1, "x", many);
    sgn_cert_facts facts;
    EXPECT_EQ(sgn_cert_facts_read(std::as_bytes(std::span(certificate)), facts), QERR_OK);
    EXPECT_EQ(codes(facts.problems), problems) << "would take too much memory";
  }
}

}  // namespace
