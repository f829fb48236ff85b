# Installing the Linux program and kestrinectl, and the Debian package
# (CPack): the window's program lives in lib/kestrine beside its Connect.ico,
# with bin/kestrine a link to it, so the program's folder is its own.
include(GNUInstallDirs)

set(KESTRINE_PROGRAM_DIR lib/kestrine) # the program's own folder, as Debian keeps private programs
install(TARGETS kestrine RUNTIME DESTINATION ${KESTRINE_PROGRAM_DIR})
install(FILES ${PROJECT_SOURCE_DIR}/res/kestrine.ico DESTINATION ${KESTRINE_PROGRAM_DIR} RENAME Connect.ico)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/package-files)
file(CREATE_LINK ../${KESTRINE_PROGRAM_DIR}/kestrine ${CMAKE_BINARY_DIR}/package-files/kestrine SYMBOLIC)
install(FILES ${CMAKE_BINARY_DIR}/package-files/kestrine DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS kestrinectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES ${PROJECT_SOURCE_DIR}/res/linux/kestrine.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
foreach(size 16 24 32 48 64 128 256)
  install(FILES ${PROJECT_SOURCE_DIR}/res/icons/kestrine-${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps RENAME kestrine.png)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/res/linux/kestrinectl.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kestrinectl)
install(FILES ${PROJECT_SOURCE_DIR}/res/linux/_kestrinectl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

# Manual pages, compressed as Debian keeps them.
foreach(page kestrine kestrinectl)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/package-files/${page}.1.gz
                     COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/docs/man/${page}.1 > ${CMAKE_BINARY_DIR}/package-files/${page}.1.gz
                     DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/${page}.1)
  list(APPEND KESTRINE_MAN_PAGES ${CMAKE_BINARY_DIR}/package-files/${page}.1.gz)
endforeach()
add_custom_target(kestrine_man_pages ALL DEPENDS ${KESTRINE_MAN_PAGES})
install(FILES ${KESTRINE_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/res/linux/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kestrine)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrine)
set(CPACK_PACKAGE_VENDOR "Kestrine")
set(CPACK_PACKAGE_CONTACT "Kestrine developers <kestrine@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "watch the drives and release USB drives safely")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "Kestrine lists every drive of the computer with its label, kind and sizes,\n"
    "reacts when a drive comes or goes, and releases USB drives: every file\n"
    "system of the stick unmounted, dm-crypt and LVM volumes on it taken down,\n"
    "and the stick powered off, or, when a process holds it, a refusal that\n"
    "names the process. kestrinectl does the same from the command line.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# sd-bus and libdevmapper are opened at run time, so the scan of linked
# libraries does not see them.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libsystemd0, libdevmapper1.02.1")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "udisks2, polkitd")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "pkexec")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
include(CPack)
