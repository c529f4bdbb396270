#include <dlfcn.h>
#include <link.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "common/qlib/qmem.h"
#include "common/qlib/qshare_posix_user.h"

namespace {

// The absolute path of the program or library that this code is part of. The search path for libraries is never asked:
// what a password is given to must not depend on it.
bool own_path(std::string& path) {
  Dl_info about{};
  void* extra = nullptr;
  if (::dladdr1(reinterpret_cast<const void*>(&qshare_module), &about, &extra, RTLD_DL_LINKMAP) == 0) return false;
  const auto* const map = static_cast<const link_map*>(extra);
  // The program itself has no name in the loader's list, only what the caller chose to call it.
  const bool is_program = map == nullptr || map->l_name == nullptr || map->l_name[0] == 0;
  const char* const name = is_program ? "/proc/self/exe" : map->l_name;
  if (name[0] != '/') return false;  // loaded by a relative path, and the current directory may be another now
  const std::unique_ptr<char, FreeWith<std::free>> resolved(::realpath(name, nullptr));
  if (!resolved) return false;
  path = resolved.get();
  return true;
}

using get_functions = const smb_functions*(std::uint32_t) noexcept;

const smb_functions* load() {
  std::string path;
  if (!own_path(path)) return nullptr;
  path.resize(path.rfind('/') + 1);
  path += SMB_MODULE_FILE;
  // Once loaded it stays: libsmbclient's libraries leave threads' data and handlers behind.
  void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) return nullptr;
  auto* const get = reinterpret_cast<get_functions*>(::dlsym(module, SMB_MODULE_SYMBOL));
  return get != nullptr ? get(SMB_MODULE_VERSION) : nullptr;
}

}  // namespace

const smb_functions* qshare_module() noexcept try {
  static std::mutex lock;
  static const smb_functions* loaded = nullptr;  // a failure is tried again
  const std::lock_guard guard(lock);
  if (loaded == nullptr) loaded = load();
  return loaded;
} catch (...) {
  return nullptr;
}
