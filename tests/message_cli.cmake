# The tool's message and error commands. The texts and the decoded chain are compared
# against the repository's rows and a known serialized error.
if(TARGET tessel)
    set(_data ${CMAKE_CURRENT_SOURCE_DIR}/data/cli)

    add_test(NAME cli.message COMMAND tessel message 11)
    set_tests_properties(cli.message PROPERTIES
        PASS_REGULAR_EXPRESSION "^\\{0\\} \\{1\\} \\(build \\{2\\}\\)\\{3, choice, 1#\n\n\\{4\\}\\}\n$")
    # A row without text and one beyond the table both fail.
    add_test(NAME cli.message.empty COMMAND tessel message 10)
    add_test(NAME cli.message.range COMMAND tessel message 644)
    set_tests_properties(cli.message.empty cli.message.range PROPERTIES WILL_FAIL TRUE)

    # Every row with text, escaped, is exactly the repository's list of rows.
    add_test(NAME cli.messages
             COMMAND sh -c "\"$1\" messages > \"$3\" && grep -v '^#' -- \"$2\" | diff -u - \"$3\""
                     sh $<TARGET_FILE:tessel> ${PROJECT_SOURCE_DIR}/data/messages.txt
                     ${CMAKE_CURRENT_BINARY_DIR}/messages_printed.txt)

    add_test(NAME cli.error.decode.json
             COMMAND sh -c "\"$1\" error decode --json \"$(cat \"$2\")\" | diff -u -- \"$3\" -"
                     sh $<TARGET_FILE:tessel> ${_data}/error_chain.hex ${_data}/error_chain.json)
    add_test(NAME cli.error.decode.text
             COMMAND sh -c "\"$1\" error decode < \"$2\"" sh $<TARGET_FILE:tessel>
                     ${_data}/error_chain.hex)
    set_tests_properties(cli.error.decode.text PROPERTIES
        PASS_REGULAR_EXPRESSION "^#0 code 0x00040011 linetag 0x1122334455667788\n.*#1 code 0x0000FFF0")
    add_test(NAME cli.error.decode.empty COMMAND tessel error decode "02 00" --json)
    set_tests_properties(cli.error.decode.empty PROPERTIES PASS_REGULAR_EXPRESSION "^\\[\\]\n$")
    add_test(NAME cli.error.decode.bad COMMAND tessel error decode 0g)
    set_tests_properties(cli.error.decode.bad PROPERTIES WILL_FAIL TRUE)
endif()
