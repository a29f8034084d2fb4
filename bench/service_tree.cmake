# service_tree_bench: the service tree's share of a REST answer, beside jsoncpp alone.
sdi_add_benchmark(NAME service_tree_bench
    SRCS ${CMAKE_CURRENT_LIST_DIR}/service_tree_bench.cpp
    DEPS service_tree abstract_variable_json abstract_variable_path)
