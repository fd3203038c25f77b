#include "host/agent/handlers.h"

#include <arpa/inet.h>

#include <mutex>
#include <utility>

#include "host/agent/refusals.h"
#include "host/agent/xml_text.h"
#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "host/base/words.h"
#include "host/library/services.h"
#include "host/omcc/model.h"
#include "host/omcc/omcc.h"
#include "host/tbm/client_writes.h"
#include "platform/engine.h"
#include "platform/memory.h"
#include "qdt/server_map.h"
#include "qdt/session.h"

namespace qdt::host {
namespace {

// Whether the library finds an address in the text, as it reads the filters of sessions.
bool IsAddress(const char *text) {
  in_addr ipv4;
  uint8_t ipv6[16];
  return QdtOmaGetIpVer(text) == 4 ? inet_aton(text, &ipv4) != 0 : inet_pton(AF_INET6, text, ipv6) == 1;
}

// The library takes a filter that it cannot read for none: a slip in an address would show every session, or
// reset them all.
void CheckSessionFilters(const lyd_node *request) {
  for (const char *name :
       {"global-source-ip", "global-destination-ip", "inside-source-ip", "inside-destination-ip"}) {
    const lyd_node *leaf = FindChild(request, name);
    if (leaf == nullptr || IsAddress(lyd_get_value(leaf))) continue;
    throw HostError(std::string(name) + ": " + Quoted(lyd_get_value(leaf)) +
                    " is not an address (write an IPv4 or IPv6 address)");
  }
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
    {"debug-pkt", "QdtOmaDebugPktProc", QdtOmaDebugPktProc, nullptr, true},
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
    {"query-session", "QdtOmaQuerySessionProc", QdtOmaQuerySessionProc, nullptr, false, CheckSessionFilters},
    {"reset-session", "QdtOmaResetSessionProc", QdtOmaResetSessionProc, nullptr, true, CheckSessionFilters},
    {"session-statistics", "QdtOmaSessionStatisticsProc", QdtOmaSessionStatisticsProc, nullptr},
    {"query-server-map", "QdtOmaQueryServerMapProc", QdtOmaQueryServerMapProc, nullptr},
    {"reset-server-map", "QdtOmaResetServerMapProc", QdtOmaResetServerMapProc, nullptr, true},
};

// The answer of the handler that runs. Guarded by g_running.
HandlerAnswer *g_answer = nullptr;
std::mutex g_running;

int32_t RunDocument(const Handler &handler, HandlerAnswer *answer) {
  char *text = nullptr;
  const int32_t result = handler.document(&text);
  if (result == 0 && text != nullptr) {
    answer->sent = true;
    answer->text = text;
  }
  free_ex(g_mallocHandle, text);
  return result;
}

}  // namespace

std::span<const Handler> Handlers() { return kHandlers; }

const Handler *FindHandler(std::string_view name) {
  for (const Handler &handler : kHandlers) {
    if (name == handler.rpc || name == handler.function) return &handler;
  }
  return nullptr;
}

HandlerAnswer RunHandler(const Handler &handler, lyd_node *request) {
  if (handler.check != nullptr) handler.check(request);
  Arena *arena = Arena::Current();
  if (handler.writes && arena != nullptr && !arena->Writable())
    throw HostError("this user may only read the arena, and " + std::string(handler.rpc) + " changes it");
  const std::lock_guard lock(g_running);
  if (arena != nullptr) arena->DropCopies();
  HandlerAnswer answer{0, false, {}};
  g_answer = &answer;
  TakeEngineRefusal();  // of what ran before
  answer.result = handler.run != nullptr ? handler.run(AsRequest(request)) : RunDocument(handler, &answer);
  g_answer = nullptr;
  answer.refused = TakeEngineRefusal() || OnlySaysWhatIsWrong(answer.text);
  if (handler.writes) tbm::TakeClientWrites();
  answer.text = XmlText(std::move(answer.text));
  return answer;
}

}  // namespace qdt::host

extern "C" int32_t QdtOmSendMsg(const char *reply) {
  using qdt::host::g_answer;
  if (g_answer == nullptr) return -1;
  g_answer->sent = true;
  g_answer->text += reply;
  return 0;
}
