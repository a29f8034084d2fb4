# capture_slot_bench: one whole capture slot at 4K60 10-bit beside a memcpy of the frame, allocations counted.
sdi_add_benchmark(NAME capture_slot_bench SRCS ${CMAKE_CURRENT_LIST_DIR}/capture_slot_bench.cpp
    DEPS app log_testing piped_child)
