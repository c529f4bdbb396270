// How a function leaves the shared library. The only place outside the platform files that asks for the
// platform.
#pragma once

#ifdef _WIN32
#define BRANTLE_EXPORT extern "C" __declspec(dllexport)
#else
#define BRANTLE_EXPORT extern "C" __attribute__((visibility("default")))
#endif
