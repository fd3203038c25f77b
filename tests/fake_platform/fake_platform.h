#ifndef TESTS_FAKE_PLATFORM_FAKE_PLATFORM_H_
#define TESTS_FAKE_PLATFORM_FAKE_PLATFORM_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/engine.h"
#include "platform/memory.h"
#include "platform/omcc.h"
#include "platform/shm.h"
#include "platform/tbm.h"
#include "qdt/cli.h"
#include "qdt/tables.h"

// A management request: its parameters by name and kind.
struct omcc_request {
  std::map<std::string, const char *> texts;  // a null text is a parameter without one
  std::map<std::string, uint64_t> numbers;
  std::map<std::string, uint8_t> flags;
  // Whether asking for a parameter that is not there leaves something in the output.
  bool scribbles = false;
};

namespace qdt::test {

using Bytes = std::vector<uint8_t>;

// A zeroed record whose fields are written by byte offset, so that tests state where the engine keeps what.
class Record {
 public:
  explicit Record(size_t size) : bytes_(size) {}

  Record &U8(size_t offset, uint8_t value) { return Put(offset, value); }
  Record &U16(size_t offset, uint16_t value) { return Put(offset, value); }
  Record &U32(size_t offset, uint32_t value) { return Put(offset, value); }
  Record &U64(size_t offset, uint64_t value) { return Put(offset, value); }
  Record &Address(size_t offset, const void *value) { return Put(offset, reinterpret_cast<uint64_t>(value)); }
  // Sets bits of the 32-bit word at `offset`.
  Record &Bits(size_t offset, int shift, uint32_t value);
  Record &Copy(size_t offset, std::string_view bytes);

  const Bytes &bytes() const { return bytes_; }
  const void *data() const { return bytes_.data(); }
  int32_t size() const { return static_cast<int32_t>(bytes_.size()); }

 private:
  template <typename T>
  Record &Put(size_t offset, T value) {
    EXPECT_LE(offset + sizeof(value), bytes_.size());
    std::memcpy(bytes_.data() + offset, &value, sizeof(value));
    return *this;
  }

  Bytes bytes_;
};

// The bytes of the values, one after the other: keys are written Key(uint16_t{24}, uint16_t{0}, uint32_t{1}).
template <typename... T>
Bytes Key(T... values) {
  Bytes key((sizeof(T) + ...));
  size_t at = 0;
  ((std::memcpy(key.data() + at, &values, sizeof(values)), at += sizeof(values)), ...);
  return key;
}

struct LogLine {
  int priority;
  std::string text;
  bool operator==(const LogLine &) const = default;
};
std::ostream &operator<<(std::ostream &out, const LogLine &line);

// A platform whose tables, failures and engine answers are scripted by a test. There is one; Reset makes it
// new.
class FakePlatform {
 public:
  static FakePlatform &Get();
  void Reset();

  // Adds an entry and returns the address at which a search finds it. Entries are walked in this order;
  // several may share a key. A walk delivers `record`; a search finds its byte `searchOffset`.
  void *AddEntry(uint32_t table, const Bytes &key, const Bytes &record, size_t searchOffset = 0);
  // Removes all entries of the table.
  void ClearTable(uint32_t table);

  // Tables in which every search or match succeeds and finds no entry.
  std::set<uint32_t> hollowTables;

  // Makes every search, match or walk of the table return `code`. 0 takes that back.
  void FailTable(uint32_t table, int32_t code);
  // Makes counts of the table's entries return `code`.
  void FailCount(uint32_t table, int32_t code);
  // Makes walks of the table return `code` from their call number `call` (0 for the first) on.
  void FailWalk(uint32_t table, int call, int32_t code);

  // The walks asked for: one line a call, "next 57 1600" (table, bytes) or "by key 57 1600 KEYBYTES".
  std::vector<std::string> walks;
  // The searches made: "search 24 KEYBYTES" or "match 1 KEYBYTES", for keys of known tables.
  std::vector<std::string> searches;

  // ACL rules, by the address of their group's entry and by priority.
  struct AclRule {
    int32_t code = 0;
    Bytes action, content;
  };
  std::map<std::pair<void *, uint32_t>, AclRule> aclRules;
  // How many rules of a group are active, by group type and id; none of a group that is not there.
  struct ActiveRules {
    int32_t code = 0;
    uint32_t count = 0;
  };
  std::map<std::pair<uint32_t, uint32_t>, ActiveRules> activeRules;
  // ACL groups and rules of the whole device.
  struct AclUse {
    int32_t code = 0;
    uint32_t groups = 0, rules = 0;
  };
  AclUse aclUse;
  // Memory of tables, by table id; a table that is not listed has none.
  struct TableMemory {
    int32_t code = 0;
    uint32_t bytes = 0;
  };
  std::map<uint32_t, TableMemory> tableMemory;
  std::vector<uint32_t> memoryQueries;  // the tables whose memory was asked for

  // Capacities of tables, by table id; a table that is not listed is not defined.
  std::map<uint32_t, uint32_t> capacities;

  // Shared regions that VRX_Smmap finds; the sizes and names it was asked for stand in `attaches`.
  void AddRegion(const std::string &name, size_t size);
  void *Region(const std::string &name);
  void RemoveRegion(const std::string &name);
  std::vector<std::string> attaches;
  // Regions in memory that the test lends: what keeps its attachment needs one that outlives the platform.
  std::map<std::string, void *> lentRegions;

