# What the benchmark programs share (bench/BenchKit.h); no test sources.
add_library(avrtest_benchkit STATIC "${CMAKE_CURRENT_LIST_DIR}/BenchKit.cpp")
target_include_directories(avrtest_benchkit PUBLIC "${CMAKE_CURRENT_LIST_DIR}")
target_compile_options(avrtest_benchkit PRIVATE ${AVRTEST_WARNINGS})
target_compile_definitions(avrtest_benchkit PRIVATE AVRTEST_PATH="$<TARGET_FILE:avrtest>")
target_link_libraries(avrtest_benchkit PUBLIC avrtest_simprocess util Threads::Threads)
add_dependencies(avrtest_benchkit avrtest)
