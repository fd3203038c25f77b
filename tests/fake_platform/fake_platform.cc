#include "tests/fake_platform/fake_platform.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <ostream>
#include <sstream>
#include <type_traits>

namespace qdt::test {
namespace {

std::string Hex(const Bytes &bytes) {
  std::string text;
  char digits[3];
  for (const uint8_t byte : bytes) {
    std::snprintf(digits, sizeof(digits), "%02x", byte);
    text += digits;
  }
  return text;
}

}  // namespace

Record &Record::Bits(size_t offset, int shift, uint32_t value) {
  uint32_t word = 0;
  std::memcpy(&word, bytes_.data() + offset, sizeof(word));
  return U32(offset, word | value << shift);
}

Record &Record::Copy(size_t offset, std::string_view bytes) {
  EXPECT_LE(offset + bytes.size(), bytes_.size());
  std::memcpy(bytes_.data() + offset, bytes.data(), bytes.size());
  return *this;
}

std::ostream &operator<<(std::ostream &out, const LogLine &line) {
  return out << "<" << line.priority << ">" << line.text;
}

FakePlatform &FakePlatform::Get() {
  static FakePlatform platform;
  return platform;
}

void FakePlatform::Reset() {
  for (void *block : live_) std::free(block);
  *this = FakePlatform();
  g_tbmGlobalInfo = nullptr;
}

void *FakePlatform::AddEntry(uint32_t table, const Bytes &key, const Bytes &record, size_t searchOffset) {
  Entry entry{key, std::make_unique<uint64_t[]>(record.size() / 8 + 1), record.size(), searchOffset};
  std::memcpy(entry.storage.get(), record.data(), record.size());
  void *const address = reinterpret_cast<char *>(entry.storage.get()) + searchOffset;
  tables_[table].entries.push_back(std::move(entry));
  return address;
}

void FakePlatform::ClearTable(uint32_t table) { tables_.erase(table); }

void FakePlatform::FailTable(uint32_t table, int32_t code) { tables_[table].code = code; }

void FakePlatform::FailCount(uint32_t table, int32_t code) { tables_[table].countCode = code; }

void FakePlatform::FailWalk(uint32_t table, int call, int32_t code) {
  tables_[table].failWalkAt = call;
  tables_[table].walkCode = code;
}

void FakePlatform::AddRegion(const std::string &name, size_t size) { regions_[name].assign(size / 8 + 1, 0); }

void *FakePlatform::Region(const std::string &name) { return regions_.at(name).data(); }

void FakePlatform::RemoveRegion(const std::string &name) { regions_.erase(name); }

int32_t FakePlatform::Find(const char *kind, uint32_t instance, uint32_t id, const void *key, void **found) {
  EXPECT_EQ(instance, 0u);
  Table &table = tables_[id];
  if (table.code != 0) return table.code;
  if (hollowTables.contains(id)) {
    *found = nullptr;
    return 0;
  }
  for (size_t i = 0; i < table.entries.size(); ++i) {
    Entry &entry = table.entries[i];
    if (i == 0) {
      const auto *bytes = static_cast<const uint8_t *>(key);
      searches.push_back(std::string(kind) + " " + std::to_string(id) + " " +
                         Hex(Bytes(bytes, bytes + entry.key.size())));
    }
    if (std::memcmp(entry.key.data(), key, entry.key.size()) == 0) {
      *found = reinterpret_cast<char *>(entry.storage.get()) + entry.searchOffset;
      return 0;
    }
  }
  return QDT_TBL_NOT_FOUND;
}

int32_t FakePlatform::Count(uint32_t instance, uint32_t id, uint32_t *count) {
  EXPECT_EQ(instance, 0u);
  const Table &table = tables_[id];
  *count = static_cast<uint32_t>(table.entries.size());
  return table.countCode;
}

int32_t FakePlatform::Walk(uint32_t instance, uint32_t id, const void *key, TbmTravContext *ctx, void *buffer,
                           uint32_t *bytes) {
  EXPECT_EQ(instance, 0u);
  Table &table = tables_[id];
  std::string line =
      (key == nullptr ? "next " : "by key ") + std::to_string(id) + " " + std::to_string(*bytes);
  if (key != nullptr && !table.entries.empty()) {
    const auto *from = static_cast<const uint8_t *>(key);
    line += " " + Hex(Bytes(from, from + table.entries.front().key.size()));
  }
  walks.push_back(line);
  if (table.code != 0) return table.code;
  if (const int call = table.walkCalls++; table.failWalkAt >= 0 && call >= table.failWalkAt)
    return table.walkCode;

  const auto matches = [key](const Entry &entry) {
    return key == nullptr || std::memcmp(entry.key.data(), key, entry.key.size()) == 0;
  };
  uint64_t &position = ctx->opaque[0];
  uint64_t &count = ctx->opaque[1];
  uint32_t filled = 0;
  count = 0;
  for (; position < table.entries.size(); ++position) {
    const Entry &entry = table.entries[position];
    if (!matches(entry)) continue;
    if (filled + entry.size > *bytes) {
      *bytes = filled;
      return 1;
    }
    std::memcpy(static_cast<char *>(buffer) + filled, entry.storage.get(), entry.size);
    filled += static_cast<uint32_t>(entry.size);
    ++count;
  }
  *bytes = filled;
  return 0;
}

int32_t FakePlatform::Visit(uint32_t instance, uint32_t id, TbmTravCallback callback, void *context) {
  EXPECT_EQ(instance, 0u);
  walks.push_back("visit " + std::to_string(id));
  const Table &table = tables_[id];
  if (table.code != 0) return table.code;
  for (const Entry &entry : table.entries) {
    const int32_t code = callback(entry.storage.get(), context);
    if (code == QDT_TBL_STOP) break;
    EXPECT_EQ(code, QDT_TBL_CONTINUE);
  }
  return 0;
}

void *FakePlatform::Allocate(const char *path, uint32_t line, size_t size) {
  allocations.push_back({path, line, size});
  if (failAllocation_ >= 0 && failAllocation_-- == 0) return nullptr;
  void *const block = std::malloc(size);
  std::memset(block, 0xA5, size);  // nothing may rely on fresh memory
  live_.insert(block);
  return block;
}

void FakePlatform::Free(void *pointer) {
  if (pointer == nullptr) return;
  if (live_.erase(pointer) == 0) {
    ++foreignFrees;
    return;
  }
  std::free(pointer);
}

char *FakePlatform::NewText(const std::string &text) {
  char *const block = static_cast<char *>(std::malloc(text.size() + 1));
  std::memcpy(block, text.c_str(), text.size() + 1);
  live_.insert(block);
  return block;
}

void *FakePlatform::Attach(const char *name, uint32_t size, uint32_t flags) {
  EXPECT_EQ(flags, 0u);
  attaches.push_back(std::string(name) + " " + std::to_string(size));
  if (const auto lent = lentRegions.find(name); lent != lentRegions.end()) return lent->second;
  const auto region = regions_.find(name);
  return region == regions_.end() ? nullptr : region->second.data();
}

void FakePlatform::AddStatistics(uint32_t kinds, uint64_t *vector) {
  statisticsMasks.push_back(kinds);
  const auto kindOf = [](size_t index) -> uint32_t {
    if (index < 100 || (index >= 461 && index < 577)) return 1;
    return index < 187 ? 4 : 2;
  };
  for (size_t i = 0; i < statistics.size(); ++i) {
    if ((kindOf(i) & kinds) != 0) vector[i] += statistics[i];
  }
}

std::string PlatformTest::Diag(const std::vector<std::string> &words) {
  std::vector<char *> pointers = {const_cast<char *>("diag")};
  for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
  std::vector<char> area(QDT_OUTPUT_CAPACITY, '#');
  OutputBuffer out = {area.data(), 77};
  result = VrxDiagCmdRun(&out, static_cast<int32_t>(pointers.size()), pointers.data());
  EXPECT_EQ(std::strlen(out.buf), out.len);
  return out.buf;
}

std::string PlatformTest::Query(const std::string &id, const std::string &key1, const std::string &key2,
                                const std::string &key3, const std::string &key4) {
  return Diag({"search", "nqpTable", id, key1, key2, key3, key4});
}

std::string PlatformTest::FormatText(TableFormat format, const Record &record) {
  std::string area(QDT_OUTPUT_CAPACITY, '#');
  const int32_t written = format(area.data(), QDT_OUTPUT_CAPACITY, record.data(), record.size());
  if (written < 0) return "code " + std::to_string(written);
  EXPECT_EQ(std::strlen(area.c_str()), static_cast<size_t>(written));
  return area.c_str();
}

void PlatformTest::ExpectBoundedByRoom(TableFormat format, const Record &record) {
  const std::string whole = FormatText(format, record);
  const auto length = static_cast<uint32_t>(whole.size());
  // Every room near the text's ends, and a sample between: the views are long and rooms are many.
  std::set<uint32_t> rooms = {0, 1, 2, length - 1, length};
  for (uint32_t room = 3; room < length; room += 1 + length / 200) rooms.insert(room);
  for (const uint32_t room : rooms) {
    const auto area = std::make_unique<char[]>(room);  // a sanitizer sees every byte beyond
    EXPECT_EQ(format(area.get(), room, record.data(), record.size()), QDT_TBL_FORMAT) << "room " << room;
  }
  const auto area = std::make_unique<char[]>(length + 1);
  EXPECT_EQ(format(area.get(), length + 1, record.data(), record.size()), static_cast<int32_t>(length));
  EXPECT_EQ(area.get(), whole);
}

std::string Golden(const std::string &name) {
  std::ifstream file(std::string(QDT_GOLDEN_DIR) + "/" + name, std::ios::binary);
  EXPECT_TRUE(file.good()) << "no golden " << name;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace qdt::test

using qdt::test::FakePlatform;

namespace {

int32_t Answer(const char *line, std::vector<std::string> &lines, const FakePlatform::EngineReply &answer,
               char **reply) {
  lines.push_back(line);
  if (answer.hasText) *reply = FakePlatform::Get().NewText(answer.text);
  return answer.result;
}

// The parameter of this name, or -7 with `noise` in the output of a request that scribbles.
template <typename T>
int32_t Parameter(const omcc_request &request, const std::map<std::string, T> &values, const char *name,
                  std::type_identity_t<T> noise, T *value) {
  const auto found = values.find(name);
  if (found != values.end()) {
    *value = found->second;
    return 0;
  }
  if (request.scribbles) *value = noise;
  return -7;
}

}  // namespace

extern "C" {

void *g_mallocHandle = &g_mallocHandle;
TbmGlobalInfo *g_tbmGlobalInfo = nullptr;

void *malloc_ex(void *handle, const char *path, uint32_t line, size_t size) {
  EXPECT_EQ(handle, g_mallocHandle);
  return FakePlatform::Get().Allocate(path, line, size);
}

void *calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size) {
  void *const block = malloc_ex(handle, path, line, count * size);
  if (block != nullptr) std::memset(block, 0, count * size);
  return block;
}

void free_ex(void *handle, void *pointer) {
  EXPECT_EQ(handle, g_mallocHandle);
  FakePlatform::Get().Free(pointer);
}

int32_t TbmTblSearch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  return FakePlatform::Get().Find("search", instance, table, key, entry);
}

int32_t TbmTblMatch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  return FakePlatform::Get().Find("match", instance, table, key, entry);
}

