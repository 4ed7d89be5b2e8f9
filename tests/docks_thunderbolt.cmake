# The Thunderbolt docks against an in-process fake of their driver and the
# registry around it. Threaded: the boards' poll threads run.
avrtest_add_test(tbtdock_test THREADED SOURCES tbtdock_test.cpp support/FakeDockRegistry.cpp
  LIBS tbtdock avrtest_testsupport)
