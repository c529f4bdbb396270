#include <dlfcn.h>

#include "bridge/dynamic_library.h"

void* dynamic_library_open(const std::filesystem::path& path) { return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }
void* dynamic_library_find(void* library, const char* name) { return dlsym(library, name); }
void dynamic_library_close(void* library) { dlclose(library); }
