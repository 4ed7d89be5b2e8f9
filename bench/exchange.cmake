add_executable(bench_exchange "${CMAKE_CURRENT_LIST_DIR}/exchange.cpp")
target_include_directories(bench_exchange PRIVATE "${CMAKE_SOURCE_DIR}")
target_compile_options(bench_exchange PRIVATE ${AVRTEST_WARNINGS})
target_compile_definitions(bench_exchange PRIVATE
  BOARDSIM_PATH="$<TARGET_FILE:boardsim>"
  AVRTEST_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
target_link_libraries(bench_exchange PRIVATE avrcore avrtest_benchkit)
add_dependencies(bench_exchange boardsim)
