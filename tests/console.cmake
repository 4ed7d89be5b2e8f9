# The avrtest console: in-process tests of its parts, and end-to-end runs of
# the program on a pseudo-terminal against scripted boards and the emulator.
add_library(avrtest_consolesupport STATIC console/ConsoleSession.cpp)
target_include_directories(avrtest_consolesupport PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
target_compile_options(avrtest_consolesupport PRIVATE ${AVRTEST_WARNINGS})
target_compile_definitions(avrtest_consolesupport PRIVATE AVRTEST_BIN_DIR="${CMAKE_BINARY_DIR}/bin")
target_link_libraries(avrtest_consolesupport PUBLIC avrtest_testsupport util)
add_dependencies(avrtest_consolesupport avrtest)

avrtest_add_test(console_parts_test SOURCES console/console_parts_test.cpp LIBS avrconsole avrtest_testsupport)
avrtest_add_test(console_entry_test SOURCES console/console_entry_test.cpp LIBS avrtest_consolesupport)
avrtest_add_test(console_diskpack_test SOURCES console/console_diskpack_test.cpp LIBS avrtest_consolesupport)
avrtest_add_test(console_boards_test SOURCES
  console/console_chassis_test.cpp
  console/console_transfer_test.cpp
  console/console_desktop_test.cpp
  console/console_xferdual_test.cpp
  console/console_remote_test.cpp
  LIBS avrtest_consolesupport)
avrtest_add_test(console_threads_test THREADED SOURCES console/console_threads_test.cpp
  LIBS avrconsole avrtest_consolesupport)
