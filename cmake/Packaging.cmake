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

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pelkam)
set(CPACK_PACKAGE_VENDOR Tarvel)
set(CPACK_PACKAGE_CONTACT "Tarvel <support@tarvel.dev>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Manage the files of MicroPython boards")
set(CPACK_PACKAGE_DESCRIPTION
    "Pelkam opens the serial port of a MicroPython board (STM32 or ESP32), shows its console and\
 manages its files: upload, download, synchronise, install packages and edit them in a code editor.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://tarvel.dev/pelkam)
# Library dependencies come from the binaries themselves (dpkg-shlibdeps).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
