#include <windows.h>

#include "bridge/dynamic_library.h"

void* dynamic_library_open(const std::filesystem::path& path) { return LoadLibraryW(path.c_str()); }
void* dynamic_library_find(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
void dynamic_library_close(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }
