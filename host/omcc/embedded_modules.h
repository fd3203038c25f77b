#ifndef HOST_OMCC_EMBEDDED_MODULES_H_
#define HOST_OMCC_EMBEDDED_MODULES_H_

#include <span>

namespace qdt::host {

// The YANG modules of yang/, which travel inside the programs.
struct EmbeddedModule {
  const char *name;
  const char *text;
};

// The data model of this agent comes first.
std::span<const EmbeddedModule> EmbeddedModules();

}  // namespace qdt::host

#endif  // HOST_OMCC_EMBEDDED_MODULES_H_
