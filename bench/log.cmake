# log_bench: caller-side cost of one Log call and the rate that reaches the file, beside spdlog's
# asynchronous logger writing the same lines.
find_package(spdlog QUIET)
if(spdlog_FOUND)
    sdi_add_benchmark(NAME log_bench SRCS log_bench.cpp DEPS log_perf spdlog::spdlog)
endif()
# log_open_bench: start-up cost of opening the daemon's log file, within and beyond its bound.
sdi_add_benchmark(NAME log_open_bench SRCS log_open_bench.cpp DEPS log_perf)
