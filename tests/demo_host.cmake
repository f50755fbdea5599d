# The example host runs its call through the shared library end to end.
if(TARGET demo_host)
    add_test(NAME demo_host_calls_get_data
             COMMAND demo_host $<TARGET_FILE:tessel_link>)
    set_tests_properties(demo_host_calls_get_data PROPERTIES
        PASS_REGULAR_EXPRESSION "<request_TestManager_GetData><hostname>backup-01.example</hostname><size>4096</size></request_TestManager_GetData>.*GetData returned: 0x0 \\(success\\).*data = \"4096 bytes of test data from backup-01.example\"")
endif()
