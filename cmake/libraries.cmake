# The libraries that the components use: from Debian; for Windows, libcrypto, tinyxml2 and expat cross-built by
# tools/cross-libs.sh. The installed package includes this file, because its users need the same targets.
find_package(Threads REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
if(WIN32)
  # A static libcrypto does not name its system libraries; its users must link them.
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32 advapi32 user32 gdi32)
endif()

find_path(TINYXML2_INCLUDE_DIR tinyxml2.h REQUIRED)
find_library(TINYXML2_LIBRARY tinyxml2 REQUIRED)
add_library(tinyxml2_dependency INTERFACE IMPORTED GLOBAL)
target_include_directories(tinyxml2_dependency SYSTEM INTERFACE "${TINYXML2_INCLUDE_DIR}")
target_link_libraries(tinyxml2_dependency INTERFACE "${TINYXML2_LIBRARY}")
