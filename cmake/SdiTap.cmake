# Helpers that keep every folder's CMakeLists.txt a few lines long.
#
#   sdi_add_library(NAME name SRCS a.cpp b.cpp [DEPS dep...] [PRIVATE_DEPS dep...])
#   sdi_add_executable(NAME name SRCS main.cpp [DEPS dep...])
#   sdi_add_test(NAME name SRCS a_test.cpp [DEPS dep...] [LABELS label...] [HELPERS target...]
#                [RESOURCE_LOCK resource])
#   sdi_add_benchmark(NAME name SRCS a_bench.cpp [DEPS dep...])
#
# Headers are included from the repository root ("simulcast/simulcast_writer.h").
# A header-only library passes no SRCS and becomes an INTERFACE target.
# HELPERS are executables a test starts as separate processes: the test depends on them and finds
# them through the environment variable SDI_TAP_BIN_DIR (the directory of build/bin).
# RESOURCE_LOCK keeps tests that share a machine-wide resource (the daemon's port 0) from running
# at the same time under ctest -j.

function(sdi_add_library)
    cmake_parse_arguments(ARG "" "NAME" "SRCS;DEPS;PRIVATE_DEPS" ${ARGN})
    if(ARG_SRCS)
        add_library(${ARG_NAME} STATIC ${ARG_SRCS})
        target_include_directories(${ARG_NAME} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
        target_link_libraries(${ARG_NAME} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
        set_target_properties(${ARG_NAME} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    else()
        add_library(${ARG_NAME} INTERFACE)
        target_include_directories(${ARG_NAME} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
        target_link_libraries(${ARG_NAME} INTERFACE ${ARG_DEPS})
    endif()
endfunction()

function(sdi_add_executable)
    cmake_parse_arguments(ARG "" "NAME" "SRCS;DEPS" ${ARGN})
    add_executable(${ARG_NAME} ${ARG_SRCS})
    target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS})
endfunction()

function(sdi_add_test)
    cmake_parse_arguments(ARG "" "NAME;RESOURCE_LOCK" "SRCS;DEPS;LABELS;HELPERS" ${ARGN})
    if(NOT SDI_TAP_TESTS)
        return()
    endif()
    add_executable(${ARG_NAME} ${ARG_SRCS})
    target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main)
    if(ARG_HELPERS)
        add_dependencies(${ARG_NAME} ${ARG_HELPERS})
    endif()
    set(labels unit)
    if(ARG_LABELS)
        set(labels ${ARG_LABELS})
    endif()
    set(properties LABELS "${labels}" ENVIRONMENT "SDI_TAP_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
    if(ARG_RESOURCE_LOCK)
        list(APPEND properties RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
    endif()
    gtest_discover_tests(${ARG_NAME} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()

function(sdi_add_benchmark)
    cmake_parse_arguments(ARG "" "NAME" "SRCS;DEPS" ${ARGN})
    if(NOT SDI_TAP_BENCHMARKS)
        return()
    endif()
    add_executable(${ARG_NAME} ${ARG_SRCS})
    target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS} benchmark::benchmark)
endfunction()
