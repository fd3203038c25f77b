# Compiles SNIPPET of print.cc. With an EXPECTED message the compiler must fail and say it; without, it must
# succeed.
execute_process(COMMAND ${COMPILER} -std=c++20 -fsyntax-only -Wall -Wextra -Werror -DSNIPPET=${SNIPPET}
                        -I${SOURCE_DIR} -I${SOURCE_DIR}/include ${SOURCE_DIR}/tests/compile_fail/print.cc
                RESULT_VARIABLE status ERROR_VARIABLE messages OUTPUT_VARIABLE messages)
if(EXPECTED STREQUAL "")
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "the snippet should compile:\n${messages}")
  endif()
  return()
endif()
if(status EQUAL 0)
  message(FATAL_ERROR "the snippet should not compile")
endif()
string(FIND "${messages}" "${EXPECTED}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the compiler does not say \"${EXPECTED}\" but:\n${messages}")
endif()