int32_t TbmTblTrav(uint32_t instance, uint32_t table, TbmTravCallback callback, void *context) {
  return FakePlatform::Get().Visit(instance, table, callback, context);
}

void TbmTblTravContextInit(TbmTravContext *ctx) { *ctx = {}; }

int32_t TbmTblTravNext(uint32_t instance, uint32_t table, TbmTravContext *ctx, void *buffer,
                       uint32_t *bytes) {
  return FakePlatform::Get().Walk(instance, table, nullptr, ctx, buffer, bytes);
}

int32_t TbmTblTravNextByKey(uint32_t instance, uint32_t table, const void *key, TbmTravContext *ctx,
                            void *buffer, uint32_t *bytes) {
  return FakePlatform::Get().Walk(instance, table, key, ctx, buffer, bytes);
}

uint32_t TbmTblTravContextCnt(const TbmTravContext *ctx) { return static_cast<uint32_t>(ctx->opaque[1]); }

int32_t TbmAclGroupSearchByPri(void *groupEntry, uint32_t priority, void **action, void **content) {
  auto &rules = FakePlatform::Get().aclRules;
  const auto rule = rules.find({groupEntry, priority});
  if (rule == rules.end()) return QDT_TBL_NOT_FOUND;
  *action = rule->second.action.data();
  *content = rule->second.content.data();
  return rule->second.code;
}

