# The example host runs its main job through the shared library end to end: every
# component created and found by its interface, the shown call's packets in full, and every
# method called, with no CORVANE_SAFE_ASSERT set (methods that carry enumeration values
# without names must not end the host).
if(TARGET demo_host)
    add_test(NAME demo_host_main_job
             COMMAND sh -c "unset CORVANE_SAFE_ASSERT; exec \"$0\" \"$1\""
                     $<TARGET_FILE:demo_host> $<TARGET_FILE:tessel_link>)
    set_tests_properties(demo_host_main_job PROPERTIES
        PASS_REGULAR_EXPRESSION "CheckInXIDLTypes: 635 type names.*57 components: 57 proxies created, 57 interfaces found.*GetIDs: success, 3 instances.*<request_TestManager_GetData><hostname>backup-01.example</hostname><size>4096</size></request_TestManager_GetData>.*<reply_TestManager_GetData><result>.*4096 bytes of test data from backup-01.example.*395 methods called through the in-process service.*the host.s own test: CountInstancesOfType passed; the fake.s GetIDs answers: 0x00B90010 The method .InstanceManagement::InstanceManager::GetIDs. is not implemented")
endif()
