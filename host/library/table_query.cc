#include "host/library/table_query.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "host/library/batches.h"
#include "platform/memory.h"
#include "qdt/session.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

// Room for the texts of a batch of records behind the beginning of a piece. Only the pages that are reached
// become real, and they are used again for the next piece.
char g_answer[QDT_OUTPUT_CAPACITY];

// A piece of a long answer is written when it has so many characters.
constexpr size_t kPiece = 32 << 10;

constexpr uint32_t kSessionTable = 65;
constexpr uint32_t kListedByItself = 682;
constexpr uint32_t kMostSessions = 256;  // that are formatted at a time
constexpr uint32_t kMemoryView = 47;     // its answers are not framed

struct CodeText {
  int32_t code;
  const char *message;
};

#define QDT_CODE_TEXT(name, code, message) {code, message},
constexpr CodeText kCodes[] = {QDT_TABLE_CODES(QDT_CODE_TEXT)};
#undef QDT_CODE_TEXT

constexpr char kFrameLine[] = "------------------------------";

using Write = std::function<void(std::string_view)>;

// An answer that is made of records, written piece by piece.
class FramedText {
 public:
  FramedText(uint32_t view, const Write &write) : format_(g_nqeTblOps[view].format), write_(write) {
    Append(kFrameLine);
    Append("\n");
  }

  // Adds `count` records. False when the view refuses them and nothing of the answer is written yet: then the
  // message of the query itself is the answer.
  bool Add(std::span<const uint8_t> records, size_t count) {
    if (size_ >= kPiece) {
      write_({g_answer, size_});
      written_ = true;
      size_ = 0;
    }
    const size_t room = sizeof(g_answer) - size_;
    const int32_t length = format_(g_answer + size_, static_cast<uint32_t>(room), records.data(),
                                   static_cast<int32_t>(records.size()));
    // A positive failure code that a view passed through from below must not lead out of the room.
    if (length >= 0 && static_cast<size_t>(length) < room) {
      size_ += static_cast<size_t>(length);
      return true;
    }
    // Together they may have more text than there is room.
    if (count > 1) {
      const size_t half = count / 2;
      const size_t size = half * (records.size() / count);
      return Add(records.first(size), half) && Add(records.subspan(size), count - half);
    }
    if (!written_) return false;
    throw HostError(std::string("the list stopped in the middle: ") +
                    CodeMessage(length < 0 ? length : int32_t{QDT_TBL_FORMAT}));
  }

  // The last piece.
  Answer End() {
    // The line takes the place of the empty one behind the last record.
    if (std::string_view(g_answer, size_).ends_with("\n\n")) --size_;
    Append(kFrameLine);
    return {static_cast<int32_t>(size_), {g_answer, size_}};
  }

 private:
  void Append(std::string_view text) { size_ += text.copy(g_answer + size_, sizeof(g_answer) - size_); }

  const TableFormat format_;
  const Write &write_;
  size_t size_ = 0;
  bool written_ = false;
};

// What a search has delivered, its owner.
struct FreeRecords {
  void operator()(void *records) const { free_ex(g_mallocHandle, records); }
};

// The records that a query asks for, all of them before the first one is shown: a query that fails on the way
// has no answer but its message.
class QueryRecords {
 public:
  // Whether there are any; else the query itself says why not.
  bool Collect(const TableQuery &ask) {
    Batches batches(ask);
    if (batches.Prepare() != 0) return false;
    while (!batches.AtEnd()) {
      if (batches.Next() != 0 || batches.records().empty()) return false;
      const size_t size = batches.records().size(), count = batches.Count();
      batches_.push_back({std::unique_ptr<void, FreeRecords>(batches.Release()), size, count});
    }
    return true;
  }

  // Bytes of all of them.
  size_t Size() const {
    size_t size = 0;
    for (const Batch &batch : batches_) size += batch.size;
    return size;
  }

  bool AddTo(FramedText *text) const {
    return std::ranges::all_of(batches_, [text](const Batch &batch) {
      return text->Add({static_cast<const uint8_t *>(batch.records.get()), batch.size}, batch.count);
    });
  }

 private:
  struct Batch {
    std::unique_ptr<void, FreeRecords> records;
    size_t size;
    size_t count;
  };
  std::vector<Batch> batches_;
};

