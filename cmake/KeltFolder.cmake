# kelt_folder(<name> SOURCES <file>... [USES <target>...] [LINKS <target>...])
#
# Makes the library kelt::<name> of the current folder. Its headers are included as "<name>/header.h", through a view
# directory that holds nothing but a link to this folder, so that a folder sees the headers of the targets it USES (and
# of those that they use) and no others: an include in the wrong direction does not compile.
function(kelt_folder name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;LINKS" ${ARGN})
  set(view ${PROJECT_BINARY_DIR}/views/${name})
  file(MAKE_DIRECTORY ${view})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${view}/${name} SYMBOLIC)

  add_library(kelt_${name} STATIC ${ARG_SOURCES})
  add_library(kelt::${name} ALIAS kelt_${name})
  target_include_directories(kelt_${name} PUBLIC ${view})
  target_link_libraries(
    kelt_${name}
    PUBLIC ${ARG_USES}
    PRIVATE kelt_options ${ARG_LINKS})
endfunction()

# kelt_room(<name> SOURCES <file>... [HEADERS <file>...] [USES <room>...] [LINKS <target>...])
#
# Makes the object library kelt_room_<name> of the directory <name> below the current folder, a part of the folder's code
# with headers of its own. They are included as "<name>/header.h", by the sources of the room and of the rooms that USE it
# (or use one that does) and by no others. A room within a room, <room>/<name>, is one of its own. LINKS holds for the
# rooms that use it as well. Every room sees what kelt_room_outside gives.
function(kelt_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;USES;LINKS" ${ARGN})
  string(MAKE_C_IDENTIFIER ${name} id)
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(view ${PROJECT_BINARY_DIR}/views/${folder}/room_${id})
  file(MAKE_DIRECTORY ${view}/${name})
  foreach(header IN LISTS ARG_HEADERS)
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${name}/${header} ${view}/${name}/${header} SYMBOLIC)
  endforeach()

  list(TRANSFORM ARG_SOURCES PREPEND ${name}/)
  list(TRANSFORM ARG_USES PREPEND kelt_room_)
  add_library(kelt_room_${id} OBJECT ${ARG_SOURCES})
  target_include_directories(kelt_room_${id} PUBLIC ${view})
  target_link_libraries(
    kelt_room_${id}
    PUBLIC kelt_room_outside ${ARG_USES} ${ARG_LINKS}
    PRIVATE kelt_options)
endfunction()

# kelt_loadable(<name> [SOURCES <file>...] LINKS <target>...)
#
# Makes the shared object keltconfig-<name>.so beside the binary, loaded only by runs that need it (base/module_loader.h).
function(kelt_loadable name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(kelt_loadable_${name} MODULE ${ARG_SOURCES} ${PROJECT_SOURCE_DIR}/base/loadable_thread_data.cpp)
  set_target_properties(
    kelt_loadable_${name}
    PROPERTIES PREFIX ""
               OUTPUT_NAME keltconfig-${name}
               LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  target_link_libraries(kelt_loadable_${name} PRIVATE kelt_options kelt_runtime ${ARG_LINKS})
  # Nothing of the static libraries in it is anybody else's to see or to replace, the C++ runtime included.
  target_link_options(kelt_loadable_${name} PRIVATE -Wl,--exclude-libs,ALL)
endfunction()
