#include <cctype>
#include <cstdio>
#include <cstring>
#include <span>

#include "platform/shm.h"
#include "src/om/common/shared_word.h"
#include "src/om/common/text.h"
#include "src/om/engine/fast_stat.h"
#include "src/om/nqe_cli/command_words.h"

// The pmc command: starts a mode of the fast statistics, and stops it with a print of what was counted.

using qdt::ReadShared;
using qdt::Text;

int32_t *g_nqe_core_num;
uint32_t *g_fast_stat_mode;
FastStatCore *g_fast_stat_lcore;

namespace qdt {
namespace {

constexpr int32_t kFailed = -1;
constexpr int32_t kAlreadyRunning = -10;

// Enough for a core to end its measurement; one that hangs must not hang the command.
constexpr int kMaxPasses = 1000;

// What a stop may fill of the output. The last byte stays free.
constexpr uint32_t kStopRoom = QDT_OUTPUT_CAPACITY - 1;

// Null for a mode that does not measure.
const PmuEventSelect *TableOf(int32_t mode) {
  return mode >= 1 && mode <= QDT_PMU_MODES ? evt_define[mode] : nullptr;
}

// The rows before the end row.
std::span<const PmuEventSelect> EventsOf(const PmuEventSelect *table) {
  size_t count = 0;
  while (count < QDT_PMU_EVENTS && table[count].event != QDT_PMU_EVENT_END) ++count;
  return {table, count};
}

// The mode and the counters are shown as signed numbers.
int32_t ReadNumber(const uint32_t &word) { return static_cast<int32_t>(ReadShared(word)); }

bool IsAnyCoreBusy() {
  const int32_t cores = ReadShared(*g_nqe_core_num);
  for (int32_t c = 0; c < QDT_FAST_STAT_CORES && c < cores; ++c) {
    if (ReadShared(g_fast_stat_lcore[c].busy) != 0) return true;
  }
  return false;
}

// Tells on standard output which piece did not fit; `format` takes the room and what stands in it.
int32_t Overflow(const char *format, uint32_t size, uint32_t position) {
  std::printf(format, size, position);
  return kFailed;
}

int32_t StartMode(OutputBuffer *out, const char *number) {
  const int32_t mode = QdtCliParseInt(number, nullptr);
  const int32_t code = fast_pmc_start(mode);
  if (code != 0) {
    QdtCliPrintf(out, "Error in fast_pmc_start, ret=%d, mode=%d\n", code, mode);
    return code;
  }
  QdtCliPrintf(out, "set fast stat mode, %d -> %d\n", code, ReadNumber(*g_fast_stat_mode));
  return 0;
}

int32_t StopMode(OutputBuffer *out) {
  const uint32_t room = out->len < kStopRoom ? kStopRoom - out->len : 0;
  const int32_t written = fast_pmc_stop(out->buf + out->len, room);
  if (written < 0) {
    QdtCliPrintf(out, "Error in fast_pmc_stop, ret=%d\n", written);
    return written;
  }
  out->len += written;
  return 0;
}

}  // namespace
}  // namespace qdt

int32_t get_fast_stat_SSMAP() {
  if (g_fast_stat_lcore != nullptr) return 1;
  auto *const region = static_cast<qdt::FastStatRegion *>(VRX_Smmap(qdt::kFastStatRegion, 0, 0));
  if (region == nullptr) {
    std::printf("nqecli: OsaSmmap fail, %s, size=0", qdt::kFastStatRegion);
    return qdt::kFailed;
  }
  g_nqe_core_num = &region->coreCount;
  g_fast_stat_mode = &region->mode;
  g_fast_stat_lcore = region->cores;
  return 0;
}

int32_t fast_pmc_start(int32_t mode) {
  if (const int32_t running = qdt::ReadNumber(*g_fast_stat_mode); running != 0) {
    std::printf("stop pmc first, cur mode=%d\n", running);
    return qdt::kAlreadyRunning;
  }
  fast_stat_AllClear();
  if (qdt::TableOf(mode) == nullptr) {
    std::printf("error in get_evt_from_mode, mode=%d\n", mode);
    return qdt::kFailed;
  }
  qdt::WriteShared(*g_fast_stat_mode, static_cast<uint32_t>(mode));
  return 0;
}

void wait_fast_pmc_stop() {
  for (int pass = 0; pass < qdt::kMaxPasses && qdt::IsAnyCoreBusy(); ++pass) {
  }
}

