# bench_events: event latency from the emulator's control line to the
# console's printed line, p50/p99/max, next to a bare reader of the pty.
add_executable(bench_events "${CMAKE_CURRENT_LIST_DIR}/events.cpp")
target_compile_options(bench_events PRIVATE ${AVRTEST_WARNINGS})
target_link_libraries(bench_events PRIVATE avrtest_benchkit)
