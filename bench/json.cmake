# json_bench: JSON values of a large tree through the variable layer, beside jsoncpp alone.
sdi_add_benchmark(NAME json_bench
    SRCS ${CMAKE_CURRENT_LIST_DIR}/json_bench.cpp
    DEPS abstract_variable_json)
