# audio_extraction_bench: one slot's audio step on the simulated board and alone, allocations counted.
sdi_add_benchmark(NAME audio_extraction_bench SRCS ${CMAKE_CURRENT_LIST_DIR}/audio_extraction_bench.cpp
    DEPS app log_testing piped_child)
