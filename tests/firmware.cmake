# Firmware updaters and the flashing tool.
avrtest_add_test(firmware_test SOURCES firmware_test.cpp LIBS avrtest_testsupport)
avrtest_add_test(avrflash_test SOURCES avrflash_test.cpp LIBS avrflash_core avrtest_testsupport)
# The avrflash program end to end against boardsim's bootloader.
avrtest_add_test(firmware_sim_test THREADED SOURCES firmware_sim_test.cpp LIBS avrflash_core avrtest_testsupport)
add_dependencies(firmware_sim_test avrflash)
