// Linux file names and command line arguments: bytes that are meant to be UTF-8 but need not be. Each byte that does
// not decode travels as the lone low surrogate U+DC00 + byte and turns back into the same byte.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// Any byte string survives the way to wide text and back unchanged. May throw std::bad_alloc.
[[nodiscard]] std::u16string qstr_name_from_bytes(std::string_view bytes);

// The bytes of `name`. Lone U+DC80..U+DCFF become the byte they stand for; with any other unpaired surrogate no file
// can have this name: false, and `bytes` is unchanged. May throw std::bad_alloc.
[[nodiscard]] bool qstr_name_to_bytes(std::u16string_view name, std::string& bytes);

// What `run` returns for the arguments of a process as wide text; pointers and texts end with the call. May throw
// std::bad_alloc, and what `run` throws.
[[nodiscard]] int qstr_name_run(int argc, char** argv, int (*run)(const qchar* const* argv, int argc));
