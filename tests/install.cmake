# The installed tools, run from a temporary prefix.
add_test(NAME installed_tools_test
  COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/install/installed_tools_test.sh" "${CMAKE_BINARY_DIR}")
set_tests_properties(installed_tools_test PROPERTIES LABELS unit TIMEOUT 120)
