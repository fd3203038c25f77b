# cmake -DIN=MODEL.yang -DOUT=FILE.cc -P embed.cmake: the data model as a string. Compilers bound the length of one
# string literal, so the text is joined from a literal a line.
file(STRINGS ${IN} lines)
set(text "")
foreach(line IN LISTS lines)
  string(APPEND text "    R\"yang(${line})yang\" \"\\n\"\n")
endforeach()
file(WRITE ${OUT} "#include \"host/omcc/embedded_model.h\"

namespace qdt::host {

const char *EmbeddedModel() {
  return
${text}      ;
}

}  // namespace qdt::host
")
