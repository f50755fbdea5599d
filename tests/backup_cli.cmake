# The tool's backup and restore commands on real files.
if(TARGET tessel)
    add_test(NAME cli.backup
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/backup_cli/check_backup.sh
                     $<TARGET_FILE:tessel>)
endif()
