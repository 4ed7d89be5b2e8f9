# The dock platform that talks to the dock emulator's socket, against a scripted server.
avrtest_add_test(emulated_platform_test THREADED SOURCES emulated_platform_test.cpp LIBS dockbackends avrtest_testsupport)
