#ifndef HOST_WIRE_PATHS_H_
#define HOST_WIRE_PATHS_H_

#include <string>

namespace qdt::host {

// Where engine and tools meet unless they are told otherwise: /run/nqe for root, and for other users nqe in
// their runtime directory, or /tmp/nqe-UID where they have none. The engine's socket stands beside its arena.
std::string DefaultArena();
constexpr char kSocketEnding[] = ".sock";

// The same for help texts.
#define QDT_DEFAULT_ARENA_TEXT "/run/nqe/arena (root) or $XDG_RUNTIME_DIR/nqe/arena"

// Makes the directory of DefaultArena where it is missing, with the rights that it should have. Throws
// HostError when it cannot be made, or when others could put files there.
void MakeDefaultDirectory();

}  // namespace qdt::host

#endif  // HOST_WIRE_PATHS_H_
