// What signatures, certificates and catalogues say about themselves, over arbitrary bytes. Certificates and lists that
// were found are read as well. Every text has the form that its header promises.
#include <string>

#include "common/qlib/qutf8.h"
#include "sgn/sgn_catalogue.h"
#include "sgn/sgn_cert_facts.h"
#include "sgn/sgn_facts.h"
#include "target.h"

namespace {

void check_hex(std::string_view text, std::size_t most) {
  check(text.size() <= most && text.size() % 2 == 0);
  check(text.find_first_not_of("0123456789abcdef") == std::string_view::npos);
}

void check_text(std::string_view text) {
  check(text.size() <= SGN_FACTS_MOST_TEXT);
  while (!text.empty()) {
    const qutf8_step step = qutf8_next(text);
    check(step.valid);
    text.remove_prefix(step.length);
  }
}

// "2020-09-13T12:26:40", perhaps a fraction, "Z".
void check_time(std::string_view text) {
  if (text.empty()) return;
  check(text.size() >= 20 && text[4] == '-' && text[10] == 'T' && text[16] == ':' && text.back() == 'Z');
  check(text.find_first_not_of("0123456789-T:.Z") == std::string_view::npos);
}

void check_signer(const sgn_signer_facts& signer) {
  check(signer.certificate.empty() || signer.certificate.size() == 64);
  for (const std::string* text : {&signer.issuer, &signer.program_name, &signer.program_url}) check_text(*text);
}

void check_certificate(Bytes der) {
  sgn_cert_facts facts;
  check(sgn_cert_facts_read(der, facts) == QERR_OK);
  check_hex(facts.sha256, 64);
  check(facts.stem.empty() || facts.stem.size() == 64);
  check_time(facts.not_before);
  check_time(facts.not_after);
  for (const std::string* text :
       {&facts.subject, &facts.issuer, &facts.common_name, &facts.organization, &facts.country, &facts.registration}) {
    check_text(*text);
  }
}

void check_catalogue(Bytes list) {
  sgn_catalogue catalogue(list);
  const std::uint64_t count = catalogue.count();
  sgn_member_facts member;
  std::uint64_t seen = 0;
  for (; catalogue.next(member) == QERR_OK; ++seen) check_hex(member.digest.value, 128);
  check(seen == count);
}

// How many signatures there are.
std::uint32_t check_facts(const sgn_facts& facts, std::uint32_t depth) {
  check(depth <= SGN_FACTS_MOST_DEPTH);
  check_hex(facts.signed_digest.value, 128);
  for (const auto& signer : facts.signers) check_signer(signer);
  for (const auto& certificate : facts.certificates) check_certificate(certificate.der);
  for (const auto& stamp : facts.stamps) {
    check_signer(stamp.signer);
    check_time(stamp.time);
  }
  check_catalogue(facts.list);
  std::uint32_t count = 1;
  for (const auto& nested : facts.nested) count += check_facts(nested, depth + 1);
  return count;
}

}  // namespace

void fuzz(Bytes input) {
  sgn_facts facts;
  sgn_facts_budget budget;
  check(sgn_facts_read(input, budget, facts) == QERR_OK);
  check(check_facts(facts, 1) <= SGN_FACTS_MOST_SIGNATURES);
  check_certificate(input);
  check_catalogue(input);
}
