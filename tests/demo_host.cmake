# The example host runs its main job through the shared library end to end: every
# component created and found by its interface, and the shown call's packets in full.
if(TARGET demo_host)
    add_test(NAME demo_host_main_job
             COMMAND demo_host $<TARGET_FILE:tessel_link>)
    set_tests_properties(demo_host_main_job PROPERTIES
        PASS_REGULAR_EXPRESSION "CheckInXIDLTypes: 635 type names.*57 components: 57 proxies created, 57 interfaces found.*GetIDs: success, 3 instances.*<request_TestManager_GetData><hostname>backup-01.example</hostname><size>4096</size></request_TestManager_GetData>.*<reply_TestManager_GetData><result>.*4096 bytes of test data from backup-01.example")
endif()
