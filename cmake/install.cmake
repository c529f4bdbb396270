# What `cmake --install` puts where: the programs, the report's schema, the library for Java hosts, and for C++ users
# the components as the CMake package `tessivator`. java/ and packaging/ install their own files.
include(CMakePackageConfigHelpers)
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/tessivator")

install(TARGETS brantle_cli brantle_report RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES tessivator/utils/signing/brantle/info.xsd tessivator/details/details.schema.json
  DESTINATION "${CMAKE_INSTALL_DATADIR}/brantle")
# The library for Java hosts is built only if a Java development kit is installed.
if(TARGET brantle)
  install(TARGETS brantle
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT java
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT java
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
endif()
if(TARGET brantle_smb)
  # Not configurable: below the prefix, program and library look for it only here.
  install(TARGETS brantle_smb RUNTIME DESTINATION libexec/brantle COMPONENT smb)
endif()

install(EXPORT tessivator NAMESPACE tessivator:: DESTINATION "${package_folder}" FILE tessivator-targets.cmake
  COMPONENT dev)
configure_package_config_file(cmake/tessivator-config.cmake.in "${PROJECT_BINARY_DIR}/tessivator-config.cmake"
  INSTALL_DESTINATION "${package_folder}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tessivator-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/tessivator-config.cmake" "${PROJECT_BINARY_DIR}/tessivator-config-version.cmake"
  cmake/libraries.cmake DESTINATION "${package_folder}" COMPONENT dev)
# The same for pkg-config. The list begins with the lowest component; the linker needs the reverse order.
get_property(libraries GLOBAL PROPERTY tessivator_libraries)
separate_arguments(libraries)
list(REVERSE libraries)
list(JOIN libraries " " pkgconfig_libraries)
configure_file(cmake/tessivator.pc.in "${PROJECT_BINARY_DIR}/tessivator.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tessivator.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
install(FILES README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
