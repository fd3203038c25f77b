#ifndef SRC_OM_OMA_REQUEST_H_
#define SRC_OM_OMA_REQUEST_H_

#include <cstdint>

#include "qdt/oma.h"

namespace qdt {

// What handlers and accessors return.
constexpr int32_t kDone = 0;
constexpr int32_t kFailed = -1;

// The text of a request's parameter, or null: a parameter without a text is as good as none.
inline const char *FindText(AgentRequest request, const char *name) {
  const char *text = nullptr;
  return QdtOmaParseStr(request, name, &text) == 0 ? text : nullptr;
}

}  // namespace qdt

#endif  // SRC_OM_OMA_REQUEST_H_
