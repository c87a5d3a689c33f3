# A library is a folder of Sources/ with a CMake target of its own. Headers are included by the
# library's folder, as in "System/Concurrency/Clock.hpp". The include path of a target holds links to
# the headers of the libraries that it depends on, and nothing else, so an include against the
# direction of dependency does not compile.
#
#   zephyl_library(NAME [INTERFACE] [FOR_SPEED] [FOLDER path] [PRECOMPILED target]
#                  [SOURCES file...] [DEPENDS target...] [PRIVATE_DEPENDS target...])
#
# FOLDER is the folder below Sources/, by default NAME. PRECOMPILED names the target whose
# precompiled header is used. FOR_SPEED compiles the library for speed instead of size.
function(zephyl_library name)
  cmake_parse_arguments(LIBRARY "INTERFACE;FOR_SPEED" "FOLDER;PRECOMPILED" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(NOT LIBRARY_FOLDER)
    set(LIBRARY_FOLDER ${name})
  endif()
  set(include_root "${PROJECT_BINARY_DIR}/include/${name}")
  file(GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.hpp")
  file(REMOVE_RECURSE "${include_root}")
  file(MAKE_DIRECTORY "${include_root}/${LIBRARY_FOLDER}")
  foreach(header ${headers})
    cmake_path(GET header FILENAME file_name)
    file(CREATE_LINK "${header}" "${include_root}/${LIBRARY_FOLDER}/${file_name}" SYMBOLIC)
  endforeach()

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
    PRIVATE ${LIBRARY_PRIVATE_DEPENDS} ZephylOptions $<$<NOT:$<BOOL:${LIBRARY_FOR_SPEED}>>:ZephylSmall>)
  if(LIBRARY_PRECOMPILED)
    target_precompile_headers(${name} REUSE_FROM ${LIBRARY_PRECOMPILED})
  endif()
endfunction()
