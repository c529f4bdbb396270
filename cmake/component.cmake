# tessivator_component(NAME
#   SOURCES  common sources
#   PLATFORM stems: x compiles x_winnt_user.cpp or x_posix_user.cpp
#   HEADERS  the component's interface, which is installed; its other headers are private
#   USES     targets whose headers our headers include
#   PRIVATE  targets that only our sources use)
# Makes one static target for one component, which sees only the targets that it names.
function(tessivator_component name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PLATFORM;HEADERS;USES;PRIVATE" ${ARGN})
  if(WIN32)
    set(suffix _winnt_user.cpp)
  else()
    set(suffix _posix_user.cpp)
  endif()
  list(TRANSFORM ARG_PLATFORM APPEND ${suffix})
  add_library(${name} STATIC ${ARG_SOURCES} ${ARG_PLATFORM})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/tessivator" FILES ${ARG_HEADERS})
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_link_libraries(${name} PUBLIC ${ARG_USES} PRIVATE $<BUILD_INTERFACE:tessivator_flags> ${ARG_PRIVATE})
  if(WIN32)
    target_link_options(${name} INTERFACE -fstack-protector-strong)  # brings the library of the checks within
  endif()
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_EXTENSIONS OFF)
  string(REPLACE "tessivator_" "" exported ${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${exported})
  install(TARGETS ${name} EXPORT tessivator ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}/tessivator" COMPONENT dev
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tessivator" COMPONENT dev)
  set_property(GLOBAL APPEND_STRING PROPERTY tessivator_libraries " -l${name}")
endfunction()

# Builds all tests labelled tsan, for a ThreadSanitizer build.
add_custom_target(tsan_tests)

# tessivator_test(NAME SOURCES ... USES ... [TIMEOUT seconds] [LABELS ...])
# Makes one GoogleTest program, which ctest runs as one test, under Wine if it is a Windows program. Its working
# directory is the source tree's tests/ folder; TESSIVATOR_FIXTURES is the path of the fixtures.
function(tessivator_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;USES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE tessivator_flags ${ARG_USES} GTest::gmock_main)
  # With optimisation, GoogleTest's headers take longer to compile than the whole product.
  target_compile_options(${name} PRIVATE -O0 -g1 -U_FORTIFY_SOURCE)
  set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
  if("tsan" IN_LIST ARG_LABELS)
    add_dependencies(tsan_tests ${name})
  endif()
  add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}/tests")
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
    ENVIRONMENT "TESSIVATOR_FIXTURES=${PROJECT_SOURCE_DIR}/tests/fixtures;TESSIVATOR_SCRATCH=${CMAKE_CURRENT_BINARY_DIR}/${name}.scratch")
endfunction()

# tessivator_layers(FILE): lists every target below tessivator/, one per line, for tools/check-rules.py:
# name|folder|sources|interface headers|what it links|what its users see too
function(tessivator_layers file)
  set(folders tessivator)
  set(lines "")
  while(folders)
    list(POP_FRONT folders folder)
    get_directory_property(below DIRECTORY "${folder}" SUBDIRECTORIES)
    list(APPEND folders ${below})
    get_directory_property(targets DIRECTORY "${folder}" BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      set(line "${target}")
      foreach(property SOURCE_DIR SOURCES HEADER_SET LINK_LIBRARIES INTERFACE_LINK_LIBRARIES)
        get_target_property(value ${target} ${property})
        string(APPEND line "|${value}")
      endforeach()
      string(APPEND lines "${line}\n")
    endforeach()
  endwhile()
  file(WRITE "${file}" "${lines}")
endfunction()
