#include "host/agent/handlers.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

#include "host/agent/refusals.h"
#include "host/arena/arena.h"
#include "host/base/c_callback.h"
#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/library/services.h"
#include "host/netconf/xml_text.h"
#include "host/omcc/model.h"
#include "host/omcc/omcc.h"
#include "host/tbm/client_writes.h"
#include "platform/engine.h"
#include "platform/memory.h"
#include "qdt/server_map.h"
#include "qdt/session.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

constexpr const char *kSessionAddresses[] = {"global-source-ip", "global-destination-ip", "inside-source-ip",
                                             "inside-destination-ip"};
constexpr const char *kSessionNumbers[] = {"create-in",          "egress-ifindex",  "global-destination-port",
                                           "global-source-port", "ingress-ifindex", "inside-destination-port",
                                           "inside-source-port", "protocol",        "vpn-id"};
// A filter of 0 is none to the library.
bool IsSet(const lyd_node *request, const char *name) {
  const lyd_node *leaf = FindChild(request, name);
  if (leaf == nullptr) return false;
  const std::string_view value = lyd_get_value(leaf);
  return value != "0" && value != "0.0.0.0" && value != "::";
}

// A filter that filters nothing would have a reset end everything.
void CheckReset(const lyd_node *request) {
  for (const lyd_node *leaf = lyd_child(request); leaf != nullptr; leaf = leaf->next) {
    if (IsSet(request, LYD_NAME(leaf))) continue;
    throw InvalidValue(LYD_NAME(leaf), lyd_get_value(leaf), "another value than 0, which filters nothing");
  }
}

// The library takes a reason that it does not know for no condition. The last of the names below is that of
// the counter behind the reasons, which stands for all of them.
void CheckDiscardType(const lyd_node *request) {
  constexpr int kBefore = 187, kReasons = 274;
  const lyd_node *leaf = FindChild(request, "discard-type");
  if (leaf == nullptr) return;
  const std::string_view value = lyd_get_value(leaf);
  if (value == "all") return;
  NearName near(value);
  std::string nearest;
  for (int i = 1; i <= kReasons; ++i) {
    const char *name = QdtOmaSysStatDescGet()[kBefore + i];
    if (name == nullptr) continue;
    if (value == name) return;
    if (near.Offer(name)) nearest = name;
  }
  throw InvalidValue(
      "discard-type", value,
      "a reason for which packets are dropped, or all" + DidYouMean(nearest, "sysstat-query lists them"));
}

// Sessions of the one family or the other are all of a family: that alone is no filter. What a query takes
// besides (session-number, verbose, next-hop, vlan-id) filters nothing.
bool FiltersSessions(const lyd_node *request) {
  const auto isSet = [request](const char *name) { return IsSet(request, name); };
  return std::ranges::any_of(kSessionAddresses, isSet) || std::ranges::any_of(kSessionNumbers, isSet) ||
         isSet("service-id") || isSet("feature");
}

bool FiltersServerMaps(const lyd_node *request) {
  const lyd_node *type = FindChild(request, "type");
  return IsSet(request, "ip") || (type != nullptr && std::string_view(lyd_get_value(type)) != "all");
}

