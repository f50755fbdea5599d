# What the tool's subcommands demand of their options, as the parser enforces it.
if(TARGET tessel)
    add_test(NAME cli.options
             COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/options_cli/check_options.sh $<TARGET_FILE:tessel>)
endif()
