# The tool's alloc command on a sparse file.
if(TARGET tessel)
    add_test(NAME cli.alloc
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/alloc_cli/check_alloc.sh
                     ${CMAKE_CURRENT_BINARY_DIR}/alloc_cli $<TARGET_FILE:tessel>)
endif()
