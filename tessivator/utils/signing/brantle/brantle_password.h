// A password that stands in a file, so that it need not stand in a command line.
#pragma once

#include <span>
#include <string>

#include "common/qlib/qtypes.h"

// The file's first line, which is UTF-8, without its line end and without a byte order mark before it. The file may be
// a pipe. False when it cannot be read, or the line is longer than 16,383 bytes; `password` is then unchanged. May
// throw std::bad_alloc.
[[nodiscard]] bool brantle_password_read(const std::u16string& path, std::u16string& password);

// The system's part of it: reads until a line feed has come, the file ends or `buffer` is full. Bytes read; -1 when the
// file cannot be opened or read. May throw std::bad_alloc.
[[nodiscard]] std::ptrdiff_t brantle_password_fetch(const std::u16string& path, std::span<char> buffer);
