#ifndef SRC_OM_NQE_CLI_USF_EAP_TEXT_H_
#define SRC_OM_NQE_CLI_USF_EAP_TEXT_H_

#include "src/om/common/text.h"
#include "src/om/engine/user.h"

namespace qdt {

// The whole log of a station's EAP exchange.
void PrintEapLog(Text &text, const EapLogEntry &e);

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_USF_EAP_TEXT_H_
