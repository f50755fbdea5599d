# The catalogue and request commands of the tool. The catalogue is compared with the
# component tables as published, kept under tests/data/components.
if(TARGET tessel)
    add_test(NAME cli.catalogue.json
             COMMAND sh -c "$<TARGET_FILE:tessel> catalogue --json | ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tools/same_json.py ${CMAKE_CURRENT_SOURCE_DIR}/data/components/catalogue.json")
    set_tests_properties(cli.catalogue.json PROPERTIES PASS_REGULAR_EXPRESSION "^same\n$")
    add_test(NAME cli.catalogue.text COMMAND tessel catalogue)
    set_tests_properties(cli.catalogue.text PROPERTIES PASS_REGULAR_EXPRESSION
        "161 ArchiveManagement::ArchiveManager, version 18, 21 methods\n    1 GetArchivesUri \\(since 1\\): locationUri: wstring; ")
    # A kind-2 argument is not written, whatever its value; the method is found by name or number.
    add_test(NAME cli.request.packet COMMAND tessel request 145 GetMachineID)
    set_tests_properties(cli.request.packet PROPERTIES PASS_REGULAR_EXPRESSION
        "<XML_SERIALIZER><request_MachineManager_GetMachineID></request_MachineManager_GetMachineID></XML_SERIALIZER>\n$")
    add_test(NAME cli.request.number COMMAND tessel request 188 3)
    set_tests_properties(cli.request.number PROPERTIES PASS_REGULAR_EXPRESSION
        "<request_TestManager_GetData><hostname></hostname><size>0</size></request_TestManager_GetData>")
    add_test(NAME cli.request.unknown_method COMMAND tessel request 161 NoSuchMethod)
    set_tests_properties(cli.request.unknown_method PROPERTIES WILL_FAIL TRUE)
    add_test(NAME cli.request.unknown_component COMMAND tessel request 999 1)
    set_tests_properties(cli.request.unknown_component PROPERTIES WILL_FAIL TRUE)
endif()

# The request command finds a component by interface name as the public catalogue does.
if(TARGET tessel)
    add_test(NAME cli.request.by_name COMMAND tessel request TestManagement::TestManager GetData)
    set_tests_properties(cli.request.by_name PROPERTIES PASS_REGULAR_EXPRESSION
        "<request_TestManager_GetData><hostname></hostname><size>0</size></request_TestManager_GetData>")
    add_test(NAME cli.request.by_short_name COMMAND tessel request TestManager 3)
    set_tests_properties(cli.request.by_short_name PROPERTIES PASS_REGULAR_EXPRESSION
        "<request_TestManager_GetData>")
endif()
