#ifndef HOST_NACM_RULES_FILE_H_
#define HOST_NACM_RULES_FILE_H_

#include <libyang/libyang.h>

#include <span>
#include <string>

#include "host/nacm/rules.h"

namespace qdt::host {

// The rules that these files hold together, each the container nacm of ietf-netconf-acm in XML or JSON; a
// directory stands for its files, in the order of their names. Lists of rules come in the order of the files.
// `context` holds the modules that rules may name. Throws HostError "FILE:LINE: what is wrong (how to mend
// it)".
NacmRules ReadNacmRules(const ly_ctx *context, std::span<const std::string> paths);

}  // namespace qdt::host

#endif  // HOST_NACM_RULES_FILE_H_
