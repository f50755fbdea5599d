# The types and record commands of the tool.
if(TARGET tessel)
    add_test(NAME cli.types.count
             COMMAND sh -c "test \"$($<TARGET_FILE:tessel> types | wc -l)\" -eq 635 && $<TARGET_FILE:tessel> types | head -1")
    set_tests_properties(cli.types.count PROPERTIES PASS_REGULAR_EXPRESSION "^Tol::ActivityOrigin\n$")
    add_test(NAME cli.record.packet COMMAND tessel record ArchiveManagement::PagingOptions)
    set_tests_properties(cli.record.packet PROPERTIES PASS_REGULAR_EXPRESSION
        "<XML_SERIALIZER><Root version=\"18\"><Position>0</Position><Size>0</Size></Root></XML_SERIALIZER>\n$")
    add_test(NAME cli.record.members COMMAND tessel record DiskManagementEx::CreateVolumeContext --members)
    set_tests_properties(cli.record.members PROPERTIES PASS_REGULAR_EXPRESSION "^Opcode\nLetter\nOffset\n")
    add_test(NAME cli.record.unknown COMMAND tessel record No::Such)
    set_tests_properties(cli.record.unknown PROPERTIES WILL_FAIL TRUE)
endif()
