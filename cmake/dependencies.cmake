# What this tree builds with: the components' libraries, and what only the share module and the tests use.
include("${CMAKE_CURRENT_LIST_DIR}/libraries.cmake")
if(NOT WIN32)
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
