# The benchmark kit: its figures and the table `make bench` ends with.
avrtest_add_test(bench_kit_test THREADED SOURCES bench_kit_test.cpp LIBS avrtest_benchkit)
target_compile_definitions(bench_kit_test PRIVATE AVRTEST_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
