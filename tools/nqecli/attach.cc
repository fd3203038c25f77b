#include "tools/nqecli/attach.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/trust.h"
#include "host/library/services.h"
#include "host/wire/client.h"
#include "host/wire/paths.h"
#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::HostError;

host::EngineReply NoEngine(std::string_view) {
  throw HostError("only the engine itself can tell, and a saved arena has none");
}

std::string g_keptPath;
Arena *g_kept = nullptr;  // its end is the process's, who has no time to lose there

}  // namespace

bool TakePlace(host::Arguments *arguments, Place *place) {
  std::string user;
  if (arguments->TakeValue("--trust", &user)) {
    host::TrustUser(user);
    place->trusted.push_back(user);
    return true;
  }
  if (arguments->Take("--raw")) {
    SetRaw(true);
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
  AddHelpLine(&text, "--arena PATH", "the engine's arena, " QDT_DEFAULT_ARENA_TEXT " unless told otherwise");
  AddHelpLine(&text, "--snapshot FILE", "answer from a saved arena; nothing that changes there is kept");
  AddHelpLine(&text, "--trust USER", "believe an engine of that user as well, beside this user's and root's");
  AddHelpLine(&text, "--raw", "control characters and newlines of the engine's texts as they are");
  AddHelpLine(&text, "NQE_ARENA", "in the environment: as --arena, where neither option is given");
  AddHelpLine(&text, "NQE_SNAPSHOT", "in the environment: as --snapshot, where neither option is given");
  return text;
}

void CheckKeptEngine() {
  if (g_kept != nullptr && g_kept->role() == Arena::Role::kClient && !g_kept->EngineAlive() &&
      Arena::IsHeld(g_keptPath))
    throw EngineReplaced();
}

Arena &Attach(const Place &place) {
  const std::string path = place.saved()         ? place.snapshot
                           : place.arena.empty() ? host::DefaultArena()
                                                 : place.arena;
  if (g_kept != nullptr && g_keptPath == path &&
      place.saved() == (g_kept->role() == Arena::Role::kSnapshot)) {
    if (place.saved() || g_kept->EngineAlive()) return *g_kept;
    if (Arena::IsHeld(path)) throw EngineReplaced();
    throw HostError("the engine at " + path + " is gone");
  }
  delete g_kept;
  g_kept = nullptr;
  g_kept = Arena::Attach(path, place.saved() ? Arena::Access::kSnapshot : Arena::Access::kLive).release();
  g_keptPath = path;
  Arena &arena = *g_kept;
  Arena::SetCurrent(&arena);
  // A saved arena still knows the socket of its engine; what is asked of a copy must not reach that engine.
  if (place.saved()) {
    host::SetEngineChannel(NoEngine);
  } else {
    host::SetEngineChannel([&arena](std::string_view line) { return EngineAnswer(arena, line); });
  }
  return arena;
}

host::EngineReply EngineAnswer(const Arena &arena, std::string_view line) {
  return host::EngineClient(arena.socketPath()).Run((IsRaw() ? "" : "escaped ") + std::string(line));
}

void AddHelpLine(std::string *text, std::string usage, const std::string &help) {
  constexpr size_t kWidth = 20;
  if (usage.size() > kWidth) *text += "  " + std::exchange(usage, "") + '\n';
  usage.resize(kWidth, ' ');
  *text += "  " + usage + ' ' + help + '\n';
}

}  // namespace qdt::nqecli
