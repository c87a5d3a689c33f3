# A library is a folder of Sources/ with a CMake target of its own. Headers are included by the
# library's folder, as in "System/Clock.hpp". The include path of a target holds a link to the
# folder of each library that it depends on, and nothing else, so an include against the direction
# of dependency does not compile.
#
#   zephyl_library(NAME [INTERFACE] [FOLDER path] [PRECOMPILED target]
#                  [SOURCES file...] [DEPENDS target...] [PRIVATE_DEPENDS target...])
#
# FOLDER is the folder below Sources/, by default NAME. PRECOMPILED names the target whose
# precompiled header is used.
function(zephyl_library name)
  cmake_parse_arguments(LIBRARY "INTERFACE" "FOLDER;PRECOMPILED" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(NOT LIBRARY_FOLDER)
    set(LIBRARY_FOLDER ${name})
  endif()
  set(include_root "${PROJECT_BINARY_DIR}/include/${name}")
  cmake_path(GET LIBRARY_FOLDER PARENT_PATH parent)
  file(MAKE_DIRECTORY "${include_root}/${parent}")
  file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}" "${include_root}/${LIBRARY_FOLDER}" SYMBOLIC)

  if(LIBRARY_INTERFACE)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${include_root}")
    target_link_libraries(${name} INTERFACE ${LIBRARY_DEPENDS})
    return()
  endif()
  add_library(${name} STATIC ${LIBRARY_SOURCES})
  target_include_directories(${name} PUBLIC "${include_root}")
  target_link_libraries(${name}
    PUBLIC ${LIBRARY_DEPENDS}
    PRIVATE ${LIBRARY_PRIVATE_DEPENDS} ZephylOptions)
  if(LIBRARY_PRECOMPILED)
    target_precompile_headers(${name} REUSE_FROM ${LIBRARY_PRECOMPILED})
  endif()
endfunction()
