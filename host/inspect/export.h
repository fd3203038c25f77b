#ifndef HOST_INSPECT_EXPORT_H_
#define HOST_INSPECT_EXPORT_H_

#include <string>

#include "host/record/record_source.h"
#include "host/record/text_out.h"

namespace qdt::host {

// The rules of an engine's NAT policy, which stand in no table.
struct NatPolicyLines {
  std::string entries;  // as a scenario has them, a line each
  std::string unknown;  // where they could not be asked for, why
};

// Writes what the source holds as one scenario that an engine loads into an equal arena: all entries of all
// tables in their order, regions, the NAT policy and the statistics; not what it has measured of itself.
// Times are seconds ago. What a scenario cannot say stands in it as a comment that tells why; returns the
// number of such comments.
//
// The source is a saved arena: in a running engine's references and tables could disagree. Throws HostError
// as EntryReader does, and when the scenario would be larger than an engine loads.
uint32_t ExportScenario(const RecordSource &source, const NatPolicyLines &natPolicy, TextOut *out);

}  // namespace qdt::host

#endif  // HOST_INSPECT_EXPORT_H_
