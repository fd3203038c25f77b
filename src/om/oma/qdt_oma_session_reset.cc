#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "platform/tbm.h"
#include "qdt/session.h"
#include "src/om/common/memory_probe.h"
#include "src/om/engine/session.h"

// Aging out of sessions.

namespace {

// A reset looks at so many slots at a time and then leaves the memory to the forwarding cores.
constexpr uint32_t kChunk = 1000;
constexpr useconds_t kPause = 10000;

}  // namespace

int32_t QdtFlowPartScan(int32_t (*callback)(void *record), uint32_t chunk, uint32_t *cursor) {
  const TbmFlowPartition *const partition =
      g_tbmGlobalInfo == nullptr ? nullptr : g_tbmGlobalInfo->flowPartition;
  if (partition == nullptr || *cursor >= partition->nodeCount || partition->nodes == nullptr) return -1;
  const qdt::EngineMemoryScope memory;  // of one chunk: what happens in a pause behind it is seen
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
