# Desktop transfer station and dual SAS transfer boards.
avrtest_add_test(desktop_board_test SOURCES desktop_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(xferdual_board_test SOURCES xferdual_board_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(boards_b_sim_test THREADED SOURCES boards_b_sim_test.cpp LIBS avrtest_testsupport)
