# The network benchmark links the network companion beside the static core.
if(TARGET bench_net)
    target_link_libraries(bench_net PRIVATE tessel_link_net_static)
endif()
