# SPDX-License-Identifier: MIT
# kelo_unity(target [file...])
# With KELO_UNITY each room of `target` is compiled as one file, which takes a quarter of the time: the headers are read
# once. The files named have names of their own in common with others of their room, and stay apart.
function(kelo_unity target)
  if(NOT KELO_UNITY)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    if(IS_ABSOLUTE ${source}) # of no room
      set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
      continue()
    endif()
    get_filename_component(room ${source} DIRECTORY)
    string(MAKE_C_IDENTIFIER "room_${room}" room)
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${room})
  endforeach()
  foreach(source IN LISTS ARGN)
    set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()
