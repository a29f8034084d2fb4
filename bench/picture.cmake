# picture_bench: packed 4:2:2 to planar 4:2:0 beside libyuv's UYVYToI420, hot and cold caches.
find_path(LIBYUV_INCLUDE_DIR libyuv/convert.h)
find_library(LIBYUV_LIBRARY yuv)
if(LIBYUV_INCLUDE_DIR AND LIBYUV_LIBRARY)
    sdi_add_benchmark(NAME picture_bench SRCS ${CMAKE_CURRENT_LIST_DIR}/picture_bench.cpp
        DEPS picture ${LIBYUV_LIBRARY})
    if(TARGET picture_bench)
        target_include_directories(picture_bench PRIVATE ${LIBYUV_INCLUDE_DIR})
    endif()
endif()