int32_t TbmAclGroupActiveRuleNum(uint32_t groupType, uint32_t groupId, uint32_t *count) {
  const auto active = FakePlatform::Get().activeRules[{groupType, groupId}];
  *count = active.count;
  return active.code;
}

int32_t TbmTblAclEntryNum(uint32_t instance, uint32_t table, uint32_t *groups, uint32_t *rules) {
  EXPECT_EQ(instance, 0u);
  EXPECT_EQ(table, 24u);
  const auto &use = FakePlatform::Get().aclUse;
  *groups = use.groups;
  *rules = use.rules;
  return use.code;
}

uint32_t TbmTblGetSpec(uint32_t instance, uint32_t table) {
  EXPECT_EQ(instance, 0u);
  return FakePlatform::Get().capacities[table];
}

int32_t TbmTblMemStat(uint32_t instance, uint32_t table, uint32_t *bytes) {
  EXPECT_EQ(instance, 0u);
  FakePlatform::Get().memoryQueries.push_back(table);
  const auto memory = FakePlatform::Get().tableMemory[table];
  *bytes = memory.bytes;
  return memory.code;
}

void *VRX_Smmap(const char *name, uint32_t size, uint32_t flags) {
  return FakePlatform::Get().Attach(name, size, flags);
}

int32_t QdtSendCmdToNqe(const char *cmdline, char **reply) {
  FakePlatform &platform = FakePlatform::Get();
  return Answer(cmdline, platform.engineLines, platform.engineReply, reply);
}

