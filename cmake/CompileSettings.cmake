# Every target links pelkam_compile_settings instead of touching global flags.
add_library(pelkam_compile_settings INTERFACE)
target_compile_features(pelkam_compile_settings INTERFACE cxx_std_17)
set_target_properties(pelkam_compile_settings PROPERTIES INTERFACE_CXX_EXTENSIONS OFF)
target_compile_options(pelkam_compile_settings INTERFACE -Wall -Wextra -Wpedantic -Wshadow=local)
target_compile_definitions(pelkam_compile_settings INTERFACE
  QT_DISABLE_DEPRECATED_BEFORE=0x050F00
  QT_NO_FOREACH
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  PELKAM_VERSION="${PROJECT_VERSION}")
if(PELKAM_WERROR)
  target_compile_options(pelkam_compile_settings INTERFACE -Werror)
endif()
if(PELKAM_SANITIZE)
  target_compile_options(pelkam_compile_settings INTERFACE
    -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(pelkam_compile_settings INTERFACE -fsanitize=address,undefined)
endif()
