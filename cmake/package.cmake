# CPack makes four packages on Debian and one archive for Windows. tools/package.sh runs it in separate build folders,
# because packages need other install folders than a development build.
set(CPACK_PACKAGE_NAME brantle)
set(CPACK_PACKAGE_VENDOR "Brantle developers")
set(CPACK_PACKAGE_CONTACT "Brantle developers <brantle@brantle.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime)
foreach(pair smb:brantle_smb java:brantle)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 target)
  if(TARGET ${target})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
  endif()
endforeach()

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME "brantle-${PROJECT_VERSION}-windows-x64")
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  # Manuals as text and the licences of the libraries linked in; tools/package.sh collects them.
  install(DIRECTORY "${PROJECT_BINARY_DIR}/package-docs/" DESTINATION . COMPONENT runtime OPTIONAL)
else()
  list(APPEND CPACK_COMPONENTS_ALL dev)
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")

  # debian_package(COMPONENT NAME SECTION SUMMARY DEPENDS RECOMMENDS SUGGESTS TEXT)
  macro(debian_package component name section summary depends recommends suggests text)
    string(TOUPPER ${component} upper)
    set(package_name ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_RECOMMENDS "${recommends}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_SUGGESTS "${suggests}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${text}")
    configure_file(packaging/copyright.in "${PROJECT_BINARY_DIR}/package/${name}/copyright" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/package/${name}/copyright" DESTINATION "share/doc/${name}" COMPONENT ${component})
    configure_file(packaging/changelog.in "${PROJECT_BINARY_DIR}/package/${name}/changelog" @ONLY)
    brantle_compressed("${PROJECT_BINARY_DIR}/package/${name}/changelog" changelog "share/doc/${name}" ${component})
  endmacro()
  debian_package(runtime brantle utils "survey of repositories of Windows software" python3
    "brantle-smb, parallel" "rsync, openssh-client"
    "Records digests, product information and the certificates of the signatures of
all executable images and installer packages below a folder or on a share, and
turns the findings into a page, a table or a bill of materials.")
  debian_package(smb brantle-smb utils "network shares for brantle" "" "" ""
    "The program through which brantle and its library read SMB shares. It is
started for each scan of a share and holds all that talks to the server.")
  debian_package(java libbrantle-java java "survey of repositories of Windows software, for Java hosts" ""
    "brantle-smb" "default-jre-headless"
    "The library with its natives, the host class, and a reader of the reports.")
  set(CPACK_DEBIAN_JAVA_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/triggers")
  debian_package(dev libtessivator-dev libdevel "certificates and product information of Windows software, for C++"
    "libssl-dev, libtinyxml2-dev, libstdc++-12-dev | libstdc++-dev" "" "pkg-config, cmake"
    "Headers and static components that read executable images, installer packages,
cabinets and the certificates of their signatures, with a CMake package.")
endif()
include(CPack)
