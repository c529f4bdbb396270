# Libraries from Debian; for Windows, libcrypto and tinyxml2 cross-built by tools/cross-libs.sh.
find_package(Threads REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
if(WIN32)
  # A static libcrypto names its system libraries only through its users.
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32 advapi32 user32 gdi32)
endif()

find_path(TINYXML2_INCLUDE_DIR tinyxml2.h REQUIRED)
find_library(TINYXML2_LIBRARY tinyxml2 REQUIRED)
add_library(tinyxml2_dependency INTERFACE)
target_include_directories(tinyxml2_dependency SYSTEM INTERFACE "${TINYXML2_INCLUDE_DIR}")
target_link_libraries(tinyxml2_dependency INTERFACE "${TINYXML2_LIBRARY}")

if(NOT WIN32)
  find_path(UTF8CPP_INCLUDE_DIR utf8.h PATH_SUFFIXES utf8cpp REQUIRED)
  add_library(utf8cpp_dependency INTERFACE)
  target_include_directories(utf8cpp_dependency SYSTEM INTERFACE "${UTF8CPP_INCLUDE_DIR}")
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(LIBGSF REQUIRED IMPORTED_TARGET libgsf-1)
  pkg_check_modules(SMBCLIENT IMPORTED_TARGET smbclient)
endif()

if(TESSIVATOR_TESTS)
  # GoogleTest is built with our own flags and sanitizers, from the sources that Debian ships.
  set(GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's source folder")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory("${GOOGLETEST_SOURCE}" googletest EXCLUDE_FROM_ALL SYSTEM)
  if(NOT TARGET GTest::gmock_main)
    add_library(GTest::gmock_main ALIAS gmock_main)
  endif()
endif()
