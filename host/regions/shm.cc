#include "platform/shm.h"

#include <syslog.h>

#include <algorithm>
#include <string_view>

#include "host/arena/arena.h"
#include "host/arena/arena_layout.h"

using qdt::host::Arena;

namespace {

// The one shared-memory partition of an engine is its arena.
constexpr std::string_view kPartition = "OSA_SHM_CST_NAME";
constexpr uint16_t kPartitionHandle = 1;

uint32_t Clamp(uint64_t bytes) { return static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX)); }

}  // namespace

void *VRX_Smmap(const char *name, uint32_t size, uint32_t /*flags*/) {
  const Arena *arena = Arena::Current();
  if (arena == nullptr || name == nullptr) return nullptr;
  uint32_t created = 0;
  void *region = arena->FindRegion(name, &created);
  if (region == nullptr) return nullptr;
  if (size > created) {
    syslog(LOG_ERR, "shared region %s has %u bytes, %u were asked for\n", name, created, size);
    return nullptr;
  }
  // Most who map a region mean to write to it, and a change that never reaches the engine would be a lie.
  if (!arena->Writable()) {
    syslog(LOG_ERR, "shared region %s: no permission to write to %s\n", name, arena->path().c_str());
    return nullptr;
  }
  return region;
}

int32_t DHF_ShmPtAttach(const char *name, uint16_t *handle) {
  if (Arena::Current() == nullptr || name == nullptr || handle == nullptr || name != kPartition) return -1;
  *handle = kPartitionHandle;
  return 0;
}

uint32_t DHF_ShmPtTotalSizeGet(uint16_t handle) {
  const Arena *arena = Arena::Current();
  return arena == nullptr || handle != kPartitionHandle ? 0 : Clamp(arena->header()->totalSize);
}

uint32_t DHF_ShmPtAllocedSizeGet(uint16_t handle) {
  const Arena *arena = Arena::Current();
  return arena == nullptr || handle != kPartitionHandle ? 0 : Clamp(arena->StorageBytes());
}
