#ifndef HOST_BASE_TRUST_H_
#define HOST_BASE_TRUST_H_

#include <sys/types.h>

#include <string>

namespace qdt::host {

// Whose arenas and sockets this process believes: those of its user, of root, and of users whom it was told
// to trust. Whoever writes an arena decides what its readers see, and leads them by addresses.

// Trusts a user, named or by number, for the rest of the process. Throws HostError when there is none.
void TrustUser(const std::string &user);

bool IsTrusted(uid_t user);

// The user of this name or number. Throws HostError, a line that begins with `option`, when there is none.
uid_t FindUser(const std::string &user, const std::string &option);

// "nobody", or "65534" for a user without a name.
std::string UserName(uid_t user);

// Throws HostError unless `owner` is trusted. `what` begins the line: "the arena at PATH".
void RequireTrusted(uid_t owner, const std::string &what);

}  // namespace qdt::host

#endif  // HOST_BASE_TRUST_H_
