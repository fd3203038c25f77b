#include "src/om/nqe_cli/nqe_cli_sched_trace.h"

// The task graph of the scheduler: which nodes follow which, and which are active.

using qdt::ForEachRunc;
using qdt::TracedRunc;

namespace qdt {
namespace {

constexpr uint8_t kActive = 1;

// Not as the bitmap is laid out, and kept so: node j is looked for at bit j mod 32 of its 64-bit word, and
// bit 31 is widened as a sign, so that it stands for the word's whole upper half as well.
bool IsSuccessor(const SchedTraceNode &node, uint32_t j) {
  const auto bit = static_cast<int32_t>(uint32_t{1} << (j % 32));
  const auto mask = static_cast<uint64_t>(int64_t{bit});
  return (node.successors[j / 64] & mask) != 0;
}

template <typename Visit>
void ForEachSuccessor(const SchedTraceRunc &runc, uint32_t i, Visit visit) {
  for (uint32_t j = 0; j < QDT_SCHED_NODES; ++j) {
    if (j != i && IsSuccessor(runc.nodes[i], j)) visit(j);
  }
}

}  // namespace
}  // namespace qdt

void SchedTraceShowGraph(OutputBuffer *out) {
  ForEachRunc([out](const TracedRunc &runc) { SchedTraceShowGraphPrintInfo(out, runc.number, &runc.copy); });
}

void SchedTraceShowGraphPrintInfo(OutputBuffer *out, uint32_t runc, const SchedTraceRunc *record) {
  QdtCliPrintf(out, "\nrunc %u\ndigraph {\n", runc);
  for (uint32_t i = 0; i < QDT_SCHED_NODES; ++i) {
    qdt::ForEachSuccessor(*record, i, [&](uint32_t j) { QdtCliPrintf(out, "\"%u\" -> \"%u\"\n", i, j); });
  }
  QdtCliPrintf(out, "}\n");
}

void SchedTraceShowActiveNode(OutputBuffer *out) {
  ForEachRunc(
      [out](const TracedRunc &runc) { SchedTraceShowActiveNodePrintInfo(out, runc.number, &runc.copy); });
}

void SchedTraceShowActiveNodePrintInfo(OutputBuffer *out, uint32_t runc, const SchedTraceRunc *record) {
  QdtCliPrintf(out, "\nrunc: %u\n", runc);
  for (uint32_t i = 0; i < QDT_SCHED_NODES; ++i) {
    const SchedTraceNode &node = record->nodes[i];
    if (node.presence == 0) continue;
    QdtCliPrintf(out, "current: %u, pktNum: %u, ", i, node.packets);
    const bool active = (node.status & qdt::kActive) != 0;
    QdtCliPrintf(out, "%s", active ? "status: active, next: [" : "status: inactive, next: [");
    qdt::ForEachSuccessor(*record, i, [out](uint32_t j) { QdtCliPrintf(out, "%u ", j); });
    QdtCliPrintf(out, "]\n");
  }
}
