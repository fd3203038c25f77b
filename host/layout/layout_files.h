#ifndef HOST_LAYOUT_LAYOUT_FILES_H_
#define HOST_LAYOUT_LAYOUT_FILES_H_

#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {

// One layout file.
struct LayoutText {
  std::string_view file;
  std::string_view text;
};

// Both throw HostError ("FILE:LINE: TABLE.FIELD: ...") when a file is not readable or a layout is wrong:
// every table id must be given once, fields must lie inside their records and apart from each other.
Layout ReadLayouts(const std::vector<LayoutText> &files);
// Reads every *.yaml file of the directory.
Layout ReadLayoutDirectory(const std::string &directory);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_FILES_H_
