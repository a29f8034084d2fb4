# The consumer library: what a process outside this build links to follow a run's channels.
#   <prefix>/include/sdi_tap/...                 headers, included as "simulcast/simulcast_reader.h"
#   <prefix>/lib/libsdi_tap_simulcast.a          writer, reader, record names
#   <prefix>/lib/libsdi_tap_ipc.a                the named shared objects they stand on
#   <prefix>/lib/pkgconfig/sdi_tap_simulcast.pc  `pkg-config --cflags --libs sdi_tap_simulcast`
# The .pc file finds its prefix from its own place, so any --prefix of `cmake --install` works.
set(sdi_tap_include_dir include/sdi_tap)
install(FILES
    simulcast_params.h simulcast_reader.h simulcast_writer.h capture_records.h
    DESTINATION ${sdi_tap_include_dir}/simulcast)
install(FILES
    ${PROJECT_SOURCE_DIR}/system/ipc/named_objects.h ${PROJECT_SOURCE_DIR}/system/ipc/generic_shared_memory.h
    DESTINATION ${sdi_tap_include_dir}/system/ipc)
install(FILES ${PROJECT_SOURCE_DIR}/cpp_utils/non_copyable/non_copyable.h
    DESTINATION ${sdi_tap_include_dir}/cpp_utils/non_copyable)
# Installed under names of their own: a bare libipc.a would clash in a shared lib directory.
install(FILES $<TARGET_FILE:simulcast> DESTINATION lib RENAME libsdi_tap_simulcast.a)
install(FILES $<TARGET_FILE:ipc> DESTINATION lib RENAME libsdi_tap_ipc.a)
configure_file(sdi_tap_simulcast.pc.in ${CMAKE_CURRENT_BINARY_DIR}/sdi_tap_simulcast.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sdi_tap_simulcast.pc DESTINATION lib/pkgconfig)

# A consumer built against an installed copy, as an integrator builds one.
if(SDI_TAP_TESTS)
    set(consumer_flags "")
    if(SDI_TAP_SANITIZE)
        set(consumer_flags "-fsanitize=address,undefined")
    endif()
    add_test(NAME simulcast_install_consumer
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/consumer_example/install_and_build.sh
                ${CMAKE_BINARY_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/consumer_example/consumer.cpp "${consumer_flags}")
    set_tests_properties(simulcast_install_consumer PROPERTIES LABELS e2e)
endif()
