// Opening a shared library and finding its functions, on both platforms.
#pragma once

#include <filesystem>

// Null when the library cannot be opened.
[[nodiscard]] void* dynamic_library_open(const std::filesystem::path& path);
[[nodiscard]] void* dynamic_library_find(void* library, const char* name);
void dynamic_library_close(void* library);
