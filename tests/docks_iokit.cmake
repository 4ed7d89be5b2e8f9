# The macOS backend of the dock platform is neither built nor run away from a
# Mac. Elsewhere its sources are still compiled for syntax against
# tests/macos-sdk, which declares only what the backend uses, copied from
# Apple's public headers: a call with the wrong number or types of arguments
# fails this test. JUCE comes in as a system directory, as in the build.
if(NOT APPLE)
  file(GLOB IOKIT_BACKEND_SOURCES CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/docks/platform/iokit/*.cpp")
  set(IOKIT_JUCE_DEFINITIONS "$<TARGET_PROPERTY:avrjuce,INTERFACE_COMPILE_DEFINITIONS>")
  add_test(NAME iokit_syntax_check
    COMMAND ${CMAKE_CXX_COMPILER} -std=c++17 -fsyntax-only -Wall -Wextra -Werror
            -I "${CMAKE_SOURCE_DIR}/tests/macos-sdk"
            -I "${CMAKE_SOURCE_DIR}"
            -isystem "${AVRTEST_JUCE_MODULES}"
            "-D$<JOIN:${IOKIT_JUCE_DEFINITIONS},;-D>"
            ${IOKIT_BACKEND_SOURCES}
    COMMAND_EXPAND_LISTS)
  set_tests_properties(iokit_syntax_check PROPERTIES LABELS unit TIMEOUT 120)
endif()
