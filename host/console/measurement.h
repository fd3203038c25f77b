#ifndef HOST_CONSOLE_MEASUREMENT_H_
#define HOST_CONSOLE_MEASUREMENT_H_

#include <string_view>

#include "host/record/record_source.h"
#include "host/record/text_out.h"

namespace qdt::host {

// Both measurements of an engine as it has them now.
void WriteMeasurement(TextOut *out, const RecordSource &source);
std::string_view MeasurementSchema();

}  // namespace qdt::host

#endif  // HOST_CONSOLE_MEASUREMENT_H_
