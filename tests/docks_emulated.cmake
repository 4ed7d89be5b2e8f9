# The dock platform that talks to the dock emulator's socket, against a
# scripted server inside the test.
avrtest_add_test(emulated_platform_test THREADED SOURCES emulated_platform_test.cpp LIBS dockbackends avrtest_testsupport)
# JUCE's zip code calls zlib, which must come after it on the link line.
target_link_libraries(emulated_platform_test PRIVATE avrjuce ZLIB::ZLIB)
