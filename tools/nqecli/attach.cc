#include "tools/nqecli/attach.h"

#include <algorithm>

#include "host/base/host_error.h"
#include "host/base/trust.h"
#include "host/library/services.h"
#include "host/wire/client.h"
#include "host/wire/paths.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::HostError;

host::EngineReply NoEngine(std::string_view) {
  throw HostError("only the engine itself can tell, and a saved arena has none");
}

}  // namespace

bool TakePlace(host::Arguments *arguments, Place *place) {
  std::string user;
  if (arguments->TakeValue("--trust", &user)) {
    host::TrustUser(user);
    place->trusted.push_back(user);
    return true;
  }
  if (!arguments->TakeValue("--arena", &place->arena) &&
      !arguments->TakeValue("--snapshot", &place->snapshot)) {
    return false;
  }
  if (!place->arena.empty() && !place->snapshot.empty()) {
    throw HostError("--arena and --snapshot exclude each other; name one");
  }
  return true;
}

std::string PlaceHelp() {
  std::string text;
  AddHelpLine(&text, "--arena PATH", "the engine's arena, " QDT_DEFAULT_ARENA_TEXT " unless told otherwise");
  AddHelpLine(&text, "--snapshot FILE", "answer from a saved arena; nothing that changes there is kept");
  AddHelpLine(&text, "--trust USER", "believe an engine of that user as well, beside this user's and root's");
  return text;
}

Arena &Attach(const Place &place) {
  const std::string path = place.saved()         ? place.snapshot
                           : place.arena.empty() ? host::DefaultArena()
                                                 : place.arena;
  Arena &arena =
      *Arena::Attach(path, place.saved() ? Arena::Access::kSnapshot : Arena::Access::kLive).release();
  Arena::SetCurrent(&arena);
  // A saved arena still knows the socket of its engine; what is asked of a copy must not reach that engine.
  host::SetEngineChannel(place.saved() ? NoEngine : host::SocketChannel(arena.socketPath()));
  return arena;
}

void AddHelpLine(std::string *text, std::string usage, const std::string &help) {
  usage.resize(std::max<size_t>(usage.size(), 20), ' ');
  *text += "  " + usage + ' ' + help + '\n';
}

}  // namespace qdt::nqecli
