# What a bench machine gets: the console, the flashing tool and both
# emulators, each with its man page, and a Debian package of them.
set(AVRTEST_INSTALLED_PROGRAMS avrtest avrflash boardsim)
if(TARGET docksim)
  list(APPEND AVRTEST_INSTALLED_PROGRAMS docksim)
endif()
include(GNUInstallDirs)
install(TARGETS ${AVRTEST_INSTALLED_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(program ${AVRTEST_INSTALLED_PROGRAMS})
  install(FILES "${CMAKE_SOURCE_DIR}/docs/${program}.1" DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME avrtest)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Bench test console for the diskpack boards and docks, with emulators")
set(CPACK_PACKAGE_CONTACT "avrtest maintainers <avrtest@localhost>")
set(CPACK_RESOURCE_FILE_LICENSE "${CMAKE_SOURCE_DIR}/LICENSE")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
# dpkg-shlibdeps works out the runtime libraries the programs link against.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
