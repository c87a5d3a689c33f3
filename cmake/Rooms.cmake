# A room is a folder of Sources/ that is a library of its own. Headers are included by room,
# "System/Clock.hpp", and a target sees a room's headers only when it links to that room: the
# include path holds a link to that one folder. So an include against the direction of
# dependency does not compile.
function(zephyl_room name)
  cmake_parse_arguments(ROOM "INTERFACE" "FOLDER" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(NOT ROOM_FOLDER)
    set(ROOM_FOLDER ${name})
  endif()
  set(include_root "${PROJECT_BINARY_DIR}/rooms/${name}")
  cmake_path(GET ROOM_FOLDER PARENT_PATH parent)
  file(MAKE_DIRECTORY "${include_root}/${parent}")
  file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}" "${include_root}/${ROOM_FOLDER}" SYMBOLIC)

  if(ROOM_INTERFACE)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${include_root}")
    target_link_libraries(${name} INTERFACE ${ROOM_DEPENDS})
  else()
    add_library(${name} STATIC ${ROOM_SOURCES})
    target_include_directories(${name} PUBLIC "${include_root}")
    target_link_libraries(${name} PUBLIC ${ROOM_DEPENDS} PRIVATE ${ROOM_PRIVATE_DEPENDS})
  endif()
endfunction()
