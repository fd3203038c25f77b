#include "host/library/table_query.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "qdt/session.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

// Where most answers find room. Only the pages that an answer reaches become real.
char g_answer[QDT_OUTPUT_CAPACITY];

// No piece of a record's text is longer: an answer that ended for want of room stopped in the last bytes.
constexpr uint32_t kTail = 64 << 10;
// The library takes larger rooms for negative numbers.
constexpr uint32_t kMostRoom = 0x7ffff000;

constexpr uint32_t kSessionTable = 65;
constexpr uint32_t kListedByItself = 682;
constexpr uint32_t kPiece = 256;  // sessions that are written at a time
struct CodeText {
  int32_t code;
  const char *message;
};

#define QDT_CODE_TEXT(name, code, message) {code, message},
constexpr CodeText kCodes[] = {QDT_TABLE_CODES(QDT_CODE_TEXT)};
#undef QDT_CODE_TEXT

constexpr char kFrameLine[] = "------------------------------";

// Address space whose pages become real as the text grows.
class Reserved {
 public:
  explicit Reserved(uint32_t most) : size_(most) {
    // Limits of the process or of the machine may leave less of it.
    for (; size_ > sizeof(g_answer); size_ /= 2) {
      constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
      if (void *got = mmap(nullptr, size_, PROT_READ | PROT_WRITE, kFlags, -1, 0); got != MAP_FAILED) {
        place_ = static_cast<char *>(got);
        return;
      }
    }
  }
  ~Reserved() {
    if (place_ != nullptr) munmap(place_, size_);
  }
  Reserved(const Reserved &) = delete;
  Reserved &operator=(const Reserved &) = delete;

  char *place() const { return place_; }
  uint32_t size() const { return size_; }

 private:
  char *place_ = nullptr;
  uint32_t size_;
};

// Where the last answer found room that was too long for the other place.
std::unique_ptr<Reserved> g_more;

std::string_view Ask(const TableQuery &ask, char *out, uint32_t room) {
  out[0] = '\0';
  CliNqeTblSearch(out, room, ask.table, ask.key1, ask.key2, ask.key3, ask.key4);
  return out;
}

// Of a query that fails the message alone stands at the room's beginning; behind it is what was written
// before.
bool WasFull(std::string_view answer) {
  if (answer.starts_with(kFrameLine)) return false;
  const char *tail = std::end(g_answer) - kTail;
  return std::any_of(tail, tail + kTail, [](char c) { return c != '\0'; });
}

// The sessions that a query asks for, in the room that they take.
class Sessions {
 public:
  explicit Sessions(const TableQuery &ask) {
    collect_.Key = SessionKeyOf(ask);
    collect_.Limit = std::min<uint32_t>(TbmTblGetSpec(0, kSessionTable), kMostRoom / kSessionSize);
    records_.reset(new (std::nothrow) char[size_t{collect_.Limit} * kSessionSize]);
    collect_.Records = records_.get();
  }

  // Whether there are any; else the query itself says why not.
  bool Collect() {
    return records_ != nullptr && TbmTblTrav(0, kSessionTable, SessionNodeSearchMatch, &collect_) == 0 &&
           collect_.Count > 0;
  }

  Answer Write(const std::function<void(std::string_view)> &write) const {
    std::string piece = std::string(kFrameLine) + '\n';
    for (uint32_t first = 0; first < collect_.Count; first += kPiece) {
      const uint32_t count = std::min(kPiece, collect_.Count - first);
      const int32_t length =
          NqeTableFormatSession(g_answer, sizeof(g_answer), records_.get() + size_t{first} * kSessionSize,
                                static_cast<int32_t>(count * kSessionSize));
      if (length < 0) throw HostError("the list of sessions stopped in the middle");
      write(piece);
      piece.assign(g_answer, static_cast<size_t>(length));
    }
    // The line takes the place of the empty one behind the last session.
    if (piece.ends_with("\n\n")) piece.pop_back();
    piece += kFrameLine;
    std::memcpy(g_answer, piece.c_str(), piece.size() + 1);
    return {static_cast<int32_t>(piece.size()), {g_answer, piece.size()}};
  }

 private:
  SessionCollect collect_{};
  std::unique_ptr<char[]> records_;
};

// Whether there may be more sessions than the view lists by itself, and the query is one that it takes.
bool MayExceedView(const TableQuery &ask) {
  if (ask.table != kSessionView || AsksForCount(ask)) return false;
  uint32_t count = 0;
  if (TbmTblEntryNum(0, kSessionTable, &count) != 0 || count <= kListedByItself) return false;
  return IsSessionKey(ask) && IsSessionFilter(ask);
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

Answer AnswerTableQuery(const TableQuery &ask, const std::function<void(std::string_view)> &write) {
  if (Arena *arena = Arena::Current()) arena->DropCopies();
  if (MayExceedView(ask)) {
    Sessions sessions(ask);
    if (sessions.Collect()) return sessions.Write(write);
  }
  std::string_view text = Ask(ask, g_answer, sizeof(g_answer));
  if (WasFull(text)) {
    g_more = std::make_unique<Reserved>(kMostRoom);
    if (g_more->place() != nullptr) text = Ask(ask, g_more->place(), g_more->size());
  }
  std::fflush(stdout);  // what a query tells there comes before its answer
  return {static_cast<int32_t>(text.size()), text};
}

}  // namespace qdt::host