  // The n-th allocation from now (0 for the next) fails; negative: none does.
  void FailAllocation(int n) { failAllocation_ = n; }
  size_t liveAllocations() const { return live_.size(); }
  struct Allocation {
    std::string path;
    uint32_t line;
    size_t size;
  };
  std::vector<Allocation> allocations;  // all that were asked for
  int foreignFrees = 0;

  std::vector<LogLine> log;

  // The engine: what it answers to every command line, and the lines that it was sent.
  struct EngineReply {
    int32_t result = -1;
    bool hasText = false;
    std::string text;
  };
  EngineReply engineReply;
  std::vector<std::string> engineLines;
  // The same for lines that the engine runs itself, without its message channel.
  EngineReply runReply;
  std::vector<std::string> runLines;
  // A heap text as the engine hands it out; released with free_ex like all memory.
  char *NewText(const std::string &text);

  // The management agent: the answers that it was sent, and what sending returns from the one of this number
  // on.
  std::vector<std::string> answers;
  int32_t sendResult = 0;
  size_t sendResultFrom = 0;

  // The engine's totals, and the kinds that were asked for, one mask a call.
  std::vector<uint64_t> statistics = std::vector<uint64_t>(831);
  std::vector<uint32_t> statisticsMasks;

  // Run contexts (cores) and their counters; a vector that is empty is a core without any. A count that is
  // set stands in place of theirs.
  std::vector<std::vector<uint64_t>> runContexts;
  std::optional<int32_t> runContextCount;

  // Management documents: what was done to them, a line a call, the call that fails (0 for the first), and
  // those that were not released.
  struct Documents {
    std::vector<std::string> calls;
    int failAt = -1;
    int live = 0;
  };
  Documents documents;

  // The shared-memory partition: what attaching it returns and stores, its figures, and the names asked for.
  struct Partition {
    int32_t code = 0;
    uint16_t handle = 0xBEEF;
    uint32_t total = 0, allocated = 0;
    std::vector<std::string> attaches;
  };
  Partition partition;

  // Names of host protocols, by number; there are no others.
  std::map<uint32_t, std::string> protocols;

  // The engine's session statistics: its text, and what asking for it returns.
  struct SessionStatistics {
    int32_t result = 0;
    std::string text;
    std::vector<uint32_t> rooms;  // that it was given
  };
  SessionStatistics sessionStatistics;

  // The server maps' hash map: the nodes of its buckets, what counting them returns, the walk that fails (0
  // for the first) and with what, and the walks asked for, "FIRST COUNT FLAG" each. Map() is its handle.
  struct HashMap {
    std::vector<std::vector<void *>> buckets;
    int32_t countCode = 0;
    int failWalkAt = -1;
    int32_t walkCode = 0;
    std::vector<std::string> walks;
    TbmHashMap *Map() { return reinterpret_cast<TbmHashMap *>(this); }
  };
  HashMap serverMaps;

  // Pauses that the library asked for, in microseconds; none of them takes time.
  std::vector<uint32_t> pauses;

  int32_t clearCpcarResult = 0;
  int clearCpcarCalls = 0;

  // What the platform's functions call.
  int32_t Count(uint32_t instance, uint32_t table, uint32_t *count);
  int32_t Find(const char *kind, uint32_t instance, uint32_t table, const void *key, void **entry);
  int32_t Walk(uint32_t instance, uint32_t table, const void *key, TbmTravContext *ctx, void *buffer,
               uint32_t *bytes);
  int32_t Visit(uint32_t instance, uint32_t table, TbmTravCallback callback, void *context);
  void *Allocate(const char *path, uint32_t line, size_t size);
  void Free(void *pointer);
  void *Attach(const char *name, uint32_t size, uint32_t flags);
  void AddStatistics(uint32_t kinds, uint64_t *vector);

 private:
  struct Entry {
    Bytes key;
    std::unique_ptr<uint64_t[]> storage;  // aligned as the engine's records are
    size_t size;
    size_t searchOffset;
  };
  struct Table {
    std::deque<Entry> entries;
    int32_t code = 0;
    int32_t countCode = 0;
    int failWalkAt = -1;
    int32_t walkCode = 0;
    int walkCalls = 0;
  };

  std::map<uint32_t, Table> tables_;
  std::map<std::string, std::vector<uint64_t>> regions_;
  std::set<void *> live_;
  int failAllocation_ = -1;
};

// Starts with a new platform and ends with a look for memory that nobody released.
class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { platform.Reset(); }
  void TearDown() override {
    EXPECT_EQ(platform.liveAllocations(), 0u) << "memory was not released";
    EXPECT_EQ(platform.foreignFrees, 0) << "memory was released that is not the allocator's";
    EXPECT_EQ(platform.documents.live, 0) << "a document was not released";
  }

  // The answer of `diag search nqpTable ID KEY1 KEY2 KEY3 KEY4`.
  std::string Query(const std::string &id, const std::string &key1, const std::string &key2 = "0",
                    const std::string &key3 = "0", const std::string &key4 = "0");
  // Runs the diag command with these words behind its name; `result` is what it returned.
  std::string Diag(const std::vector<std::string> &words);

  // The text that a format operation writes for the record, or "code N".
  static std::string FormatText(TableFormat format, const Record &record);
  // A format operation must refuse every room below its text's length + 1 with -120 and never write outside.
  static void ExpectBoundedByRoom(TableFormat format, const Record &record);

  FakePlatform &platform = FakePlatform::Get();
  int32_t result = 0;
};

// The text of tests/golden/NAME.
std::string Golden(const std::string &name);

}  // namespace qdt::test

#endif  // TESTS_FAKE_PLATFORM_FAKE_PLATFORM_H_
