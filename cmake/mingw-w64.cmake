# 64-bit Windows with MinGW-w64 (posix threads); programs run under Wine through tools/wine-run.sh.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# The cross-built static libraries: in the build folder, or in a folder that the user names.
if(DEFINED ENV{TESSIVATOR_CROSS})
  set(TESSIVATOR_CROSS "$ENV{TESSIVATOR_CROSS}" CACHE PATH "Prefix of the cross-built libraries")
else()
  set(TESSIVATOR_CROSS "${CMAKE_CURRENT_LIST_DIR}/../build/cross" CACHE PATH "Prefix of the cross-built libraries")
endif()
list(APPEND CMAKE_PREFIX_PATH "${TESSIVATOR_CROSS}")
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${TESSIVATOR_CROSS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)  # an installed package of ours lies anywhere
set(OPENSSL_USE_STATIC_LIBS TRUE)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../tools/wine-run.sh")
