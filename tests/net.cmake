# The network companion's tests link its static form beside the static core.
if(TARGET test_net)
    target_link_libraries(test_net PRIVATE tessel_link_net_static)
endif()
