sdi_add_benchmark(NAME abstract_variable_bench
    SRCS ${CMAKE_CURRENT_LIST_DIR}/abstract_variable_bench.cpp
    DEPS abstract_variable abstract_variable_fixture)
