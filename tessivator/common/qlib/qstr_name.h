// Linux file names and command line arguments: bytes that should be UTF-8 but need not be. A byte that does not decode
// becomes the lone low surrogate U+DC00 + byte, and back.
#pragma once

#include <string>
#include <string_view>

#include "common/qlib/qtypes.h"

// Every byte string survives the conversion to wide text and back. May throw std::bad_alloc.
[[nodiscard]] std::u16string qstr_name_from_bytes(std::string_view bytes);

// The bytes of `name`. Lone U+DC80..U+DCFF become the byte they stand for. With any other unpaired surrogate no file
// can have this name: returns false and does not change `bytes`. May throw std::bad_alloc.
[[nodiscard]] bool qstr_name_to_bytes(std::u16string_view name, std::string& bytes);

// Calls `run` with the arguments of a process as wide text, valid during the call, and returns its result. May throw
// std::bad_alloc, and what `run` throws.
[[nodiscard]] int qstr_name_run(int argc, char** argv, int (*run)(const qchar* const* argv, int argc));
