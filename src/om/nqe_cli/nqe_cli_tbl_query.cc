#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/engine.h"
#include "platform/memory.h"
#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/bounded.h"
#include "src/om/common/log.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/owned.h"
#include "src/om/common/rows.h"
#include "src/om/nqe_cli/command_words.h"
#include "src/om/nqe_cli/table_usage.h"

// The frame of the diag command: reads the words, runs a query through the registry in batches, frames the
// answer, and replaces it by one message when anything fails.
namespace qdt {
namespace {

constexpr char kFrameLine[] = "------------------------------";
constexpr int32_t kFrameLength = sizeof(kFrameLine) - 1;

// Shows memory figures of its own and is not framed.
constexpr uint32_t kUnframedTable = 47;

// Records fetched at a time, and the most that "num" may ask for.
constexpr uint32_t kBatch = 50;
constexpr uint32_t kMaxCount = 100;

struct ErrorMessage {
  int32_t code;
  const char *text;
};

#define QDT_ERROR_MESSAGE(name, code, message) {code, message},
constexpr ErrorMessage g_nqeTblErrMsg[30] = {QDT_TABLE_CODES(QDT_ERROR_MESSAGE)};  // the rest is spare
#undef QDT_ERROR_MESSAGE

constexpr auto kCodes = Column<g_nqeTblErrMsg, &ErrorMessage::code>();
constexpr auto kMessages = Column<g_nqeTblErrMsg, &ErrorMessage::text>();

const char *MessageOf(int32_t code) {
  for (size_t i = 0; i < kCodes.size(); ++i) {
    if (kCodes[i] == code && kMessages[i] != nullptr) return kMessages[i];
  }
  return QDT_UNKNOWN_CODE_MESSAGE;
}

enum QueryMode : uint32_t {
  kByKey = 0,    // the one entry that the keys name
  kAll = 1,      // batches to the end of the table, or of the key's entries
  kCounted = 2,  // a counted number of entries
};

// Results of a search: 0 and 1 as below, all else is a failure.
enum SearchResult : int32_t { kEnd = 0, kMore = 1 };

bool IsFailure(int32_t searchResult) { return static_cast<uint32_t>(searchResult) > kMore; }

// The state of one query.
struct DiagQuery {
  uint32_t recordLen = 0;
  uint32_t remaining = 0;  // records still to be fetched
  uint32_t mode = kByKey;
  void *record = nullptr;  // owned from the search's return until it has been formatted
  TbmTravContext ctx{};

  DiagQuery() = default;
  DiagQuery(const DiagQuery &) = delete;
  DiagQuery &operator=(const DiagQuery &) = delete;
  ~DiagQuery() { FreeRecord(); }

