# bench_idle: the console's CPU use with one board open and no keys.
add_executable(bench_idle "${CMAKE_CURRENT_LIST_DIR}/idle.cpp")
target_compile_options(bench_idle PRIVATE ${AVRTEST_WARNINGS})
target_link_libraries(bench_idle PRIVATE avrtest_benchkit)
