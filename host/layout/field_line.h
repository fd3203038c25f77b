#ifndef HOST_LAYOUT_FIELD_LINE_H_
#define HOST_LAYOUT_FIELD_LINE_H_

#include <string>
#include <string_view>

#include "host/layout/layout_store.h"

namespace qdt::host {

// Reads the one-line form of a field: OFFSET TYPE [bit N | bits A-B] [x COUNT [every STRIDE]] [OPTION ...]
// [= VALUE] [-- MEANING], as docs/scenarios.md tells.
// Fills everything but the name and the line; false and a *problem when the line is wrong. Words are kept in
// `store`.
bool ParseFieldLine(std::string_view line, LayoutStore *store, Field *field, std::string *problem);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_FIELD_LINE_H_
