# The tool's usn read, usn lookup and watch commands.
if(TARGET tessel)
    add_test(NAME cli.usn
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/usn_cli/check_usn_commands.sh
                     ${CMAKE_CURRENT_BINARY_DIR}/usn_cli $<TARGET_FILE:tessel>)
    add_test(NAME cli.watch
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/usn_cli/check_watch_command.sh
                     ${CMAKE_CURRENT_BINARY_DIR}/watch_cli $<TARGET_FILE:tessel>)
endif()
