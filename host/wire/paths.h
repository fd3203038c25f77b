#ifndef HOST_WIRE_PATHS_H_
#define HOST_WIRE_PATHS_H_

#include <string>

namespace qdt::host {

// Where engine and tools meet unless they are told otherwise: /run/nqe for root, and for other users nqe in
// their runtime directory, or /tmp/nqe-UID where they have none. The engine's socket stands beside its arena.
std::string DefaultArena();
constexpr char kSocketEnding[] = ".sock";

// Where the management agent meets the processes of its sessions, in the same directory.
std::string DefaultOmadSocket();

// The same for help texts.
#define QDT_DEFAULT_ARENA_TEXT "/run/nqe/arena (root) or $XDG_RUNTIME_DIR/nqe/arena"
#define QDT_DEFAULT_OMAD_TEXT "/run/nqe/omad.sock (root) or $XDG_RUNTIME_DIR/nqe/omad.sock"

// Makes the directory of DefaultArena where it is missing, with the rights that it should have. Throws
// HostError when it cannot be made, or when others could put files there.
void MakeDefaultDirectory();

}  // namespace qdt::host

#endif  // HOST_WIRE_PATHS_H_
