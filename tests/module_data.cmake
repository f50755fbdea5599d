# The message table replaced from the module's data archive, for the tool and for the
# shared library loaded by a host.
if(TARGET tessel)
    add_executable(print_message_row ${CMAKE_CURRENT_SOURCE_DIR}/module_data/print_row.c)
    target_link_libraries(print_message_row PRIVATE ${CMAKE_DL_LIBS})
    # Linked as C++ so that a sanitized library finds the C++ parts of the sanitizer runtime.
    set_target_properties(print_message_row PROPERTIES LINKER_LANGUAGE CXX)
    add_test(NAME module_data.replaced_message_table
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/module_data/replaced_table.sh
                     ${CMAKE_CURRENT_BINARY_DIR}/module_data
                     $<TARGET_FILE:tessel> $<TARGET_FILE:tessel_link>
                     $<TARGET_FILE:print_message_row>
                     ${PROJECT_SOURCE_DIR}/tools/msgtable/msgtable.py
                     ${PROJECT_SOURCE_DIR}/data/messages.txt)
endif()
