# bench_soak: the serial link through thousands of exchanges against boardsim
# with random faults, numbered events and unplugs; prints its figures and fails
# on any wrong outcome. A short run is registered with the tests.
add_executable(bench_soak "${CMAKE_CURRENT_LIST_DIR}/soak.cpp")
target_include_directories(bench_soak PRIVATE "${CMAKE_SOURCE_DIR}")
target_compile_options(bench_soak PRIVATE ${AVRTEST_WARNINGS})
target_compile_definitions(bench_soak PRIVATE BOARDSIM_PATH="$<TARGET_FILE:boardsim>")
target_link_libraries(bench_soak PRIVATE avrcore avrtest_simprocess)
add_dependencies(bench_soak boardsim)
