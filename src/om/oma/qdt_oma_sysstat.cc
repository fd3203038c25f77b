#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/engine.h"
#include "qdt/oma.h"
#include "qdt/stats.h"
#include "src/om/common/log.h"
#include "src/om/common/names.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"

namespace qdt {
namespace {

constexpr uint32_t kAnswerRoom = 20480;
constexpr uint32_t kNameColumns = 60;

struct StatVector {
  uint64_t counters[QDT_STAT_COUNTERS];
};

// The engine's totals at the last reset of each kind.
StatVector g_baseline;

struct Range {
  uint32_t first;
  uint32_t count;
};

// In the order of an answer. Ranges without counters are none.
struct Section {
  uint32_t kind;
  FixedText<32> header;
  Range ranges[3];
};
constexpr Section kSections[] = {
    {QDT_STAT_KIND_NORMAL,
     "\n Normal statistic information:",
     {{QDT_STAT_NORMAL, QDT_STAT_NORMAL_COUNT},
      {QDT_STAT_RECEIVED, QDT_STAT_RECEIVED_COUNT},
      {QDT_STAT_TRANSMITTED, QDT_STAT_TRANSMITTED_COUNT}}},
    {QDT_STAT_KIND_DISCARD,
     "\n Discard statistic information:",
     {{QDT_STAT_DISCARD, QDT_STAT_DISCARD_COUNT}, {QDT_STAT_CAR, QDT_STAT_CAR_COUNT}}},
    {QDT_STAT_KIND_ERROR, "\n Error statistic information:", {{QDT_STAT_ERROR, QDT_STAT_ERROR_COUNT}}},
};

uint32_t SelectedKinds(AgentRequest request) {
  const char *type = nullptr;
  if (QdtOmaParseStr(request, "type", &type) != 0 || type == nullptr) return 0;
  const std::string_view word = type;
  if (word == "all") return QDT_STAT_KIND_NORMAL | QDT_STAT_KIND_DISCARD | QDT_STAT_KIND_ERROR;
  if (word == "normal") return QDT_STAT_KIND_NORMAL;
  if (word == "discard") return QDT_STAT_KIND_DISCARD;
  if (word == "error") return QDT_STAT_KIND_ERROR;
  return 0;
}

template <typename Visit>
void ForEachRange(uint32_t kinds, Visit visit) {
  for (const Section &section : kSections) {
    if ((section.kind & kinds) == 0) continue;
    for (const Range &range : section.ranges) visit(range);
  }
}

// Prefix and name end in one column; a counter without a name is shown by its number in its block.
bool PrintRow(Text &text, std::string_view prefix, const char *name, uint32_t number, uint64_t value) {
  if (name == nullptr) return text.Print<"\n   %60u: %llu">(number, value);
  const auto length = static_cast<uint32_t>(std::min<size_t>(std::strlen(name), kNameColumns));
  const auto width = static_cast<int>(kNameColumns - length);  // a prefix that is longer is not cut
  return text.Print<"\n   %*s%s: %llu">(width, prefix, name, value);
}

// A listing in an area of fixed size. What does not fit ends its block, and the next goes on behind what did.
class Listing {
 public:
  Listing(char *out, uint32_t room) : at_(out), room_(room) {}

  void PrintHeader(const char *header) {
    Text text(at_, room_);
    text.Print<"%s">(header);
    Advance(text);
  }

  void PrintBlock(const Range &range, const StatVector &statistics) {
    Text text(at_, room_ - 1);  // rows keep one byte more free than headers do
    const bool isCar = range.first == QDT_STAT_CAR;
    for (uint32_t i = 0; i < range.count; ++i) {
      const uint64_t value = statistics.counters[range.first + i];
      if (value == 0) continue;
      const char *const name = isCar ? QdtGetNameByProId(i) : QdtOmaSysStatDescGet()[range.first + i];
      if (!PrintRow(text, isCar ? "CAR - " : "", name, i, value)) break;
    }
    Advance(text);
  }

 private:
  void Advance(const Text &text) {
    at_ += text.size();
    room_ -= text.size();
  }

  char *at_;
  uint32_t room_;  // the NUL's included: never 0
};

void PrintAnswer(char *out, uint32_t kinds, const StatVector &statistics) {
  Listing listing(out, kAnswerRoom);
  for (const Section &section : kSections) {
    if ((section.kind & kinds) == 0) continue;
    listing.PrintHeader(section.header.text);
    for (const Range &range : section.ranges) listing.PrintBlock(range, statistics);
  }
}

}  // namespace
}  // namespace qdt

int32_t QdtOmaSysStatQueryProc(AgentRequest request) {
  const uint32_t kinds = qdt::SelectedKinds(request);
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kAnswerRoom);
  const auto statistics = qdt::AllocateZeroed<qdt::StatVector>(QDT_HERE);
  if (answer == nullptr || statistics == nullptr) {
    QDT_LOG_ERROR("malloc error\n");
    return -1;
  }
  QdtSysStatAccumulate(kinds, statistics->counters);
  // Unsigned on purpose: an engine that started again shows as a difference that wrapped.
  qdt::ForEachRange(kinds, [&](const qdt::Range &range) {
    for (uint32_t i = range.first; i < range.first + range.count; ++i)
      statistics->counters[i] -= qdt::g_baseline.counters[i];
  });
  qdt::PrintAnswer(answer.get(), kinds, *statistics);
  QdtOmSendMsg(answer.get());
  return 0;
}

int32_t QdtOmaSysStatResetProc(AgentRequest request) {
  const uint32_t kinds = qdt::SelectedKinds(request);
  qdt::ForEachRange(kinds, [](const qdt::Range &range) {
    std::fill_n(qdt::g_baseline.counters + range.first, range.count, uint64_t{0});
  });
  QdtSysStatAccumulate(kinds, qdt::g_baseline.counters);
  return 0;
}
