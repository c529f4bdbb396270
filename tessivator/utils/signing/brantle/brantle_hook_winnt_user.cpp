// The process hook of a Windows library.
#include <openssl/crypto.h>
#include <windows.h>

#include "utils/signing/brantle/brantle_hook.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      // The C library would call its handler at the end of the process, when this library may be long gone.
      if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) != 1) return FALSE;
      return brantle_hook_attach() ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
      // With `reserved` set the process ends: its other threads were stopped where they stood, perhaps holding the
      // runtime's locks, and the system takes everything back anyway.
      if (reserved == nullptr) {
        brantle_hook_detach();
        OPENSSL_cleanup();
      }
      return TRUE;
    default:
      return TRUE;
  }
}
