# The benchmark kit: its figures and the table `make bench` ends with. (No
# test binary may be called bench_*: `make bench` runs all of those.)
avrtest_add_test(benchkit_test THREADED SOURCES benchkit_test.cpp LIBS avrtest_benchkit)
target_compile_definitions(benchkit_test PRIVATE AVRTEST_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
