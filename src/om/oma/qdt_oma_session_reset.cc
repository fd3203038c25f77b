#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/session.h"
#include "src/om/common/log.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/owned.h"
#include "src/om/engine/session.h"
#include "src/om/oma/listing_end.h"

// Aging out of sessions, and their statistics.
uint64_t g_lastSaveFlowCreateNum, g_lastRateCalTime;
uint64_t g_curFlowNum, g_curFlowRate, g_maxFlowRate, g_maxFlowNum;

namespace {

// A reset looks at so many slots at a time and then leaves the memory to the forwarding cores.
constexpr uint32_t kChunk = 1000;
constexpr useconds_t kPause = 10000;

}  // namespace

int32_t QdtFlowPartScan(int32_t (*callback)(void *record), uint32_t chunk, uint32_t *cursor) {
  const TbmFlowPartition *const partition =
      g_tbmGlobalInfo == nullptr ? nullptr : g_tbmGlobalInfo->flowPartition;
  if (partition == nullptr || *cursor >= partition->nodeCount || partition->nodes == nullptr) return -1;
  const uint32_t end = *cursor + std::min(chunk, partition->nodeCount - *cursor);
  for (uint32_t slot = *cursor; slot < end; ++slot) {
    void *const node = __atomic_load_n(&partition->nodes[slot], __ATOMIC_ACQUIRE);
    if (node != nullptr) callback(node);
  }
  *cursor = end;
  return 0;
}

// The session may end, and its memory go, while it is looked at.
int32_t QdtSessResetTrav(void *record) {
  const auto address = reinterpret_cast<uint64_t>(record);
  qdt::SessionRecord session;
  if (record == nullptr || !qdt::ReadEngineMemory(address, &session, sizeof(session)) || !session.valid)
    return 0;
  if (QuerySessionNodeMatch(&session) == 0) {
    const decltype(session.agingTime) ageOut = qdt::kSessionAgeOut;
    qdt::WriteEngineMemory(address + offsetof(qdt::SessionRecord, agingTime), &ageOut, sizeof(ageOut));
  }
  return 0;
}

int32_t QdtSessResetProc() {
  uint32_t cursor = 0;
  while (QdtFlowPartScan(QdtSessResetTrav, kChunk, &cursor) != -1) usleep(kPause);
  return 0;
}

int32_t QdtOmaResetSessionProc(AgentRequest request) {
  SessionParamValuelClear();
  QuerySessionGetParam(request, 0);
  return QdtSessResetProc();
}

int32_t QdtOmaSessionStatisticsProc(AgentRequest) {
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kListingRoom);
  if (answer == nullptr) {
    QDT_LOG_ERROR("malloc buf for session statistics failed\n");
    return -1;
  }
  if (QdtPrintSessStat(answer.get(), qdt::kListingRoom) < 0) {
    QDT_LOG_ERROR("Print session statistics info failed\n");
    return -1;
  }
  return QdtOmSendMsg(answer.get()) == 0 ? 0 : -1;
}
