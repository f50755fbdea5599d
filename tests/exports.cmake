# The shared library exports its two entry points under their plain C names.
add_executable(check_exports ${CMAKE_CURRENT_SOURCE_DIR}/exports/check_exports.c)
target_link_libraries(check_exports PRIVATE ${CMAKE_DL_LIBS})
# Linked as C++ so that a sanitized library finds the C++ parts of the sanitizer runtime.
set_target_properties(check_exports PROPERTIES LINKER_LANGUAGE CXX)
add_test(NAME library_exports_entry_points COMMAND check_exports $<TARGET_FILE:tessel_link>)
