#ifndef HOST_LAYOUT_FIELD_LINE_H_
#define HOST_LAYOUT_FIELD_LINE_H_

#include <string>
#include <string_view>

#include "host/layout/field.h"

namespace qdt::host {

// Reads the one-line form of a field: OFFSET TYPE [bit N | bits A-B] [x COUNT [every STRIDE]]
// [cleared_by cpcar] [= VALUE].
// Fills everything but the name and the line; false and a *problem when the line is wrong.
bool ParseFieldLine(std::string_view line, Field *field, std::string *problem);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_FIELD_LINE_H_
