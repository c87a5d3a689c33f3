# Embeds images of Packaging/icons in a library.
#
#   zephyl_embed_images(TARGET HEADER FORMAT IMAGE...)
#
# Creates HEADER, which contains an array for each IMAGE, for the library's sources. embed_images.py
# describes FORMAT and IMAGE. The file of an image is relative to Packaging/icons. The header is
# written when the tree is configured, so that tools which only read the sources find it.
find_program(ZEPHYL_RSVG_CONVERT rsvg-convert REQUIRED)
find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)
set(ZEPHYL_EMBED_IMAGES "${CMAKE_CURRENT_LIST_DIR}/embed_images.py")

function(zephyl_embed_images target header format)
  set(icons "${PROJECT_SOURCE_DIR}/Packaging/icons")
  set(directory "${CMAKE_CURRENT_BINARY_DIR}/images")
  set(sources "${ZEPHYL_EMBED_IMAGES}" "${CMAKE_CURRENT_LIST_FILE}")
  list(TRANSFORM ARGN REPLACE "=" "=${icons}/" OUTPUT_VARIABLE images)
  foreach(image ${images})
    string(REGEX REPLACE "^[^=]*=([^:]*):.*$" "\\1" file "${image}")
    list(APPEND sources "${file}")
  endforeach()
  list(REMOVE_DUPLICATES sources)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sources})

  set(isCurrent TRUE)
  foreach(source ${sources})
    if("${source}" IS_NEWER_THAN "${directory}/${header}")
      set(isCurrent FALSE)
    endif()
  endforeach()
  if(NOT isCurrent)
    file(MAKE_DIRECTORY "${directory}")
    execute_process(
      COMMAND "${Python3_EXECUTABLE}" "${ZEPHYL_EMBED_IMAGES}" "${ZEPHYL_RSVG_CONVERT}"
              "${directory}/${header}" ${format} ${images}
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
  target_include_directories(${target} PRIVATE "${directory}")
endfunction()
