// Marks functions that the shared library exports. The only platform test outside the platform files.
#pragma once

#ifdef _WIN32
#define BRANTLE_EXPORT extern "C" __declspec(dllexport)
#else
#define BRANTLE_EXPORT extern "C" __attribute__((visibility("default")))
#endif
