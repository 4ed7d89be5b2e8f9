# The docks end to end over the emulator's socket, and avrflash on a dock.
avrtest_add_test(docks_sim_test THREADED SOURCES docks_sim_test.cpp LIBS avrdocks avrtest_testsupport)
add_dependencies(docks_sim_test docksim avrflash)
