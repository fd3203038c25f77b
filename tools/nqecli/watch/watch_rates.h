#ifndef TOOLS_NQECLI_WATCH_WATCH_RATES_H_
#define TOOLS_NQECLI_WATCH_WATCH_RATES_H_

#include <memory>
#include <string>
#include <vector>

#include "host/inspect/rates.h"
#include "tools/nqecli/attach.h"

namespace qdt::nqecli {

// The counters that a command shows: of "list TABLE", "show NAME", "regions NAME" and "statistics". Null for
// others. The words have been understood by the command itself before. `source` is of the place.
std::unique_ptr<host::CounterRates> RatesOf(const Place &place, const host::RecordSource &source,
                                            const std::vector<std::string> &command);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_WATCH_WATCH_RATES_H_
