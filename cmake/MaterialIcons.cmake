# The Material Icons font comes from Debian; its name table only as a SCSS map.
# Build the plain "codepoints" table from it and compile both into resources.
set(PELKAM_ICON_FONT_DIR "/usr/share/fonts/truetype/material-design-icons-iconfont"
    CACHE PATH "Folder holding MaterialIcons-Regular.ttf")
set(PELKAM_ICON_SCSS "/usr/share/fonts-material-design-icons-iconfont/scss/_variables.scss"
    CACHE FILEPATH "SCSS file holding the Material Icons code point map")
set(PELKAM_ICON_FONT "${PELKAM_ICON_FONT_DIR}/MaterialIcons-Regular.ttf")
if(NOT EXISTS "${PELKAM_ICON_FONT}" OR NOT EXISTS "${PELKAM_ICON_SCSS}")
  message(FATAL_ERROR "Material Icons not found: install fonts-material-design-icons-iconfont")
endif()

set(PELKAM_ICON_DIR "${CMAKE_BINARY_DIR}/qtmf/src_v48")
# Generated while configuring the build tree, so every target sees the files.
execute_process(
  COMMAND ${CMAKE_COMMAND} -DSCSS=${PELKAM_ICON_SCSS} -DOUT=${PELKAM_ICON_DIR}/codepoints
          -P "${CMAKE_SOURCE_DIR}/cmake/GenerateCodepoints.cmake"
  RESULT_VARIABLE codepoints_result)
if(NOT codepoints_result EQUAL 0)
  message(FATAL_ERROR "Cannot generate the Material Icons codepoints table")
endif()
file(COPY "${PELKAM_ICON_FONT}" DESTINATION "${PELKAM_ICON_DIR}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${PELKAM_ICON_SCSS}" "${CMAKE_SOURCE_DIR}/cmake/GenerateCodepoints.cmake")
file(WRITE "${CMAKE_BINARY_DIR}/qtmf/qtmf.qrc.in"
"<RCC>\n  <qresource prefix=\"/qtmf/src_v48\">\n    <file alias=\"MaterialIcons-Regular.ttf\">src_v48/MaterialIcons-Regular.ttf</file>\n    <file alias=\"codepoints\">src_v48/codepoints</file>\n  </qresource>\n</RCC>\n")
configure_file("${CMAKE_BINARY_DIR}/qtmf/qtmf.qrc.in" "${CMAKE_BINARY_DIR}/qtmf/qtmf.qrc" COPYONLY)
set(PELKAM_ICON_QRC "${CMAKE_BINARY_DIR}/qtmf/qtmf.qrc")
