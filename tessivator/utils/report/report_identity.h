// Who a signer is, across the certificates that are issued to it. Services for signing issue a new certificate every
// few days; what stays is a usage that names the subscriber, or the subject's own particulars. None of this proves
// anything: whoever issues certificates can put any name into them.
#pragma once

#include <string>
#include <string_view>

// What a certificate says of its holder. All texts are UTF-8 and may be empty.
struct SignerParticulars {
  std::string organisation;
  std::string commonName;
  std::string country;
  std::string registration;   // the subject's serialNumber, where companies have their registered number
  std::string subscriber;     // the first extended usage for which isSubscriberUsage holds
  std::string keyDigest;      // of the public key, hexadecimal
  bool isSelfIssued = false;  // subject and issuer are the same name
};

struct SignerIdentity {
  std::string key;    // 32 hexadecimal digits; equal for the same signer
  std::string label;  // for people: "Fixture Works (SE, 556677-8899)"
};

// Whether `usage`, in dotted numbers, is 1.3.6.1.4.1.311.97.a.b.c.d, which a signing service gives to one subscriber;
// shorter ones below 97 are common to many.
[[nodiscard]] bool isSubscriberUsage(std::string_view usage) noexcept;

// By the subscriber's usage if there is one; a self-issued certificate by its key; any other by organisation (or common
// name), country and registration. `holder` is what the label shows when the subject has neither of the names.
[[nodiscard]] SignerIdentity identityOf(const SignerParticulars& signer, const std::string& holder);
