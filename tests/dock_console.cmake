# The dock console end to end: avrtest on a pseudo-terminal against the dock
# emulator, and the test records its autotests write.
avrtest_add_test(console_dock_test SOURCES console/console_dock_test.cpp
  LIBS avrdockconsole avrtest_consolesupport)
target_compile_definitions(console_dock_test PRIVATE DOCKSIM_PATH="$<TARGET_FILE:docksim>")
add_dependencies(console_dock_test docksim avrtest)
