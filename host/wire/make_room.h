#ifndef HOST_WIRE_MAKE_ROOM_H_
#define HOST_WIRE_MAKE_ROOM_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace qdt::host {

// What a connection of a full server is in the middle of, in the order in which connections make room.
enum class Doing : uint8_t {
  kSilent,   // has never asked anything
  kResting,  // has asked and been answered
  kTaking,   // has yet to take its reply
  kAsking,   // its request is about to be answered
};

struct Occupant {
  uid_t user = 0;
  Doing doing = Doing::kSilent;
  std::chrono::steady_clock::time_point moved;  // when it was last seen to move on
};

// Which of the connections leaves for a new one of `newcomer`: of the user who holds most of them the one
// that does least and has done so longest. A user's own requests never leave for more of the same user:
// nothing then.
std::optional<size_t> WhoMakesRoom(std::span<const Occupant> occupants, uid_t newcomer);

}  // namespace qdt::host

#endif  // HOST_WIRE_MAKE_ROOM_H_