int32_t fast_pmc_stop(char *buffer, uint32_t size) {
  const int32_t mode = qdt::ReadNumber(*g_fast_stat_mode);
  qdt::WriteShared(*g_fast_stat_mode, 0u);
  wait_fast_pmc_stop();

  uint32_t position = 0;
  if (const PmuEventSelect *const table = qdt::TableOf(mode); table != nullptr) {
    const int32_t written = fast_stat_AllDump(table, buffer, size);
    if (written < 0) return written;
    position = written;
  }
  Text text(buffer + position, size - position);
  if (!text.Print<"stop fast pmc, %d -> %d\r\n">(mode, qdt::ReadNumber(*g_fast_stat_mode)))
    return qdt::Overflow("[fast_pmc][stop]out buf overflow, size=%d, pos=%d", size, position);
  return static_cast<int32_t>(position + text.size());
}

int32_t fast_stat_AllDump(const PmuEventSelect *table, char *buffer, uint32_t size) {
  const int32_t cores = ReadShared(*g_nqe_core_num);
  uint32_t position = 0;
  for (int32_t c = 0; c < QDT_FAST_STAT_CORES && c < cores; ++c) {
    const int32_t written =
        fast_stat_lcore_dump(c, &g_fast_stat_lcore[c], table, buffer + position, size - position);
    if (written < 0) return written;
    position += written;
  }
  return static_cast<int32_t>(position);
}

int32_t fast_stat_lcore_dump(int32_t core, const FastStatCore *record, const PmuEventSelect *table,
                             char *buffer, uint32_t size) {
  Text text(buffer, size);
  if (!text.Print<"core=%d\r\n[No]statId, Hit-Cnt, Packets">(core))
    return qdt::Overflow("[fast_stat_lcore_dump1]out buffer overflow, size=%d, pos=%d\n", size, text.size());
  for (const PmuEventSelect &event : qdt::EventsOf(table)) {
    if (!text.Print<",%s">(event.name))
      return qdt::Overflow("[fast_stat_lcore_dump2]out buffer overflow, size=%d, pos=%d\n", size,
                           text.size());
  }
  if (!text.Print<"\r\n">())
    return qdt::Overflow("[fast_stat_lcore_dump3]out buffer overflow, size=%d, pos=%d\n", size, text.size());

  uint32_t position = text.size();
  for (int32_t i = 0; i < QDT_FAST_STAT_POINTS; ++i) {
    const FastStatPoint &point = record->points[i];
    if (ReadShared(point.hits) == 0) continue;
    const int32_t written = fast_stat_dump(i, &point, table, buffer + position, size - position);
    if (written < 0) return written;
    position += written;
  }
  return static_cast<int32_t>(position);
}

int32_t fast_stat_dump(int32_t point, const FastStatPoint *record, const PmuEventSelect *table, char *buffer,
                       uint32_t size) {
  Text text(buffer, size);
  if (!text.Print<"%d, %d, %d">(point, qdt::ReadNumber(record->hits), qdt::ReadNumber(record->packets)))
    return qdt::Overflow("[pmc_stat_dump1]out buffer overflow, size=%d, pos=%d\n", size, text.size());
  const size_t events = qdt::EventsOf(table).size();
  for (size_t i = 0; i < events; ++i) {
    if (!text.Print<", %llu">(ReadShared(record->events[i].count)))
      return qdt::Overflow("[pmc_stat_dump2]out buffer overflow, size=%d, pos=%d\n", size, text.size());
  }
  if (!text.Print<"\r\n">())
    return qdt::Overflow("[pmc_stat_dump3]out buffer overflow, size=%d, pos=%d\n", size, text.size());
  return text.Result();
}

void fast_stat_AllClear() {
  for (int c = 0; c < QDT_FAST_STAT_CORES; ++c) fast_stat_lcore_clear(&g_fast_stat_lcore[c]);
}

void fast_stat_lcore_clear(FastStatCore *record) { std::memset(record->points, 0, sizeof(record->points)); }

void FastStatHelp(OutputBuffer *out) {
  QdtCliPrintf(out, "nqecli pmc [ 1 ~ %d]\n", QDT_PMU_MODES);
  QdtCliPrintf(out, "nqecli pmc stop\n");
}

int32_t VrxFastStatCmdRunInner(OutputBuffer *out, int32_t wordCount, char **words) {
  const char *const word = qdt::WordAt(wordCount, words, 1);
  if (word == nullptr) {
    FastStatHelp(out);
    return 0;
  }
  if (std::isdigit(static_cast<unsigned char>(word[0])) != 0) return qdt::StartMode(out, word);
  if (std::strcmp(word, "stop") == 0) return qdt::StopMode(out);
  QdtCliPrintf(out, "Not support keyword, %s\n", word);
  FastStatHelp(out);
  return qdt::kFailed;
}

int32_t VrxFastStatCmdRun(OutputBuffer *out, int32_t wordCount, char **words) {
  qdt::EmptyAnswer(out);
  if (const int32_t code = get_fast_stat_SSMAP(); code < 0) {
    QdtCliPrintf(out, "fast stat OsaSmmap failed, ret=%d\n", code);
    return code;
  }
  return VrxFastStatCmdRunInner(out, wordCount, words);
}
