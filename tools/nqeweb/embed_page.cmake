# cmake "-DPAGE_FILES=A;B" "-DLIBRARY_FILES=C" -DPAGE_DIR=DIR -DOUTPUT=FILE.cc -P embed_page.cmake: files as constants. Those
# of the page stand under their path in DIR, libraries under /lib/ and their name.
set(types "html=text/html\; charset=utf-8" "js=text/javascript\; charset=utf-8" "css=text/css\; charset=utf-8"
          "svg=image/svg+xml" "png=image/png" "ico=image/x-icon" "json=application/json" "txt=text/plain\; charset=utf-8"
          "woff2=font/woff2" "webmanifest=application/manifest+json")
set(arrays "")
set(rows "")
set(number 0)

macro(embed file path)
  string(REGEX REPLACE ".*\\." "" ending "${path}")
  set(type "")
  foreach(row IN LISTS types)
    if(row MATCHES "^${ending}=(.*)$")
      set(type "${CMAKE_MATCH_1}")
    endif()
  endforeach()
  if(type STREQUAL "")
    message(FATAL_ERROR "${file}: no content type is known for .${ending} (add a row to embed_page.cmake)")
  endif()
  file(SHA256 "${file}" hash)
  string(SUBSTRING ${hash} 0 24 hash)
  file(READ "${file}" bytes HEX)
  string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "constexpr char kFile${number}[] = {\n${bytes}0};\n")
  string(APPEND rows "    {\"${path}\", \"${type}\", \"\\\"${hash}\\\"\", {kFile${number}, sizeof(kFile${number}) - 1}},\n")
  math(EXPR number "${number} + 1")
endmacro()

foreach(file IN LISTS PAGE_FILES)
  file(RELATIVE_PATH path "${PAGE_DIR}" "${file}")
  embed("${file}" "/${path}")
endforeach()
foreach(file IN LISTS LIBRARY_FILES)
  get_filename_component(name "${file}" NAME)
  embed("${file}" "/lib/${name}")
endforeach()
file(WRITE "${OUTPUT}" "#include \"tools/nqeweb/page.h\"

namespace qdt::nqeweb {
namespace {

${arrays}
constexpr host::PageFile kFiles[] = {
${rows}};

}  // namespace

std::span<const host::PageFile> PageFiles() { return kFiles; }

}  // namespace qdt::nqeweb
")