int32_t QdtProcessCmdline(const char *cmdline, char **reply) {
  FakePlatform &platform = FakePlatform::Get();
  return Answer(cmdline, platform.runLines, platform.runReply, reply);
}

int32_t QdtOmSendMsg(const char *reply) {
  FakePlatform &platform = FakePlatform::Get();
  platform.answers.push_back(reply);
  return platform.answers.size() > platform.sendResultFrom ? platform.sendResult : 0;
}

int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text) {
  return Parameter(*request, request->texts, name, "scribble", text);
}

int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value) {
  return Parameter(*request, request->numbers, name, 0xDEAD, value);
}

int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value) {
  return Parameter(*request, request->flags, name, 0xDD, value);
}

void QdtSysStatAccumulate(uint32_t mask, uint64_t *vector) {
  FakePlatform::Get().AddStatistics(mask, vector);
}

int32_t QdtSysStatGetNumRuncs() {
  const FakePlatform &platform = FakePlatform::Get();
  return platform.runContextCount.value_or(static_cast<int32_t>(platform.runContexts.size()));
}

uint64_t *QdtSysStatGetRuncStat(uint32_t core) {
  auto &counters = FakePlatform::Get().runContexts.at(core);
  return counters.empty() ? nullptr : counters.data();
}

int32_t DHF_ShmPtAttach(const char *name, uint16_t *handle) {
  auto &partition = FakePlatform::Get().partition;
  partition.attaches.push_back(name);
  if (partition.code == 0) *handle = partition.handle;
  return partition.code;
}

