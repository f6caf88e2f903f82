# Installs Pelkam like a desktop program (menu entry, icons, AppStream data)
# and describes the .deb that CPack builds from that installation.
set(PELKAM_APP_ID dev.tarvel.Pelkam)
set(PELKAM_LINUX_DIR ${CMAKE_SOURCE_DIR}/resources/linux)
install(FILES ${PELKAM_LINUX_DIR}/${PELKAM_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PELKAM_LINUX_DIR}/${PELKAM_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${PELKAM_LINUX_DIR}/icons/${PELKAM_APP_ID}.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(size 16 24 32 48 64 128 256)
  install(FILES ${PELKAM_LINUX_DIR}/icons/${PELKAM_APP_ID}-${size}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
          RENAME ${PELKAM_APP_ID}.png)
endforeach()

# Man pages come from the programs' own --help and --version (help2man), with
# the sections --help cannot carry (exit status, examples) in .h2m files.
find_program(PELKAM_HELP2MAN help2man REQUIRED)
find_program(PELKAM_GZIP gzip REQUIRED)
set(PELKAM_DOC_BUILD ${CMAKE_BINARY_DIR}/doc)
set(PELKAM_MAN_PAGES)
foreach(program pelkam pelkam-cli)
  set(page ${PELKAM_DOC_BUILD}/${program}.1)
  add_custom_command(
    OUTPUT ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PELKAM_DOC_BUILD}
    # The window's --help needs no screen; a sanitizer build must not fail on exit.
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen ASAN_OPTIONS=detect_leaks=0
            ${PELKAM_HELP2MAN} --no-info --section 1 --include ${PELKAM_LINUX_DIR}/man/${program}.h2m
            --output ${page} $<TARGET_FILE:${program}>
    COMMAND ${PELKAM_GZIP} -9nf ${page}
    DEPENDS ${program} ${PELKAM_LINUX_DIR}/man/${program}.h2m
    VERBATIM)
  list(APPEND PELKAM_MAN_PAGES ${page}.gz)
endforeach()
add_custom_command(
  OUTPUT ${PELKAM_DOC_BUILD}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PELKAM_DOC_BUILD}
  COMMAND ${PELKAM_GZIP} -9nc ${PELKAM_LINUX_DIR}/changelog > ${PELKAM_DOC_BUILD}/changelog.gz
  DEPENDS ${PELKAM_LINUX_DIR}/changelog)
add_custom_target(pelkam_docs ALL DEPENDS ${PELKAM_MAN_PAGES} ${PELKAM_DOC_BUILD}/changelog.gz)
install(FILES ${PELKAM_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PELKAM_LINUX_DIR}/copyright ${PELKAM_DOC_BUILD}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pelkam)
install(FILES ${PELKAM_LINUX_DIR}/pelkam-cli.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME pelkam-cli)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pelkam)
set(CPACK_PACKAGE_VENDOR Tarvel)
set(CPACK_PACKAGE_CONTACT "Tarvel <support@tarvel.dev>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Manage the files of MicroPython boards")
# Lines of at most 80 characters, as Debian's tools want them.
set(CPACK_PACKAGE_DESCRIPTION
    "Pelkam opens the serial port of a MicroPython board (STM32 or ESP32), shows\n\
its console and manages its files: upload, download, synchronise, install\n\
packages and edit them in a code editor. pelkam-cli does the same file\n\
operations from a shell.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://tarvel.dev/pelkam)
# Library dependencies come from the binaries themselves (dpkg-shlibdeps).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
