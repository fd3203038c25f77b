#ifndef SRC_OM_NQE_CLI_USF_USER_TEXT_H_
#define SRC_OM_NQE_CLI_USF_USER_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/user.h"

// The pieces of the wireless-user view, in their order.
namespace qdt {

void PrintUserServices(Text &text, const UsfUserRecord &e);
void PrintUserParameters(Text &text, const UsfUserRecord &e);
void PrintUserFloodCars(Text &text, const UsfUserRecord &e);  // and what its TCP windows are turned to
void PrintUserAuthentication(Text &text, const UsfUserRecord &e);
void PrintUserCounters(Text &text, const UsfUserRecord &e);
void PrintLearntAddress(Text &text, const UsfUserRecord &e);

// The lines of one address family's counters.
void PrintUserTraffic(Text &text, const UserTraffic &traffic);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_USF_USER_TEXT_H_
