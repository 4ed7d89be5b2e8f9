# The USB 3.0 transfer dock and its transport, against a scripted driver.
avrtest_add_test(usbdock_test THREADED SOURCES usbdock_test.cpp support/FakeUsbDockDriver.cpp support/FakeDockRegistry.cpp LIBS usbdock avrtest_testsupport)
