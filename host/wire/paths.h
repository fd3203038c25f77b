#ifndef HOST_WIRE_PATHS_H_
#define HOST_WIRE_PATHS_H_

namespace qdt::host {

// Where engine and tools meet unless they are told otherwise. The engine's socket stands beside its arena.
constexpr char kDefaultArena[] = "/dev/shm/nqe.arena";
constexpr char kSocketEnding[] = ".sock";

}  // namespace qdt::host

#endif  // HOST_WIRE_PATHS_H_
