# The shared library as hosts get it: its ABI version and exports, the installed tree
# (library, headers, CMake package, pkg-config file, data archive, tool) and the alias
# that a project using this one through add_subdirectory or FetchContent links against.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

get_property(tl_generated_root GLOBAL PROPERTY TL_GENERATED_ROOT)

# --- ABI: SONAME libtessel_link.so.MAJOR, file libtessel_link.so.MAJOR.MINOR.PATCH --------
set_target_properties(tessel_link PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
# What an installed host gets; in the tree, tessel_link_usage gives the same and more.
target_include_directories(tessel_link INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(tessel_link INTERFACE cxx_std_20)
target_link_libraries(tessel_link PRIVATE ZLIB::ZLIB)
# Installed, the target names its one dependency for the link of a host (link only: no zlib
# header is part of the API), so the package finds zlib again with find_dependency.
target_link_libraries(tessel_link INTERFACE $<INSTALL_INTERFACE:$<LINK_ONLY:ZLIB::ZLIB>>)
add_library(TesselLink::tessel_link ALIAS tessel_link)

# Exports: a version script of the names in the namespaces the public headers open, read
# from the objects, so that instantiations of standard templates (weak, default visibility)
# stay inside. The archive holds the same objects as the shared library.
set(TL_EXPORT_MAP ${PROJECT_BINARY_DIR}/tessel_link.map)
file(GLOB_RECURSE tl_hand_public_headers CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/include/tessel_link/*.h)
get_property(tl_generated_public_headers GLOBAL PROPERTY TL_GENERATED_PUBLIC_HEADERS)
add_custom_command(
    OUTPUT ${TL_EXPORT_MAP}
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/exportmap/export_map.py
            --headers ${PROJECT_SOURCE_DIR}/include/tessel_link ${tl_generated_root}/tessel_link
            --archive $<TARGET_FILE:tessel_link_static> --nm ${CMAKE_NM}
            --version ${PROJECT_VERSION_MAJOR} --out ${TL_EXPORT_MAP}
    DEPENDS ${PROJECT_SOURCE_DIR}/tools/exportmap/export_map.py tessel_link_static
            ${tl_hand_public_headers} ${tl_generated_public_headers}
    COMMENT "Writing the export map of the shared library"
    VERBATIM)
add_custom_target(tessel_link_export_map DEPENDS ${TL_EXPORT_MAP})
# Sanitized builds are for the tests and keep the linker's defaults, as they do for
# --no-undefined.
if(NOT TL_SANITIZE AND NOT TL_TSAN)
    add_dependencies(tessel_link tessel_link_export_map)
    target_link_options(tessel_link PRIVATE "LINKER:--version-script=${TL_EXPORT_MAP}")
    set_property(TARGET tessel_link APPEND PROPERTY LINK_DEPENDS ${TL_EXPORT_MAP})
endif()

# --- The data archive: the built-in message table packed as a deployer replaces it --------
set(TL_DATA_ARCHIVE ${PROJECT_BINARY_DIR}/libtessel_link.dat)
add_custom_command(
    OUTPUT ${TL_DATA_ARCHIVE}
    COMMAND ${CMAKE_COMMAND} -E tar cf ${TL_DATA_ARCHIVE} --format=zip
            "--mtime=2000-01-01 00:00:00 UTC" tessel_link.msg
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    DEPENDS ${PROJECT_BINARY_DIR}/tessel_link.msg
    COMMENT "Packing the data archive"
    VERBATIM)
add_custom_target(tessel_link_data_archive ALL DEPENDS ${TL_DATA_ARCHIVE})
add_dependencies(tessel_link_data_archive tessel_link_msg)

# --- Installed tree ------------------------------------------------------------------------
# Components: runtime (libtessel-link0), development (libtessel-link-dev), tools
# (tessel-tools). Nothing from the tests, benchmarks or examples is installed.
set(TL_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/TesselLink)

install(TARGETS tessel_link EXPORT TesselLinkTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime
        NAMELINK_COMPONENT development)
install(FILES ${TL_DATA_ARCHIVE} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)

# Headers: every header under include/tessel_link, whatever its folder, and the generated
# ones beside them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tessel_link
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development
    FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${tl_generated_root}/tessel_link
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development
    FILES_MATCHING PATTERN "*.h")

install(EXPORT TesselLinkTargets
    NAMESPACE TesselLink::
    FILE TesselLinkTargets.cmake
    DESTINATION ${TL_CMAKE_PACKAGE_DIR}
    COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TesselLinkConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/TesselLinkConfig.cmake
    INSTALL_DESTINATION ${TL_CMAKE_PACKAGE_DIR})
# 0.x releases keep the binary interface within a major number, as the SONAME says.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/TesselLinkConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/TesselLinkConfig.cmake
              ${PROJECT_BINARY_DIR}/package/TesselLinkConfigVersion.cmake
    DESTINATION ${TL_CMAKE_PACKAGE_DIR}
    COMPONENT development)

# pkg-config: paths relative to the file's own place, so the installed tree can move.
set(TL_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TL_PC_PREFIX_FROM_PCDIR /${TL_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" TL_PC_PREFIX_FROM_PCDIR "${TL_PC_PREFIX_FROM_PCDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/tessel_link.pc.in
    ${PROJECT_BINARY_DIR}/package/tessel_link.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/tessel_link.pc
    DESTINATION ${TL_PKGCONFIG_DIR}
    COMPONENT development)
# The tool installs itself (cli/CMakeLists.txt), into the component "tools".
