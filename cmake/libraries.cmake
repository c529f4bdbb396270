# The libraries that the components use: from Debian; for Windows, libcrypto, tinyxml2 and expat cross-built by
# tools/cross-libs.sh. Also part of the installed package, whose users need the same targets.
find_package(Threads REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
if(WIN32)
  # A static libcrypto names its system libraries only through its users.
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32 advapi32 user32 gdi32)
endif()

find_path(TINYXML2_INCLUDE_DIR tinyxml2.h REQUIRED)
find_library(TINYXML2_LIBRARY tinyxml2 REQUIRED)
add_library(tinyxml2_dependency INTERFACE IMPORTED GLOBAL)
target_include_directories(tinyxml2_dependency SYSTEM INTERFACE "${TINYXML2_INCLUDE_DIR}")
target_link_libraries(tinyxml2_dependency INTERFACE "${TINYXML2_LIBRARY}")
