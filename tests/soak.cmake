# A short fault soak of the serial link (bench/soak.cpp): the board's thread
# runs against the console thread, so it runs under TSan too.
add_test(NAME soak_short COMMAND bench_soak 1000)
set_tests_properties(soak_short PROPERTIES LABELS "soak;threaded" TIMEOUT 110)
add_dependencies(avrtest_threaded_tests bench_soak)
