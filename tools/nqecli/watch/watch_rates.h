#ifndef TOOLS_NQECLI_WATCH_WATCH_RATES_H_
#define TOOLS_NQECLI_WATCH_WATCH_RATES_H_

#include <memory>
#include <string>
#include <vector>

#include "host/inspect/rates.h"

namespace qdt::nqecli {

// The counters that a command shows: of "list TABLE", "regions NAME" and "statistics". Null for others. The
// words have been understood by the command itself before.
std::unique_ptr<host::CounterRates> RatesOf(const host::RecordSource &source,
                                            const std::vector<std::string> &command);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_WATCH_WATCH_RATES_H_
