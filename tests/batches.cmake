# Test sources compile several at a time: most of what one costs is templates (GoogleTest's, containers) that the next one
# needs as well. With -DQDT_TEST_BATCH=1 each is compiled by itself.
set(QDT_TEST_BATCH 8 CACHE STRING "How many test sources are compiled at a time")
set(QDT_JOIN_SOURCES ${CMAKE_CURRENT_LIST_DIR}/join_sources.cmake)

# qdt_batches(RESULT NAME SOURCE...): the sources to compile in place of these, whose batches are called after NAME.
# Macros would reach the next source: who defines some is compiled alone.
function(qdt_batches result name)
  set(sources)
  set(alone)
  foreach(source ${ARGN})
    file(STRINGS ${source} macros REGEX "^#define" LIMIT_COUNT 1)
    if(macros OR QDT_TEST_BATCH LESS 2)
      list(APPEND alone ${source})
    else()
      list(APPEND sources ${source})
    endif()
  endforeach()
  list(LENGTH sources count)
  math(EXPR batches "(${count} + ${QDT_TEST_BATCH} - 1) / ${QDT_TEST_BATCH}")
  if(batches GREATER 0)
    math(EXPR last "${batches} - 1")
    foreach(number RANGE ${last})
      # As many in each.
      math(EXPR begin "${count} * ${number} / ${batches}")
      math(EXPR size "${count} * (${number} + 1) / ${batches} - ${begin}")
      list(SUBLIST sources ${begin} ${size} batch)
      set(joined ${CMAKE_CURRENT_BINARY_DIR}/${name}_${number}.cc)
      add_custom_command(OUTPUT ${joined} COMMAND ${CMAKE_COMMAND} -P ${QDT_JOIN_SOURCES} ${joined} ${batch}
                         DEPENDS ${batch} ${QDT_JOIN_SOURCES} COMMENT "" VERBATIM)
      list(APPEND alone ${joined})
    endforeach()
  endif()
  set(${result} ${alone} PARENT_SCOPE)
endfunction()
