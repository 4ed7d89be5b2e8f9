# The six serial board classes: their wire lines against scripted replies, and
# their events end to end against the emulator.
avrtest_add_test(diskpack_board_test SOURCES diskpack_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(chassis_board_test SOURCES chassis_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(transfer_board_test SOURCES transfer_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(remote_board_test SOURCES remote_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(desktop_board_test SOURCES desktop_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(xferdual_board_test SOURCES xferdual_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(boards_sim_test THREADED SOURCES boards_sim_test.cpp LIBS avrtest_testsupport)
