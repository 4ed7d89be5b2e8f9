# JUCE's core and events modules, compiled once into a static library of the
# project. The module sources come from Debian's juce-modules-source-data, which
# ships no build system, so the two unity files are compiled here directly.
set(AVRTEST_JUCE_MODULES "/usr/share/juce/modules" CACHE PATH "Directory holding the JUCE modules")

if(NOT EXISTS "${AVRTEST_JUCE_MODULES}/juce_core/juce_core.cpp")
  message(FATAL_ERROR "JUCE modules not found in ${AVRTEST_JUCE_MODULES}; install juce-modules-source-data")
endif()

add_library(avrjuce STATIC
  "${AVRTEST_JUCE_MODULES}/juce_core/juce_core.cpp"
  "${AVRTEST_JUCE_MODULES}/juce_events/juce_events.cpp")

target_include_directories(avrjuce SYSTEM PUBLIC "${AVRTEST_JUCE_MODULES}")
target_compile_definitions(avrjuce PUBLIC
  JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
  JUCE_STANDALONE_APPLICATION=1
  JUCE_MODULE_AVAILABLE_juce_core=1
  JUCE_MODULE_AVAILABLE_juce_events=1
  JUCE_USE_CURL=0
  JUCE_WEB_BROWSER=0
  JUCE_DISPLAY_SPLASH_SCREEN=0
  JUCE_REPORT_APP_USAGE=0
  JUCE_DONT_DECLARE_PROJECTINFO=1
  $<IF:$<CONFIG:Debug>,DEBUG=1,NDEBUG=1>)
# Third-party code: its warnings are not ours to fix.
target_compile_options(avrjuce PRIVATE -w)
find_package(Threads REQUIRED)
# Debian's module sources use the system zlib, so whatever links JUCE needs it
# after JUCE on the link line.
find_package(ZLIB REQUIRED)
target_link_libraries(avrjuce PUBLIC Threads::Threads ZLIB::ZLIB ${CMAKE_DL_LIBS} rt)
