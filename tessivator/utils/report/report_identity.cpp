#include "utils/report/report_identity.h"

#include <algorithm>
#include <initializer_list>

#include "utils/report/report_path_set.h"
#include "utils/report/report_text.h"

namespace {

constexpr std::string_view subscriber_root = "1.3.6.1.4.1.311.97.";

// Parts are told apart by their lengths, so that no text can imitate the border of two.
std::string keyOf(std::initializer_list<std::string_view> parts) {
  std::string whole;
  for (const std::string_view part : parts) whole.append(std::to_string(part.size())).append(":").append(part);
  const TextDigest digest = digestOfText(whole);
  return bytesToHex({reinterpret_cast<const std::uint8_t*>(digest.data()), sizeof(digest)});
}

}  // namespace

bool isSubscriberUsage(std::string_view usage) noexcept {
  if (!usage.starts_with(subscriber_root)) return false;
  usage.remove_prefix(subscriber_root.size());
  return std::count(usage.begin(), usage.end(), '.') == 3 && !usage.ends_with('.');
}

SignerIdentity identityOf(const SignerParticulars& signer, const std::string& holder) {
  const std::string& name = signer.organisation.empty() ? signer.commonName : signer.organisation;
  std::string about = signer.country;
  const auto add = [&about](const std::string& text) {
    if (!text.empty() && !about.empty()) about += ", ";
    about += text;
  };
  SignerIdentity identity;
  if (!signer.subscriber.empty()) {
    identity.key = keyOf({"subscriber", signer.subscriber});
    add("subscriber \u2026" + signer.subscriber.substr(signer.subscriber.rfind('.') + 1));
  } else if (signer.isSelfIssued) {
    identity.key = keyOf({"key", signer.keyDigest});
    add("self-issued, key " + signer.keyDigest.substr(0, 12));
  } else {
    identity.key = keyOf({"name", name.empty() ? holder : name, signer.country, signer.registration});
    add(signer.registration);
  }
  identity.label = name.empty() ? holder : name;
  if (!about.empty()) identity.label += " (" + about + ')';
  return identity;
}
