# Debian packages of the installed tree, one per install component:
#   libtessel-link0      the shared object and its data archive
#   libtessel-link-dev   headers, CMake package, pkg-config file (and the libtessel_link.so link)
#   tessel-tools         the tessel command
# Built by scripts/package in a Release tree configured for the prefix /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessel-link)
set(CPACK_PACKAGE_VENDOR "tessel_link developers")
set(CPACK_PACKAGE_CONTACT "tessel_link developers <tessel-link@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Client library of the remote management protocol")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# Shared-library dependencies of the runtime and the tool are read from the binaries; the
# package with the shared object gets a shlibs file, so that hosts' packages built with
# dpkg-shlibdeps depend on libtessel-link0 of this version or later.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtessel-link${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "Client library of the remote management protocol (runtime)
 The shared library and its data archive (the message table that a deployment may
 replace with a translated one).")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtessel-link-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtessel-link${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-1), zlib1g-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "Client library of the remote management protocol (development files)
 Headers (C++20), the CMake package TesselLink (find_package(TesselLink)) and the
 pkg-config file tessel_link.pc.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tessel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "Command-line tool of the remote management protocol library
 The tessel command: decodes errors, reads and converts records, XML documents, archives
 and change journals, and shows the components the library knows.")

include(CPack)
