# Dependencies of this tree: the libraries of the components, and those of the share program and the tests.
include("${CMAKE_CURRENT_LIST_DIR}/libraries.cmake")
if(NOT WIN32)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SMBCLIENT IMPORTED_TARGET smbclient)
endif()

# Only the report program reads XML.
find_path(EXPAT_INCLUDE_DIR expat.h REQUIRED)
find_library(EXPAT_LIBRARY expat REQUIRED)
add_library(expat_dependency INTERFACE IMPORTED GLOBAL)
target_include_directories(expat_dependency SYSTEM INTERFACE "${EXPAT_INCLUDE_DIR}")
target_link_libraries(expat_dependency INTERFACE "${EXPAT_LIBRARY}")
if(WIN32)
  target_compile_definitions(expat_dependency INTERFACE XML_STATIC)
endif()

# Only headers, the same for every platform. Linked into a separate folder, because a cross compiler must not see the
# other headers beside them.
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/reader.h REQUIRED NO_CMAKE_FIND_ROOT_PATH)
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/headers")
file(CREATE_LINK "${RAPIDJSON_INCLUDE_DIR}/rapidjson" "${PROJECT_BINARY_DIR}/headers/rapidjson" SYMBOLIC)
add_library(rapidjson_dependency INTERFACE IMPORTED GLOBAL)
target_include_directories(rapidjson_dependency SYSTEM INTERFACE "${PROJECT_BINARY_DIR}/headers")

# The Java library needs only JNI's headers. They are the same on every 64-bit platform except for the export macro, for
# which we use our own. If they are missing, everything else is built.
file(GLOB TESSIVATOR_JDKS /usr/lib/jvm/default-java /usr/lib/jvm/java-*)
find_path(JNI_INCLUDE_DIR jni.h HINTS ENV JAVA_HOME PATHS ${TESSIVATOR_JDKS} PATH_SUFFIXES include
  NO_CMAKE_FIND_ROOT_PATH)
find_path(JNI_MD_INCLUDE_DIR jni_md.h HINTS "${JNI_INCLUDE_DIR}/win32" "${JNI_INCLUDE_DIR}/linux"
  NO_CMAKE_FIND_ROOT_PATH)
if(JNI_INCLUDE_DIR AND JNI_MD_INCLUDE_DIR)
  set(TESSIVATOR_JNI TRUE)
  set(JNI_INCLUDE_DIRS "${JNI_INCLUDE_DIR}" "${JNI_MD_INCLUDE_DIR}")
else()
  message(STATUS "No jni.h: the Java library is left out")
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
