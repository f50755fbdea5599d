# The library as it leaves the tree: its exports and SONAME, the installed tree used from
# outside with find_package and with pkg-config, and the project taken in by another one.
# A sanitized library needs its runtime in the host, so these checks are for plain builds.
if(NOT TL_SANITIZE AND NOT TL_TSAN)
    get_property(tl_generated_root GLOBAL PROPERTY TL_GENERATED_ROOT)
    add_test(NAME packaging.dynamic_symbols
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/packaging/check_dynamic_symbols.py
                     $<TARGET_FILE:tessel_link> libtessel_link.so.${PROJECT_VERSION_MAJOR}
                     ${PROJECT_SOURCE_DIR}/include/tessel_link ${tl_generated_root}/tessel_link)

    if(TARGET tessel)
        add_test(NAME packaging.install_and_consume
                 COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/packaging/install_consume.sh
                         ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/packaging
                         ${PROJECT_SOURCE_DIR} ${CMAKE_CXX_COMPILER} ${PROJECT_VERSION})
        set_tests_properties(packaging.install_and_consume PROPERTIES TIMEOUT 300)
    endif()

    add_test(NAME packaging.fetch_content
             COMMAND ${CMAKE_COMMAND} --fresh -S ${CMAKE_CURRENT_SOURCE_DIR}/packaging/fetch_content
                     -B ${CMAKE_CURRENT_BINARY_DIR}/packaging/fetch_content -G Ninja
                     -DTL_SOURCE=${PROJECT_SOURCE_DIR}
                     -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
                     -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER})
    set_tests_properties(packaging.fetch_content PROPERTIES
        PASS_REGULAR_EXPRESSION "tessel_link taken in as a subproject")
endif()

# The API and the headers that only the library uses stay apart (include/tessel_link/impl/).
add_test(NAME packaging.public_surface
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/packaging/check_public_surface.py
                 ${PROJECT_SOURCE_DIR})
# The check itself finds what it is meant to, in small trees of its own.
add_test(NAME packaging.public_surface_check
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/packaging/check_public_surface_test.py)
