# cmake "-DIN=MODULE.yang;..." -DOUT=FILE.cc -P embed.cmake: YANG modules as strings. Compilers bound the length of one
# string literal, so a text is joined from a literal a line.
set(rows "")
foreach(module IN LISTS IN)
  get_filename_component(name ${module} NAME)
  string(REGEX REPLACE "(@.*)?[.]yang$" "" name ${name})
  file(READ ${module} text)
  string(REGEX REPLACE "\n$" "" text "${text}")
  string(REPLACE "\n" ")yang\" \"\\n\"\n     R\"yang(" text "${text}")
  string(APPEND rows "    {\"${name}\",\n     R\"yang(${text})yang\" \"\\n\"},\n")
endforeach()
file(WRITE ${OUT} "#include \"host/omcc/embedded_modules.h\"

namespace qdt::host {
namespace {

constexpr EmbeddedModule kModules[] = {
${rows}};

}  // namespace

std::span<const EmbeddedModule> EmbeddedModules() { return kModules; }

}  // namespace qdt::host
")
