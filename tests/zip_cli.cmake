# The tool's zip list and zip cat commands.
if(TARGET tessel)
    add_test(NAME cli.zip
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/zip_cli/check_zip_commands.sh
                     ${CMAKE_CURRENT_BINARY_DIR}/zip_cli $<TARGET_FILE:tessel>)
endif()
