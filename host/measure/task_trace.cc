#include "host/measure/task_trace.h"

#include <syslog.h>

#include <algorithm>

#include "host/regions/shared_counter.h"

namespace qdt::host {
namespace {

constexpr uint8_t kEvents = kTraceTaskTime | kTraceTaskICache | kTraceTaskDCache;
constexpr uint16_t kEmptySlot = 0xFFFF;
constexpr uint8_t kKeepsMaxima = 1;  // of the perf flag

// What the cache traces count: misses, then accesses.
constexpr PmuEventSelect kICacheEvents[] = {
    {0x01, "L1I_CACHE_REFILL", 0, {}}, {0x14, "L1I_CACHE", 1, {}}, {QDT_PMU_EVENT_END, nullptr, 0, {}}};
constexpr PmuEventSelect kDCacheEvents[] = {
    {0x03, "L1D_CACHE_REFILL", 0, {}}, {0x04, "L1D_CACHE", 1, {}}, {QDT_PMU_EVENT_END, nullptr, 0, {}}};

// Of several, the one that those who show the figures name: the lowest bit. 0 when none is set.
uint8_t EventOf(uint8_t flag) {
  const uint8_t events = flag & kEvents;
  return events & static_cast<uint8_t>(-events);
}

void DrawGraph(TaskTraceBlock *runc) {
  for (const PathEdge &edge : kPathEdges) {
    TaskTraceBlock::Node &from = runc->nodes[edge.from.id];
    from.presence = 1;
    runc->nodes[edge.to.id].presence = 1;
    from.successors[edge.to.id / 64] |= uint64_t{1} << edge.to.id % 64;
  }
}

void ClearNodes(TaskTraceBlock *runc) {
  for (TaskTraceBlock::Node &node : runc->nodes) {
    std::atomic_ref(node.status).store(0, std::memory_order_relaxed);
    std::atomic_ref(node.packets).store(0, std::memory_order_relaxed);
  }
}

}  // namespace

std::span<TaskTraceBlock> PublishRuncs(void *region, uint32_t size, uint32_t cores) {
  if (region == nullptr || size < TaskTraceSize(0)) return {};
  const uint32_t room = (size - TaskTraceSize(0)) / sizeof(TaskTraceBlock);
  auto *const count = static_cast<uint64_t *>(region);
  *count = std::min(cores, room);
  return {reinterpret_cast<TaskTraceBlock *>(count + 1), static_cast<size_t>(*count)};
}

TaskTrace::TaskTrace(std::span<TaskTraceBlock> runcs) : runcs_(runcs), cores_(runcs.size()) {
  for (TaskTraceBlock &runc : runcs_) {
    runc.perfFlag = kKeepsMaxima;
    DrawGraph(&runc);
  }
}

void TaskTrace::BeginBatch() {
  uint8_t cacheEvent = 0;
  for (size_t i = 0; i < cores_.size(); ++i) {
    const uint8_t flag = std::atomic_ref(runcs_[i].flag).load(std::memory_order_acquire);
    cores_[i] = {flag, false, (flag & kTraceTaskPath) != 0};
    if (EventOf(flag) > kTraceTaskTime) cacheEvent = EventOf(flag);
  }
  if (cacheEvent != cacheEvent_) Follow(cacheEvent);
}

// Programs the counters for the cache to trace.
void TaskTrace::Follow(uint8_t cacheEvent) {
  cacheEvent_ = cacheEvent;
  caches_.reset();
  if (cacheEvent == 0) return;
  caches_.emplace(cacheEvent == kTraceTaskICache ? kICacheEvents : kDCacheEvents);
  if (told_ || caches_->counted() == caches_->events()) return;
  told_ = true;
  syslog(LOG_INFO, "scheduler trace: this machine does not count the cache's events, which stay 0");
}

void TaskTrace::EndBatch(bool late) {
  for (size_t i = 0; i < cores_.size(); ++i) {
    if (!cores_[i].hadPackets || EventOf(cores_[i].flag) == 0) continue;
    AddTo(late ? &runcs_[i].lateBatches : &runcs_[i].timelyBatches, 1);
  }
}

void TaskTrace::Begin(uint32_t core) {
  if (core >= cores_.size() || cores_[core].flag == 0) return;
  core_ = &cores_[core];
  runc_ = &runcs_[core];
  pathLength_ = 0;
  if (!core_->hadPackets && (core_->flag & kTraceTaskNodes) != 0) ClearNodes(runc_);
  core_->hadPackets = true;
}

void TaskTrace::Enter(uint16_t task) {
  if (core_ == nullptr) return;
  Close();
  task_ = task;
  if (core_->pathDue) path_[pathLength_++ % path_.size()] = task;
  if ((core_->flag & kTraceTaskNodes) == 0) return;
  std::atomic_ref(runc_->nodes[task].status).store(1, std::memory_order_relaxed);
  AddTo(&runc_->nodes[task].packets, 1);
}

void TaskTrace::End() {
  if (core_ == nullptr) return;
  Close();
  if (core_->pathDue) RecordPath();
  core_->pathDue = false;
  core_ = nullptr;
}

TaskTrace::Figures TaskTrace::ReadFigures() const {
  const uint8_t event = EventOf(core_->flag);
  if (event == kTraceTaskTime) return {ReadProcessorTimer(), 0};
  if (event == 0 || event != cacheEvent_) return {};
  const HardwareCounters::Values values = caches_->Read();
  return {values[0], values[1] - values[0]};
}

// Books what has been counted since the last task there.
void TaskTrace::Close() {
  const Figures now = ReadFigures();
  if (task_ != kNoTask && EventOf(core_->flag) != 0) {
    const uint64_t spent = now.a - since_.a;
    AddTo(&runc_->runs[task_], 1);
    AddTo(&runc_->packets[task_], 1);
    AddTo(&runc_->eventA[task_], spent);
    AddTo(&runc_->eventB[task_], now.b - since_.b);
    const std::atomic_ref<uint64_t> maximum(runc_->maximum[task_]);
    maximum.store(std::max(maximum.load(std::memory_order_relaxed), spent), std::memory_order_relaxed);
  }
  since_ = now;
  task_ = kNoTask;
}

void TaskTrace::RecordPath() {
  for (size_t i = 0; i < path_.size(); ++i) {
    const uint16_t id = i < pathLength_ ? path_[i] : kEmptySlot;
    std::atomic_ref(runc_->path[i]).store(id, std::memory_order_relaxed);
  }
  std::atomic_ref(runc_->pathMark).store(1, std::memory_order_release);
}

}  // namespace qdt::host
