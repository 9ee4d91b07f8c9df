# make install, packages, and the files by which other builds find the library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The man page, the pages of the manual and KORHELP come from docs/manual.
set(manual_made ${CMAKE_BINARY_DIR}/korvel.1 ${CMAKE_BINARY_DIR}/KORHELP
    ${CMAKE_BINARY_DIR}/manual/README.html)
add_custom_command(OUTPUT ${manual_made}
  COMMAND make_help man ${CMAKE_SOURCE_DIR}/docs/manual ${CMAKE_BINARY_DIR}/korvel.1
  COMMAND make_help text ${CMAKE_SOURCE_DIR}/docs/manual ${CMAKE_BINARY_DIR}/KORHELP
  COMMAND make_help html ${CMAKE_SOURCE_DIR}/docs/manual ${CMAKE_BINARY_DIR}/manual
  DEPENDS make_help ${manual})
add_custom_target(manual_pages ALL DEPENDS ${manual_made})

install(TARGETS korvel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS korvel_shared EXPORT korvel LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/korvel.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_BINARY_DIR}/korvel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_BINARY_DIR}/KORHELP DESTINATION ${CMAKE_INSTALL_DATADIR}/korvel)
install(DIRECTORY ${CMAKE_BINARY_DIR}/manual/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/manual)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN "*.out" EXCLUDE)
install(FILES LICENSE RENAME copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY editors/vim/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vim/vimfiles)
install(EXPORT korvel NAMESPACE korvel:: FILE korvel-config.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvel)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/korvel-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/korvel-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvel)
configure_file(cmake/korvel.pc.in ${CMAKE_BINARY_DIR}/korvel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/korvel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# cpack -G DEB in the build folder makes korvel_<version>_<machine>.deb.
set(CPACK_PACKAGE_NAME korvel)
set(CPACK_PACKAGE_CONTACT "KORVEL engineers <korvel@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "econometrics and statistics by commands")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36), libstdc++6 (>= 12), zlib1g")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libedit2, libcurl4, gnuplot-nox | gnuplot")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "gnupg, xlsx2csv")
set(CPACK_DEBIAN_PACKAGE_SECTION math)
include(CPack)
