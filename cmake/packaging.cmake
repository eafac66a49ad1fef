# Debian packages through CPack (`cpack -G DEB` in the build directory): one
# package per install component.
#   libvlnvktosx1      the shared library
#   libvlnvktosx-dev   headers, pkg-config file and CMake package
#   kt                 the command-line tool, its manual page and completion
set(CPACK_PACKAGE_NAME vlnvktosx)
set(CPACK_PACKAGE_VENDOR "KT")
set(CPACK_PACKAGE_CONTACT "KT maintainers <kt@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "KT common module: tables files, memory zones, signatures")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL library development tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvlnvktosx${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvlnvktosx-dev)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kt)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
# The tool's own library is found in the build tree, not on the system; its
# package is named below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
# Within the project the packages depend on one another at this version.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libvlnvktosx${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libvlnvktosx${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "KT common module, shared library")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "KT common module, development files (headers, pkg-config, CMake package)")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "kt, the KT common module's command-line tool")
include(CPack)