// The same of sessions, however many the view lists by itself.
class Sessions {
 public:
  bool Collect(const TableQuery &ask) {
    collect_.Key = SessionKeyOf(ask);
    collect_.Limit = std::min<uint32_t>(TbmTblGetSpec(0, kSessionTable), INT32_MAX / kSessionSize);
    records_.reset(new (std::nothrow) uint8_t[size_t{collect_.Limit} * kSessionSize]);
    collect_.Records = records_.get();
    return records_ != nullptr && TbmTblTrav(0, kSessionTable, SessionNodeSearchMatch, &collect_) == 0 &&
           collect_.Count > 0;
  }

  bool AddTo(FramedText *text) const {
    bool taken = true;
    for (uint32_t first = 0; first < collect_.Count && taken; first += kMostSessions) {
      const uint32_t count = std::min(kMostSessions, collect_.Count - first);
      taken = text->Add({records_.get() + size_t{first} * kSessionSize, size_t{count} * kSessionSize}, count);
    }
    return taken;
  }

 private:
  SessionCollect collect_{};
  std::unique_ptr<uint8_t[]> records_;
};

// Whether the view has listed as many sessions as it does by itself, and there may be more that it would
// take.
bool MayHaveMore(const TableQuery &ask, size_t size) {
  return ask.table == kSessionView && size >= kListedByItself * kSessionSize && !AsksForCount(ask) &&
         IsSessionKey(ask) && IsSessionFilter(ask);
}

// The answer of such records, or nothing where the query itself has to say what is wrong.
template <typename Records>
std::optional<Answer> Framed(const TableQuery &ask, const Records &records, const Write &write) {
  FramedText text(ask.table, write);
  if (!records.AddTo(&text)) return std::nullopt;
  return text.End();
}

std::optional<Answer> AnswerOfAll(const TableQuery &ask, const Write &write) {
  Sessions sessions;
  return sessions.Collect(ask) ? Framed(ask, sessions, write) : std::nullopt;
}

std::optional<Answer> AnswerOfRecords(const TableQuery &ask, const Write &write) {
  {
    QueryRecords records;
    if (!records.Collect(ask)) return std::nullopt;
    if (!MayHaveMore(ask, records.Size())) return Framed(ask, records, write);
  }
  return AnswerOfAll(ask, write);
}

}  // namespace

bool AsksForCount(const TableQuery &ask) { return std::strncmp(ask.key1, "num", 3) == 0; }

const char *CodeMessage(int32_t code) {
  for (const CodeText &row : kCodes) {
    if (row.code == code) return row.message;
  }
  return QDT_UNKNOWN_CODE_MESSAGE;
}

bool IsSessionKey(const TableQuery &ask) {
  return std::strlen(ask.key1) + 1 < sizeof(SessionSearchKey::Text);
}

SessionSearchKey SessionKeyOf(const TableQuery &ask) {
  SessionSearchKey key{};
  std::memcpy(key.Text, ask.key1, std::strlen(ask.key1));
  key.SrcPort = ask.key2;
  key.DstPort = ask.key3;
  key.Protocol = ask.key4;
  return key;
}

bool IsSessionFilter(const TableQuery &ask) {
  if (std::strncmp(ask.key1, "all", 3) == 0 || AsksForCount(ask)) return true;
  const SessionSearchKey key = SessionKeyOf(ask);
  constexpr char kNoSession[16] = {};
  return SessionNodeMatchHashNode(&key, kNoSession) != QDT_TBL_UNSUPPORTED;
}

Answer AnswerTableQuery(const TableQuery &ask, const Write &write) {
  if (Arena *arena = Arena::Current()) arena->DropCopies();
  std::optional<Answer> answer;
  if (ask.table != kMemoryView) answer = AnswerOfRecords(ask, write);
  if (!answer) {
    g_answer[0] = '\0';
    CliNqeTblSearch(g_answer, sizeof(g_answer), ask.table, ask.key1, ask.key2, ask.key3, ask.key4);
    const std::string_view text = g_answer;
    answer = {static_cast<int32_t>(text.size()), text};
  }
  std::fflush(stdout);  // what a query tells there comes before its answer
  return *answer;
}

}  // namespace qdt::host
