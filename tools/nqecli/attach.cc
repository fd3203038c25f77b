#include "tools/nqecli/attach.h"

#include <algorithm>
#include <cstdlib>

#include "host/base/host_error.h"
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
  if (!arguments->TakeValue("--arena", &place->arena) &&
      !arguments->TakeValue("--snapshot", &place->snapshot)) {
    return false;
  }
  if (!place->arena.empty() && !place->snapshot.empty()) {
    throw HostError("--arena and --snapshot exclude each other; name one");
  }
  return true;
}

void TakeEnvironment(Place *place) {
  if (!place->arena.empty() || place->saved()) return;
  const auto valueOf = [](const char *name) {
    const char *value = std::getenv(name);
    return std::string(value == nullptr ? "" : value);
  };
  place->arena = valueOf("NQE_ARENA");
  place->snapshot = valueOf("NQE_SNAPSHOT");
  place->fromEnvironment = true;
  if (!place->arena.empty() && place->saved())
    throw HostError("NQE_ARENA and NQE_SNAPSHOT are both set; unset one, or give --arena or --snapshot");
}

std::string PlaceHelp() {
  std::string text;
  AddHelpLine(&text, "--arena PATH",
              std::string("the engine's arena, ") + host::kDefaultArena + " unless told otherwise");
  AddHelpLine(&text, "--snapshot FILE", "answer from a saved arena; nothing that changes there is kept");
  AddHelpLine(&text, "NQE_ARENA", "in the environment: as --arena, where neither option is given");
  AddHelpLine(&text, "NQE_SNAPSHOT", "in the environment: as --snapshot, where neither option is given");
  return text;
}

Arena &Attach(const Place &place) {
  const std::string path = place.saved()         ? place.snapshot
                           : place.arena.empty() ? host::kDefaultArena
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
