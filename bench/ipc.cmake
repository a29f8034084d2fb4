# Lock/unlock cost and pulse-to-wake latency of the named objects (system/ipc).
sdi_add_benchmark(NAME ipc_bench SRCS ${CMAKE_CURRENT_SOURCE_DIR}/ipc_bench.cpp DEPS ipc piped_child)
if(TARGET ipc_bench)
    add_dependencies(ipc_bench ipc_test_helper)
endif()
