# `tessel serve` and `tessel call` in separate processes, over a Unix socket and TCP.
if(TARGET tessel)
    add_test(NAME cli.net_two_processes
             COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/net_cli/two_processes.sh $<TARGET_FILE:tessel>)
    add_test(NAME cli.describe COMMAND $<TARGET_FILE:tessel> describe ArchiveManagement::ArchiveSecurity)
    set_tests_properties(cli.describe PROPERTIES
        PASS_REGULAR_EXPRESSION "\"OwnerID\": \"\",\n  \"OwnerName\": \"\"")
endif()
# The JSON mapping's own tests link the tool's build of it.
if(TARGET test_net_cli)
    target_link_libraries(test_net_cli PRIVATE tessel_json_mapping)
endif()
