# While the tree is being filled: planex_present_sources(<out> <pattern> <file>...) gives the listed
# files that exist, and those that match the pattern without being listed; it reports both.
function(planex_present_sources out pattern)
  set(result)
  foreach(file IN LISTS ARGN)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
      list(APPEND result ${file})
    else()
      message(STATUS "planex: not there yet: ${file}")
    endif()
  endforeach()
  file(
    GLOB found
    RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
    CONFIGURE_DEPENDS ${pattern})
  list(REMOVE_ITEM found ${ARGN})
  if(found)
    message(STATUS "planex: not listed: ${found}")
    list(APPEND result ${found})
  endif()
  set(${out} ${result} PARENT_SCOPE)
endfunction()
