sdi_add_benchmark(NAME simulcast_bench SRCS simulcast_bench.cpp DEPS simulcast piped_child)
