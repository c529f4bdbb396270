# Warnings, hardening and sanitizers. One interface target passes them to our own targets only.
option(TESSIVATOR_WERROR "Treat warnings as errors (the gate sets it)" OFF)
set(TESSIVATOR_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, empty for none")

add_library(tessivator_flags INTERFACE)
target_compile_features(tessivator_flags INTERFACE cxx_std_20)
target_compile_options(tessivator_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow
  # Log lines name sources relative to the tree; binaries contain no path of the build machine.
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 warns of impossible overlaps in its own inlined std::basic_string (GCC bug 105329).
  target_compile_options(tessivator_flags INTERFACE -Wno-restrict)
  if(TESSIVATOR_SANITIZE)
    # With sanitizers it warns that its own std::regex is uninitialised (GCC bug 105562).
    target_compile_options(tessivator_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()
if(TESSIVATOR_WERROR)
  target_compile_options(tessivator_flags INTERFACE -Werror)
endif()
if(WIN32)
  target_compile_definitions(tessivator_flags INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
else()
  target_compile_options(tessivator_flags INTERFACE -fvisibility=hidden -fvisibility-inlines-hidden)
  target_compile_definitions(tessivator_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()
if(TESSIVATOR_SANITIZE)
  add_compile_options(-fsanitize=${TESSIVATOR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TESSIVATOR_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(tessivator_flags INTERFACE -fstack-protector-strong
    # Some compilers set a level by default; without optimisation there is none.
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>)
  if(WIN32)
    target_link_options(tessivator_flags INTERFACE -fstack-protector-strong)  # brings the library of its checks
  else()
    target_compile_options(tessivator_flags INTERFACE -fstack-clash-protection)
    target_compile_definitions(tessivator_flags INTERFACE _GLIBCXX_ASSERTIONS)
    target_link_options(tessivator_flags INTERFACE LINKER:-z,relro,-z,now)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
      target_compile_options(tessivator_flags INTERFACE -fcf-protection=full)
    endif()
  endif()
endif()

# The components need libFuzzer's coverage counters too: without them it refuses to run.
if(TESSIVATOR_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()
