# cmake -P join_sources.cmake OUT SOURCE...: one source of several, which keep what they hide to themselves: each has a
# namespace of its own around its unnamed one. Lines keep their numbers.
set(joined "")
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE 4 ${last})
  file(READ "${CMAKE_ARGV${i}}" text)
  string(REPLACE "\nnamespace {\n" "\ninline namespace source_${i} { namespace {\n" text "${text}")
  string(REPLACE "\n}  // namespace\n" "\n}}\n" text "${text}")
  string(APPEND joined "#line 1 \"${CMAKE_ARGV${i}}\"\n${text}")
endforeach()
file(WRITE "${CMAKE_ARGV3}" "${joined}")
