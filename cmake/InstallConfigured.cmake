# Installs a file that contains paths of the installation. The paths are inserted during the
# installation, so that `cmake --install --prefix` is respected.
#
#   zephyl_install_configured(FILE DESTINATION COMPONENT)
#
# FILE ends in ".in" and is installed without that. "@bindir@" in it becomes the directory of the
# programs.
function(zephyl_install_configured file destination component)
  cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" OUTPUT_VARIABLE template)
  cmake_path(GET template STEM LAST_ONLY name)
  set(result "${CMAKE_CURRENT_BINARY_DIR}/configured/${name}")
  install(CODE "
    set(bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    configure_file(\"${template}\" \"${result}\" @ONLY)"
    COMPONENT ${component})
  install(FILES "${result}" DESTINATION "${destination}" COMPONENT ${component})
endfunction()
