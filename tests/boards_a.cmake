# Diskpack, chassis, transfer station and remote control boards.
avrtest_add_test(diskpack_board_test SOURCES diskpack_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(chassis_board_test SOURCES chassis_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(transfer_board_test SOURCES transfer_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(remote_board_test SOURCES remote_board_test.cpp LIBS avrtest_testsupport)