  void FreeRecord() {
    if (record != nullptr) free_ex(g_mallocHandle, record);
    record = nullptr;
  }
};

// Reads the count behind "num". What follows the digits is not looked at.
int32_t ReadCount(const char *key1, DiagQuery &query) {
  const size_t room = strlen(key1) - 2;
  const OwnedText count = AllocateText(QDT_HERE, room);
  if (count == nullptr || strcpy_s(count.get(), room, key1 + 3) != 0) return QDT_TBL_INVALID_INPUT;
  query.mode = kCounted;
  query.remaining = static_cast<uint32_t>(strtol(count.get(), nullptr, 10));
  return query.remaining - 1 >= kMaxCount ? int32_t{QDT_TBL_INVALID_INPUT} : 0;
}

int32_t AnalyseInput(uint32_t tableId, const char *key1, DiagQuery &query) {
  if (tableId >= QDT_DIAG_TABLE_COUNT) return QDT_TBL_INVALID_INPUT;
  const TableOps &view = g_nqeTblOps[tableId];
  if (view.search == nullptr || view.format == nullptr) return QDT_TBL_INVALID_INPUT;
  if (strcmp(key1, "all") == 0) {
    query.mode = kAll;
  } else if (strncmp(key1, "num", 3) == 0) {
    if (const int32_t code = ReadCount(key1, query); code != 0) return code;
  }
  if (g_qdtTblGetAllItemsOfOneKey[tableId] == 1) query.mode = kAll;
  return 0;
}

uint32_t GetLoopNum(DiagQuery &query) {
  if (query.remaining == 0) return query.mode == kAll ? kBatch : 0;
  const uint32_t loopNum = std::min(query.remaining, kBatch);
  query.remaining -= loopNum;
  return loopNum;
}

bool IsLastBatch(int32_t searchResult, const DiagQuery &query) {
  return searchResult == kEnd || (query.mode != kAll && query.remaining == 0);
}

// Closes the answer of `position` bytes and stores the length of what closes it. An answer that ends with an
// empty line gets the line in its place.
int32_t WriteEndLine(char *out, uint32_t room, uint32_t position, int32_t *length) {
  *length = 0;
  if (room - position <= kFrameLength || position < 2) return 0;
  if (out[position - 1] == '\n' && out[position - 2] == '\n') --position;
  *length = sprintf_s(out + position, room - position, "%s", kFrameLine);
  return *length < 0 ? int32_t{QDT_TBL_FORMAT} : 0;
}

// What a query asks for; the same for all of its batches.
struct Question {
  uint32_t tableId;
  const char *key1;
  uint32_t key2, key3, key4;
};

// Writes the answer and stores the length of its end line; 0, or the code of what failed.
int32_t RunQuery(char *out, uint32_t room, const Question &ask, DiagQuery &query, int32_t *endLength) {
  if (const int32_t code = AnalyseInput(ask.tableId, ask.key1, query); code != 0) return code;
  TbmTblTravContextInit(&query.ctx);

  const bool framed = ask.tableId != kUnframedTable;
  uint32_t position = 0;
  if (framed) {
    const int32_t written = sprintf_s(out, room, "%s\n", kFrameLine);
    if (written < 0) return QDT_TBL_FORMAT;
    position = static_cast<uint32_t>(written);
  }
  const TableOps &view = g_nqeTblOps[ask.tableId];
  for (bool last = false; !last;) {
    const uint32_t loopNum = GetLoopNum(query);
    const int32_t found = view.search(&query.record, &query.recordLen, &query.ctx, loopNum, ask.key1,
                                      ask.key2, ask.key3, ask.key4);
    if (IsFailure(found)) return found;
    last = IsLastBatch(found, query);
    const int32_t written =
        view.format(out + position, room - position, query.record, static_cast<int32_t>(query.recordLen));
    if (written < 0) return written;
    // A positive failure code that a view passed through from below must not lead out of the room.
    if (static_cast<uint32_t>(written) >= room - position) return QDT_TBL_FORMAT;
    position += static_cast<uint32_t>(written);
    query.FreeRecord();
  }
  return framed ? WriteEndLine(out, room, position, endLength) : 0;
}

// Replaces whatever has been written by the message of `code`; the message's length.
int32_t CliNqeErrorReturn(char *out, uint32_t room, int32_t code) {
  const int32_t written = sprintf_s(out, room, "%s", MessageOf(code));
  if (written >= 0) return written;
  QDT_LOG_ERROR("Sprintf_s msg failed.\n");
  return 0;
}

int32_t PrintUsage(OutputBuffer *out) {
  size_t longest = 0;
  for (int i = 0; i < kTableUsageCount; ++i) longest = std::max(longest, strlen(UsageOf(i).name));
  const int width = static_cast<int>(longest) + 2;
  int32_t written = QdtCliPrintf(out, "%s\n", "diag clear cpcar status");
  for (int i = 0; i < kTableUsageCount; ++i) {
    const TableUsage usage = UsageOf(i);
    written = QdtCliPrintf(out, "%-*s diag search nqpTable %s\n", width, usage.name, usage.keys);
  }
  return written;
}

bool ParseNumbers(char **words, const int (&positions)[4], uint32_t (&numbers)[4]) {
  for (int i = 0; i < 4; ++i) {
    uint8_t ok = 0;
    numbers[i] = QdtCliParseUint(words[positions[i]], &ok);
    if (ok == 0) return false;
  }
  return true;
}

}  // namespace
}  // namespace qdt

int32_t CliNqeTblSearch(char *out, uint32_t room, uint32_t tableId, const char *key1, uint32_t key2,
                        uint32_t key3, uint32_t key4) {
  const qdt::EngineMemoryScope memory;
  qdt::DiagQuery query;
  int32_t endLength = 0;
  const int32_t code = qdt::RunQuery(out, room, {tableId, key1, key2, key3, key4}, query, &endLength);
  return code == 0 ? endLength : qdt::CliNqeErrorReturn(out, room, code);
}

int32_t VrxDiagCmdRun(OutputBuffer *out, int32_t wordCount, char **words) {
  qdt::EmptyAnswer(out);
  if (wordCount == 4 && strcmp(words[1], "clear") == 0 && strcmp(words[2], "cpcar") == 0 &&
      strcmp(words[3], "status") == 0) {
    return QdtCpCarStatClearAll();
  }
  uint32_t numbers[4];  // table id, key2, key3, key4
  if (wordCount == 8 && strcmp(words[1], "search") == 0 && strcmp(words[2], "nqpTable") == 0 &&
      qdt::ParseNumbers(words, {3, 5, 6, 7}, numbers)) {
    CliNqeTblSearch(out->buf, QDT_OUTPUT_CAPACITY, numbers[0], words[4], numbers[1], numbers[2], numbers[3]);
    out->len = static_cast<uint32_t>(strlen(out->buf));
    return static_cast<int32_t>(out->len);
  }
  return qdt::PrintUsage(out);
}
