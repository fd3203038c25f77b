#include "host/wire/make_room.h"

#include <algorithm>
#include <tuple>

namespace qdt::host {
namespace {

// The user with the most connections; of several such users rather one that is not `newcomer`.
uid_t GreatestUser(std::span<const Occupant> occupants, uid_t newcomer) {
  uid_t greatest = newcomer;
  std::ptrdiff_t most = 0;
  for (const Occupant &occupant : occupants) {
    const auto held = std::ranges::count(occupants, occupant.user, &Occupant::user);
    if (held < most || (held == most && greatest != newcomer)) continue;
    greatest = occupant.user;
    most = held;
  }
  return greatest;
}

}  // namespace

std::optional<size_t> WhoMakesRoom(std::span<const Occupant> occupants, uid_t newcomer) {
  const uid_t user = GreatestUser(occupants, newcomer);
  const auto last = [&](const Occupant &occupant) {
    return std::tuple(occupant.user != user, occupant.doing, occupant.moved);
  };
  const auto first = std::ranges::min_element(occupants, {}, last);
  if (first == occupants.end() || (first->doing == Doing::kAsking && user == newcomer)) return std::nullopt;
  return static_cast<size_t>(first - occupants.begin());
}

}  // namespace qdt::host
