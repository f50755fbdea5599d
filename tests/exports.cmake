# The shared library exports its two entry points under their plain C names.
add_executable(check_exports ${CMAKE_CURRENT_SOURCE_DIR}/exports/check_exports.c)
target_link_libraries(check_exports PRIVATE ${CMAKE_DL_LIBS})
# Linked as C++ so that a sanitized library finds the C++ parts of the sanitizer runtime.
set_target_properties(check_exports PROPERTIES LINKER_LANGUAGE CXX)
add_test(NAME library_exports_entry_points COMMAND check_exports $<TARGET_FILE:tessel_link>)

# A host that uses the library from a handler of exit(), after the point where the library's
# statics would have been destroyed, and a host that unloads it (under the sanitizers, a
# leak check then finds any static that was not destroyed with it).
add_executable(exit_time_host ${CMAKE_CURRENT_SOURCE_DIR}/exports/programs/exit_time_host.cpp)
target_include_directories(exit_time_host PRIVATE
    $<TARGET_PROPERTY:tessel_link_usage,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(exit_time_host PRIVATE ${CMAKE_DL_LIBS})
if(TL_SANITIZE)
    # The check of dynamic types needs the library's type information at link time, and
    # this host, like any that loads the library at run time, is not linked with it.
    target_compile_options(exit_time_host PRIVATE -fno-sanitize=vptr)
endif()
add_dependencies(exit_time_host tessel_link)
add_test(NAME library_serves_the_host_at_exit
         COMMAND exit_time_host exit $<TARGET_FILE:tessel_link>)
# Values of types whose default enumeration value has no name are logged; no stacks.
set_tests_properties(library_serves_the_host_at_exit PROPERTIES
    ENVIRONMENT CORVANE_SAFE_ASSERT=log
    PASS_REGULAR_EXPRESSION "the library served the host at exit")
add_test(NAME library_unloads_with_its_statics
         COMMAND exit_time_host unload $<TARGET_FILE:tessel_link>)
set_tests_properties(library_unloads_with_its_statics PROPERTIES
    PASS_REGULAR_EXPRESSION "the library was unloaded")
