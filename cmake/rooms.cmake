# A room is one folder of the house. Its headers are seen, as "room/header.h", by those that name one of its libraries,
# and by nobody else; which rooms one may name is told by the table in docs/architecture.md, and by that alone.
set(SENVO_ROOMS_TABLE ${CMAKE_SOURCE_DIR}/docs/architecture.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${SENVO_ROOMS_TABLE})
file(STRINGS ${SENVO_ROOMS_TABLE} rows REGEX "^\\| `[a-z/]+/` +\\|")
foreach(row ${rows})
  string(REGEX MATCHALL "`[a-z/]+/`" names "${row}")
  string(REGEX REPLACE "`|/`" "" names "${names}")
  list(POP_FRONT names room)
  list(APPEND SENVO_ROOMS ${room})
  set(SENVO_SEEN_BY_${room} ${names})
endforeach()

# The name of the room whose folder this is: its path, on the desktop without "platform/".
function(senvo_room_here room)
  file(RELATIVE_PATH path ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  string(REGEX REPLACE "^platform/desktop" "desktop" path ${path})
  set(${room} ${path} PARENT_SCOPE)
endfunction()

# A library of the room whose folder this is. DEPENDS are the libraries that its headers need, USES those that only its
# sources need. PLAIN headers are found by their mere file names, too.
function(senvo_room name)
  cmake_parse_arguments(ROOM "PLAIN" "" "SOURCES;DEPENDS;USES" ${ARGN})
  senvo_room_here(room)
  if(NOT room IN_LIST SENVO_ROOMS)
    message(FATAL_ERROR "${name}: expected a row of ${room}/ in the table of docs/architecture.md, found none")
  endif()
  string(REPLACE "/" "_" folder ${room})
  set(folder ${CMAKE_BINARY_DIR}/rooms/${folder})
  cmake_path(GET room PARENT_PATH above)
  file(MAKE_DIRECTORY ${folder}/${above})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${folder}/${room} SYMBOLIC)

  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${folder})
  if(ROOM_PLAIN)
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  target_link_libraries(${name} PRIVATE ${ROOM_USES} senvo_warnings PUBLIC ${ROOM_DEPENDS})
  set_property(TARGET ${name} PROPERTY SENVO_ROOM ${room})
  set_property(GLOBAL APPEND PROPERTY SENVO_ROOM_LIBRARIES ${name})
endfunction()
