# rest_bench: a GET of a large map through the REST request handler, beside jsoncpp alone.
sdi_add_benchmark(NAME rest_bench SRCS ${CMAKE_CURRENT_LIST_DIR}/rest_bench.cpp
    DEPS restful_web_service_request_handler)
