#ifndef TOOLS_OMAD_SESSION_XPATH_H_
#define TOOLS_OMAD_SESSION_XPATH_H_

#include <string>

#include "host/session/request.h"

namespace qdt::omad {

// A host::SelectXpath on the agent's data model, which is read when it is first wanted.
std::string SelectXpath(const std::string &path, const host::Bindings &bindings, const std::string &tree);

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_SESSION_XPATH_H_
