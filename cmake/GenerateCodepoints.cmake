# cmake -DSCSS=<_variables.scss> -DOUT=<codepoints> -P GenerateCodepoints.cmake
# Writes one "name hex" line per icon, names ascending, LF line ends.
file(STRINGS "${SCSS}" lines REGEX "^[ \t]*\"[^\"]+\"[ \t]*:[ \t]*[0-9a-fA-F]+")
set(entries "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[ \t]*\"([^\"]+)\"[ \t]*:[ \t]*([0-9a-fA-F]+)")
    list(APPEND entries "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
  endif()
endforeach()
list(SORT entries)
list(JOIN entries "\n" text)
file(WRITE "${OUT}.tmp" "${text}\n")
file(RENAME "${OUT}.tmp" "${OUT}")
