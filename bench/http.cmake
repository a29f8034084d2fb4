# http_bench_server: the HTTP server with a trivial handler, for bench/http_bench.sh (wrk beside nginx).
if(SDI_TAP_BENCHMARKS)
    sdi_add_executable(NAME http_bench_server SRCS ${CMAKE_CURRENT_SOURCE_DIR}/http_bench_server.cpp
        DEPS http_server process)
endif()