constexpr Handler kHandlers[] = {
    {"cmdline", "QdtOmaCmdlineProc", QdtOmaCmdlineProc, nullptr},
    {"sysstat-query", "QdtOmaSysStatQueryProc", QdtOmaSysStatQueryProc, nullptr},
    {"sysstat-reset", "QdtOmaSysStatResetProc", QdtOmaSysStatResetProc, nullptr},
    {"arpmiss", "QdtOmaArpmissProc", QdtOmaArpmissProc, nullptr},
    {"ndmiss", "QdtOmaNdmissProc", QdtOmaNdmissProc, nullptr},
    {"tbl-usage", "QdtOmaTblUsageProc", QdtOmaTblUsageProc, nullptr},
    {"packet-drop-nobuff", "QdtOmaPacketDropNobuffProc", nullptr, QdtOmaPacketDropNobuffProc},
    {"memory-usage", "QdtOmaMemoryUsage", nullptr, QdtOmaMemoryUsage},
    {"debug-pkt", "QdtOmaDebugPktProc", QdtOmaDebugPktProc, nullptr, true, CheckDiscardType},
    {"trace-pkt-set", "QdtOmaTracePktSetProc", QdtOmaTracePktSetProc, nullptr},
    {"trace-pkt-query", "QdtOmaTracePktQueryProc", QdtOmaTracePktQueryProc, nullptr},
    {"egn-info-query", "QdtOmaEgnInfoQueryProc", QdtOmaEgnInfoQueryProc, nullptr},
    {"egn-dbg-switch-set", "QdtOmaEgnDbgSwitchSetProc", QdtOmaEgnDbgSwitchSetProc, nullptr},
    {"egn-stat-switch-set", "QdtOmaEgnStatSwitchSetProc", QdtOmaEgnStatSwitchSetProc, nullptr},
    {"egn-detect-threshold-set", "QdtOmaEgnDetectThresholdSetProc", QdtOmaEgnDetectThresholdSetProc, nullptr},
    {"egn-stat-reset", "QdtOmaEgnStatResetProc", QdtOmaEgnStatResetProc, nullptr},
    {"perf-task-query", "QdtOmaPerfTaskQueryProc", QdtOmaPerfTaskQueryProc, nullptr},
    {"perf-task-reset", "QdtOmaPerfTaskResetProc", QdtOmaPerfTaskResetProc, nullptr},
    {"perf-task-set", "QdtOmaPerfTaskSetProc", QdtOmaPerfTaskSetProc, nullptr},
    {"perf-mode-set", "QdtOmaPerfModeSetProc", QdtOmaPerfModeSetProc, nullptr},
    {"nat-group-usage", "QdtOmaNatGroupUsageProc", QdtOmaNatGroupUsageProc, nullptr},
    {"frag-reass", "QdtOmaFragReassProc", QdtOmaFragReassProc, nullptr},
    {"ipv4-frag-reass", "QdtOmaIpv4FragReassProc", QdtOmaIpv4FragReassProc, nullptr},
    {"ipv6-frag-reass", "QdtOmaIpv6FragReassProc", QdtOmaIpv6FragReassProc, nullptr},
    {"query-session", "QdtOmaQuerySessionProc", QdtOmaQuerySessionProc, nullptr},
    {"reset-session", "QdtOmaResetSessionProc", QdtOmaResetSessionProc, nullptr, true, CheckReset, "session",
     FiltersSessions},
    {"session-statistics", "QdtOmaSessionStatisticsProc", QdtOmaSessionStatisticsProc, nullptr},
    {"query-server-map", "QdtOmaQueryServerMapProc", QdtOmaQueryServerMapProc, nullptr},
    {"reset-server-map", "QdtOmaResetServerMapProc", QdtOmaResetServerMapProc, nullptr, true, CheckReset,
     "server map", FiltersServerMaps},
};

// The answer of the handler that runs. Guarded by g_running.
HandlerAnswer *g_answer = nullptr;
std::mutex g_running;

int32_t RunDocument(const Handler &handler, HandlerAnswer *answer) {
  char *text = nullptr;
  const int32_t result = handler.document(&text);
  const std::unique_ptr<char, void (*)(char *)> owned(text,
                                                      [](char *each) { free_ex(g_mallocHandle, each); });
  if (result != 0 || text == nullptr) return -1;  // success without a document is memory that was short
  answer->text = text;
  answer->sent = true;
  return 0;
}

}  // namespace

std::span<const Handler> Handlers() { return kHandlers; }

const Handler *FindHandler(std::string_view name) {
  for (const Handler &handler : kHandlers) {
    if (name == handler.rpc || name == handler.function) return &handler;
  }
  return nullptr;
}

HandlerAnswer RunHandler(const Handler &handler, lyd_node *request, bool dryRun) {
  if (handler.check != nullptr) handler.check(request);
  Arena *arena = Arena::Current();
  if (handler.writes && !dryRun && arena != nullptr && !arena->Writable())
    throw HostError("this user may only read the arena, and " + std::string(handler.rpc) + " changes it");
  const std::lock_guard lock(g_running);
  if (arena != nullptr) arena->DropCopies();
  HandlerAnswer answer{0, false, {}};
  tbm::SetEnds(dryRun ? tbm::Ends::kCounted : tbm::Ends::kAskedFor);
  g_answer = &answer;
  TakeEngineRefusal();  // of what ran before
  answer.result = handler.run != nullptr ? handler.run(AsRequest(request)) : RunDocument(handler, &answer);
  g_answer = nullptr;
  answer.refused = TakeEngineRefusal() || OnlySaysWhatIsWrong(answer.text);
  if (handler.writes) answer.ended = tbm::TakeClientWrites();
  answer.text = XmlText(std::move(answer.text));
  return answer;
}

}  // namespace qdt::host

extern "C" int32_t QdtOmSendMsg(const char *reply) {
  using qdt::host::g_answer;
  if (g_answer == nullptr) return -1;
  return qdt::host::UnlessShort(-1, [reply] {
    g_answer->text += reply;
    g_answer->sent = true;
    return 0;
  });
}