uint32_t DHF_ShmPtTotalSizeGet(uint16_t handle) {
  EXPECT_EQ(handle, FakePlatform::Get().partition.handle);
  return FakePlatform::Get().partition.total;
}

uint32_t DHF_ShmPtAllocedSizeGet(uint16_t handle) {
  EXPECT_EQ(handle, FakePlatform::Get().partition.handle);
  return FakePlatform::Get().partition.allocated;
}

int32_t TbmHashMapEntryNum(TbmHashMap *map, uint32_t *count) {
  const auto &nodes = FakePlatform::Get().serverMaps;
  EXPECT_EQ(map, FakePlatform::Get().serverMaps.Map());
  if (nodes.countCode != 0) return nodes.countCode;
  *count = 0;
  for (const auto &bucket : nodes.buckets) *count += static_cast<uint32_t>(bucket.size());
  return 0;
}

int32_t TbmHashMapTravBuckets(TbmHashMap *map, TbmTravCallback callback, void *context, uint32_t first,
                              uint32_t count, uint32_t *next, uint32_t flag) {
  auto &nodes = FakePlatform::Get().serverMaps;
  EXPECT_EQ(map, nodes.Map());
  const auto call = static_cast<int>(nodes.walks.size());
  nodes.walks.push_back(std::to_string(first) + " " + std::to_string(count) + " " + std::to_string(flag));
  if (call == nodes.failWalkAt) return nodes.walkCode;
  const auto end = static_cast<uint32_t>(std::min<size_t>(nodes.buckets.size(), size_t{first} + count));
  for (uint32_t bucket = first; bucket < end; ++bucket) {
    for (void *node : nodes.buckets[bucket]) {
      if (callback(node, context) == QDT_TBL_STOP) return 0;
    }
  }
  *next = end;
  return end < nodes.buckets.size() ? 1 : 0;
}

int32_t TbmTblEntryNum(uint32_t instance, uint32_t table, uint32_t *count) {
  return FakePlatform::Get().Count(instance, table, count);
}

const char *QdtGetNameByProId(uint32_t id) {
  const auto &protocols = FakePlatform::Get().protocols;
  const auto found = protocols.find(id);
  return found == protocols.end() ? nullptr : found->second.c_str();
}

uint32_t QdtGetProIdByName(const char *name) {
  for (const auto &[id, known] : FakePlatform::Get().protocols) {
    if (known == name) return id;
  }
  return 254;
}

int32_t QdtPrintSessStat(char *buffer, uint32_t size) {
  auto &statistics = FakePlatform::Get().sessionStatistics;
  statistics.rooms.push_back(size);
  std::snprintf(buffer, size, "%s", statistics.text.c_str());
  return statistics.result;
}

int32_t QdtCpCarStatClearAll() {
  ++FakePlatform::Get().clearCpcarCalls;
  return FakePlatform::Get().clearCpcarResult;
}

// These stand in for the C library's, which the library under test calls.
int usleep(useconds_t microseconds) {
  FakePlatform::Get().pauses.push_back(microseconds);
  return 0;
}

void vsyslog(int priority, const char *format, va_list args) {
  char text[4096];
  std::vsnprintf(text, sizeof(text), format, args);
  FakePlatform::Get().log.push_back({priority, text});
}

void syslog(int priority, const char *format, ...) {
  va_list args;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

// What syslog is called where the C library checks formats.
void __syslog_chk(int priority, int, const char *format, ...) {
  va_list args;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

}  // extern "C"
