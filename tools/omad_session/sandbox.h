#ifndef TOOLS_OMAD_SESSION_SANDBOX_H_
#define TOOLS_OMAD_SESSION_SANDBOX_H_

namespace qdt::omad {

// Gives away all rights that a session does not need, for good: root's identity, new files, sockets and
// processes, core dumps, memory without bound. What is open stays open. Throws HostError.
void EnterSandbox();

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_SESSION_SANDBOX_H_
