sdi_add_benchmark(NAME pattern_bench SRCS pattern_bench.cpp DEPS pattern sdi_formats)
