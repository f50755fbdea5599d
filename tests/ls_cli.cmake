# The tool's ls command on a tree with names that need care.
if(TARGET tessel)
    add_test(NAME cli.ls
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/ls_cli/check_ls.sh $<TARGET_FILE:tessel>)
endif()
