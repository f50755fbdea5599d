# The tool's events demo: every delivery, then every removal with its time.
if(TARGET tessel)
    add_test(NAME cli.events_demo COMMAND $<TARGET_FILE:tessel> events demo --events 4)
    set_tests_properties(cli.events_demo PROPERTIES
        PASS_REGULAR_EXPRESSION
        "deliver  sink=console type=2 time=[0-9:.]+ message=task 4 changed.*unsubscribe sink=agent type=2 took=[0-9.]+ ms")
    add_test(NAME cli.events_demo_usage COMMAND $<TARGET_FILE:tessel> events demo --events 0)
    set_tests_properties(cli.events_demo_usage PROPERTIES WILL_FAIL TRUE)
endif()
