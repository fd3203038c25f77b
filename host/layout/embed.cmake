# cmake -DOUT=FILE.cc -P embed.cmake -- LAYOUT.yaml...: the layout files as string literals.
set(texts "")
set(after FALSE)
foreach(i RANGE 1 ${CMAKE_ARGC})
  if(after AND NOT "${CMAKE_ARGV${i}}" STREQUAL "")
    file(READ ${CMAKE_ARGV${i}} text)
    get_filename_component(name ${CMAKE_ARGV${i}} NAME)
    string(APPEND texts "    {\"${name}\", R\"yaml(${text})yaml\"},\n")
  elseif("${CMAKE_ARGV${i}}" STREQUAL "--")
    set(after TRUE)
  endif()
endforeach()
file(WRITE ${OUT} "#include \"host/layout/layout.h\"

namespace qdt::host {

std::vector<LayoutText> EmbeddedLayouts() {
  return {
${texts}  };
}

}  // namespace qdt::host
")
