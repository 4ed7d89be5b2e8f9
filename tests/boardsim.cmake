# The board emulator on its own: the wire, the faults, the board personalities and the bootloader.
avrtest_add_test(boardsim_test SOURCES boardsim_test.cpp LIBS boardsim_core)
