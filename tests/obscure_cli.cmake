# The obscure and unobscure commands of the tool, against known obscured texts.
if(TARGET tessel)
    add_test(NAME cli.obscure COMMAND tessel obscure "päss €😀")
    set_tests_properties(cli.obscure PROPERTIES
        PASS_REGULAR_EXPRESSION "^w48VFJrey2Gj3RygBhSDy0hAToHZnEUt1BkcaO29B8L7SwX3RjQ=\n$")
    add_test(NAME cli.unobscure COMMAND tessel unobscure
             "w48VFJrey2Gj3RygBhSDy0hAToHZnEUtURkcaO29UMJ5d3uciTM=")
    set_tests_properties(cli.unobscure PROPERTIES PASS_REGULAR_EXPRESSION "^password\n$")
endif()
