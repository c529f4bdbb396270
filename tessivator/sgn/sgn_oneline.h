// Names of certificates in one line of text. Internal.
//
// The text enters the names of certificate files, so it must never change. It is the one that OpenSSL printed up to its
// 1.0.2 series; later releases escape some characters and know more attribute types, so it is written here.
//
//   for each attribute: "/", the type, "=", the value; nothing for an empty name
//   type   OpenSSL's short name when it had one by then, else the dotted number, cut at 79 characters
//   value  the bytes of the string as OpenSSL holds it; those outside 0x20..0x7E as \x and two digits, 0-9A-F.
//          A GeneralString of whole groups of four bytes whose first three are always zero: the fourth bytes only
#pragma once

#include <openssl/x509.h>

#include <string>

#include "common/qlib/qerr.h"

// Writes the text of `name` to `out`. Returns QERR_INVALID when the text or one of the values exceeds 1 MiB, or a type
// 512 bytes. May throw std::bad_alloc.
[[nodiscard]] qerr_t sgn_oneline(const X509_NAME* name, std::string& out);
