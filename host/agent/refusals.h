#ifndef HOST_AGENT_REFUSALS_H_
#define HOST_AGENT_REFUSALS_H_

#include <string_view>

namespace qdt::host {

// Whether a handler's answer says nothing but what was wrong with the request: the list of a command's forms
// in place of what it would have told, the message of a failed query, a remark about a parameter. What the
// engine itself refuses is not among it: that is told by the status of its reply.
bool OnlySaysWhatIsWrong(std::string_view text);

}  // namespace qdt::host

#endif  // HOST_AGENT_REFUSALS_H_
