# The types and record commands of the tool.
if(TARGET tessel)
    # The 635 names that hosts learn, exactly and in their order of registration.
    add_test(NAME cli.types.names
             COMMAND sh -c "\"$0\" types | diff -u \"$1\" - && echo SAME"
                     $<TARGET_FILE:tessel> ${CMAKE_CURRENT_SOURCE_DIR}/data/cli/type_names.txt)
    set_tests_properties(cli.types.names PROPERTIES PASS_REGULAR_EXPRESSION "^SAME\n$")
    add_test(NAME cli.record.packet COMMAND tessel record ArchiveManagement::PagingOptions)
    set_tests_properties(cli.record.packet PROPERTIES PASS_REGULAR_EXPRESSION
        "<XML_SERIALIZER><Root version=\"18\"><Position>0</Position><Size>0</Size></Root></XML_SERIALIZER>\n$")
    add_test(NAME cli.record.members COMMAND tessel record DiskManagementEx::CreateVolumeContext --members)
    set_tests_properties(cli.record.members PROPERTIES PASS_REGULAR_EXPRESSION "^Opcode\nLetter\nOffset\n")
    add_test(NAME cli.record.unknown COMMAND tessel record No::Such)
    set_tests_properties(cli.record.unknown PROPERTIES WILL_FAIL TRUE)
    # Every type comes out of both record commands, the ones whose enumerations have no
    # names included (their values travel as numbers, with a logged check, not an abort).
    # No CORVANE_SAFE_ASSERT is set: the tool's own default must carry it.
    add_test(NAME cli.record.every_type
             COMMAND sh -c "unset CORVANE_SAFE_ASSERT; \"$0\" types | while read -r t; do \"$0\" record \"$t\" >/dev/null 2>&1 || echo \"record $t: $?\"; \"$0\" por record \"$t\" >/dev/null 2>&1 || echo \"por record $t: $?\"; done; echo DONE"
                     $<TARGET_FILE:tessel>)
    set_tests_properties(cli.record.every_type PROPERTIES PASS_REGULAR_EXPRESSION "^DONE\n$")
endif()
