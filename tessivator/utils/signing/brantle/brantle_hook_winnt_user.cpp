// The process hook on Windows.
#include <openssl/crypto.h>
#include <windows.h>

#include "utils/signing/brantle/brantle_hook.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      // The C library would call its handler at process exit, when this library may be gone.
      if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) != 1) return FALSE;
      return brantle_hook_attach() ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
      // With `reserved` set the process is ending: its other threads were stopped anywhere, perhaps holding our locks,
      // and the system frees everything anyway.
      if (reserved == nullptr) {
        brantle_hook_detach();
        OPENSSL_cleanup();
      }
      return TRUE;
    default:
      return TRUE;
  }
}
