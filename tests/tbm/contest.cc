#include "tests/tbm/contest.h"

#include <cstring>

#include "host/tbm/acl_rules.h"
#include "host/tbm/table_view.h"

namespace qdt::host {
namespace {

constexpr uint32_t kEntries = 5;  // changing, lasting, changing, lasting, changing
constexpr uint32_t kSharedKey = 7;
constexpr uint32_t kGroup[2] = {2, 4001};

constexpr uint32_t kRouteTables[] = {kRoute4Table, kRoute6Table};

bool Lasts(uint32_t entry) { return entry % 2 == 1; }

// An id tells the entry and which of its records it is.
uint64_t IdOf(uint32_t entry, uint64_t number) { return number << 8 | entry; }
uint32_t EntryOf(uint64_t id) { return static_cast<uint32_t>(id & 0xff); }

struct RouteRecord {
  uint64_t id, same;
};

struct Rule {
  uint64_t words[32];
};

RouteKey4 RouteOf(uint32_t number) {
  return {32,
          0,
          {10, static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 8),
           static_cast<uint8_t>(number)}};
}

// The places of the moving route, 0 and 1, of the shorter one that also holds its destination, and the
// destination, which is no route.
constexpr uint32_t kCover = 2;
constexpr uint32_t kDestination = 3;
constexpr uint32_t kMovingEntry = 100;  // in ids: of the moving route
constexpr uint32_t kCoverEntry = 101;

struct MovingKey {
  RouteKey6 key;  // of IPv4 the beginning

  MovingKey(uint32_t table, uint32_t at) : key{} {
    const bool isIpv4 = table == kRoute4Table;
    const uint16_t lengths[] = {24, 25, 16, 0};
    const uint16_t lengths6[] = {48, 49, 32, 0};
    key.length = (isIpv4 ? lengths : lengths6)[at];
    const uint8_t address[] = {192, 0, 2, 1};
    const uint8_t address6[] = {0x20, 0x01, 0x0d, 0xb8, 0, 1, 0x12, 0x34};
    if (isIpv4) {
      std::memcpy(key.address, address, at == kDestination ? 4 : key.length / 8);
    } else {
      std::memcpy(key.address, address6, at == kDestination ? 8 : key.length / 8);
    }
  }
};

// What a walk has shown.
class Shown {
 public:
  // Empty, or what is wrong.
  std::string Add(const Record &record) {
    const uint32_t entry = EntryOf(record.id);
    if (!record.Whole()) return "torn record";
    if (entry >= kEntries) return "no entry of the table";
    if (times_[entry]++ != 0 && (Lasts(entry) || record.id == last_[entry])) return "shown twice";
    last_[entry] = record.id;
    return "";
  }
  std::string Finish() const {
    for (uint32_t entry = 0; entry < kEntries; ++entry) {
      if (Lasts(entry) && times_[entry] != 1) return "lasting entry " + std::to_string(entry) + " lost";
    }
    return "";
  }

 private:
  int times_[kEntries] = {};
  uint64_t last_[kEntries] = {};
};

struct Visited {
  Shown shown;
  std::string wrong;
};

int32_t VisitRecord(void *entry, void *context) {
  constexpr int32_t kGoOn = -9, kStop = -10;
  auto &visited = *static_cast<Visited *>(context);
  Record record;
  std::memcpy(&record, entry, sizeof(record));
  visited.wrong = visited.shown.Add(record);
  return visited.wrong.empty() ? kGoOn : kStop;
}

std::string Result(int32_t status, const Visited &visited) {
  if (status != 0) return "status " + std::to_string(status);
  return visited.wrong.empty() ? visited.shown.Finish() : visited.wrong;
}

// A walk that fetches one entry at a time, where it can stand on one that leaves.
std::string WalkBatches(uint32_t table, const uint32_t *key) {
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  Shown shown;
  int32_t status;
  do {
    Record record;
    uint32_t bytes = sizeof(record);
    status = key == nullptr ? TbmTblTravNext(0, table, &ctx, &record, &bytes)
                            : TbmTblTravNextByKey(0, table, key, &ctx, &record, &bytes);
    if (bytes == 0) continue;
    const std::string wrong = shown.Add(record);
    if (!wrong.empty()) return wrong;
  } while (status == 1 || status == -11);
  return status == 0 ? shown.Finish() : "status " + std::to_string(status);
}

}  // namespace

ArenaPlan Contest::Plan() {
  ArenaPlan plan = TestPlan();
  for (const uint32_t table : {kUniqueTable, kManyTable, kServerMapTable, kRoute4Table, kRuleTable})
    plan.tables[table].capacity = kEntries;
  plan.tables[kRoute4Table].capacity += 3;
  plan.tables[kRoute6Table].capacity = 3;
  return plan;
}

const std::vector<Contest::Look> &Contest::Looks() {
  static const std::vector<Look> looks = {
      {"search", &Contest::Search},
      {"match", &Contest::Match},
      {"match of a moving route", &Contest::MatchMoving},
      {"walk", &Contest::Walk},
      {"walk in place", &Contest::WalkInPlace},
      {"walk by key", &Contest::WalkByKey},
      {"hash-map walk", &Contest::WalkBuckets},
      {"count of rules", &Contest::CountRules},
      {"search for rules", &Contest::SearchRules},
  };
  return looks;
}

Contest::Contest() : writer_(Arena::Current()), many_(kEntries), updated_(kEntries) {
  unique_ = KeysOfOneBucket(kUniqueTable);
  map_ = KeysOfOneBucket(kServerMapTable);
  routes_ = KeysOfOneBucket(kRoute4Table);
  if (Arena::Current()->role() != Arena::Role::kEngine) {
    if (TbmTblSearch(0, kGroupTable, kGroup, &group_) != 0) std::abort();
    return;
  }
  uint32_t record[10] = {kGroup[0], kGroup[1]};
  if (writer_.Insert(kGroupTable, kGroup, record, &group_) != 0) std::abort();
  for (uint32_t entry = 0; entry < kEntries; ++entry) {
    if (Put(entry, 1) != 0) std::abort();
  }
  for (const uint32_t table : kRouteTables) {
    if (PutMoving(table, kCover, 1) != 0 || PutMoving(table, 0, 1) != 0) std::abort();
  }
}

std::vector<uint32_t> Contest::KeysOfOneBucket(uint32_t table) const {
  tbm::TableView view;
  if (tbm::TableView::OpenCurrent(0, table, &view) != 0) std::abort();
  std::vector<uint32_t> keys;
  for (uint32_t number = 0; keys.size() < kEntries; ++number) {
    const RouteKey4 route = RouteOf(number);
    const void *key = table == kRoute4Table ? static_cast<const void *>(&route) : &number;
    if (view.KeyOf(key).hash % view.shape().bucketCount == 0) keys.push_back(number);
  }
  return keys;
}

int32_t Contest::Put(uint32_t entry, uint64_t number) {
  const uint64_t id = IdOf(entry, number);
  const Record record = Record::Make(id, number);
  const RouteKey4 route = RouteOf(routes_[entry]);
  const RouteRecord routeRecord = {id, id};
  const AclRuleKey rule = {kGroup[0], kGroup[1], entry};
  Rule ruleRecord;
  for (uint64_t &word : ruleRecord.words) word = id;
  int32_t status = writer_.Insert(kUniqueTable, &unique_[entry], &record, &updated_[entry]);
  if (status == 0) status = writer_.Insert(kManyTable, &kSharedKey, &record, &many_[entry]);
  if (status == 0) status = writer_.Insert(kServerMapTable, &map_[entry], &record, nullptr);
  if (status == 0) status = writer_.Insert(kRoute4Table, &route, &routeRecord, nullptr);
  if (status == 0) status = writer_.Insert(kRuleTable, &rule, &ruleRecord, nullptr);
  return status;
}

int32_t Contest::Take(uint32_t entry) {
  const RouteKey4 route = RouteOf(routes_[entry]);
  const AclRuleKey rule = {kGroup[0], kGroup[1], entry};
  int32_t status = writer_.Remove(kUniqueTable, &unique_[entry]);
  if (status == 0) status = writer_.RemoveEntry(kManyTable, many_[entry]);
  if (status == 0) status = writer_.Remove(kServerMapTable, &map_[entry]);
  if (status == 0) status = writer_.Remove(kRoute4Table, &route);
  if (status == 0) status = writer_.Remove(kRuleTable, &rule);
  return status;
}

int32_t Contest::PutMoving(uint32_t table, uint32_t at, uint64_t number) {
  const uint64_t id = IdOf(at == kCover ? kCoverEntry : kMovingEntry, number);
  const MovingKey key(table, at);
  const RouteRecord record = {id, id};
  return writer_.Insert(table, &key, &record, nullptr);
}

int32_t Contest::TakeMoving(uint32_t table, uint32_t at) {
  const MovingKey key(table, at);
  return writer_.Remove(table, &key);
}

int32_t Contest::Move(uint32_t table, uint64_t number) {
  int32_t status = 0;
  for (const uint32_t from : {0, 1}) {
    if (status == 0) status = PutMoving(table, 1 - from, number);
    if (status == 0) status = TakeMoving(table, from);
  }
  return status;
}

int32_t Contest::Change(uint64_t number) {
  int32_t status = 0;
  for (uint32_t entry = 0; entry < kEntries && status == 0; ++entry) {
    if (Lasts(entry)) {
      const Record record = Record::Make(IdOf(entry, number), number);
      status = writer_.Update(kUniqueTable, updated_[entry], &record);
      if (status == 0) status = writer_.Update(kManyTable, many_[entry], &record);
    } else {
      status = Take(entry);
      if (status == 0) status = Put(entry, number);
    }
  }
  for (const uint32_t table : kRouteTables) {
    if (status == 0) status = Move(table, number);
  }
  return status;
}

int32_t Contest::Restore() {
  int32_t status = 0;
  for (uint32_t entry = 0; entry < kEntries && status == 0; ++entry) status = Take(entry);
  for (uint32_t entry = 0; entry < kEntries && status == 0; ++entry) status = Put(entry, 1);
  return status;
}

std::string Contest::Search() const {
  for (uint32_t entry = 0; entry < kEntries; ++entry) {
    void *found = nullptr;
    const int32_t status = TbmTblSearch(0, kUniqueTable, &unique_[entry], &found);
    if (status == -7 && !Lasts(entry)) continue;
    if (status != 0) return "entry " + std::to_string(entry) + ": status " + std::to_string(status);
    Record record;
    std::memcpy(&record, found, sizeof(record));
    if (!record.Whole()) return "torn record";
    if (EntryOf(record.id) != entry) return "another key's record";
  }
  return "";
}

std::string Contest::Match() const {
  for (uint32_t entry = 0; entry < kEntries; ++entry) {
    const RouteKey4 key = RouteOf(routes_[entry]);
    void *found = nullptr;
    const int32_t status = TbmTblMatch(0, kRoute4Table, &key, &found);
    if (status == -7 && !Lasts(entry)) continue;
    if (status != 0) return "route " + std::to_string(entry) + ": status " + std::to_string(status);
    RouteRecord record;
    std::memcpy(&record, found, sizeof(record));
    if (record.id != record.same) return "torn route";
    if (EntryOf(record.id) != entry) return "another key's route";
  }
  return "";
}

std::string Contest::MatchMoving() const {
  for (uint32_t time = 0; time < 6; ++time) {
    const uint32_t table = kRouteTables[time % 2];
    const MovingKey key(table, kDestination);
    void *found = nullptr;
    const int32_t status = TbmTblMatch(0, table, &key, &found);
    if (status != 0) return "moving route: status " + std::to_string(status);
    RouteRecord record;
    std::memcpy(&record, found, sizeof(record));
    if (record.id != record.same) return "torn route";
    if (EntryOf(record.id) != kMovingEntry) return "another route";
  }
  return "";
}

std::string Contest::Walk() const { return WalkBatches(kUniqueTable, nullptr); }

std::string Contest::WalkByKey() const { return WalkBatches(kManyTable, &kSharedKey); }

std::string Contest::WalkInPlace() const {
  Visited visited;
  const int32_t status = TbmTblTrav(0, kUniqueTable, VisitRecord, &visited);
  return Result(status, visited);
}

std::string Contest::WalkBuckets() const {
  Visited visited;
  uint32_t next = 0;
  const int32_t status =
      TbmHashMapTravBuckets(g_tbmGlobalInfo->serverMaps, VisitRecord, &visited, 0, UINT32_MAX, &next, 1);
  return Result(status, visited);
}

std::string Contest::CountRules() const {
  uint32_t count = 0;
  const int32_t status = TbmAclGroupActiveRuleNum(kGroup[0], kGroup[1], &count);
  if (status != 0) return "status " + std::to_string(status);
  // The two that last, and one that changes may be counted where it was and where it is.
  return count >= 2 && count <= 2 * kEntries ? "" : std::to_string(count) + " rules";
}

std::string Contest::SearchRules() const {
  for (uint32_t entry = 0; entry < kEntries; ++entry) {
    void *action = nullptr, *content = nullptr;
    const int32_t status = TbmAclGroupSearchByPri(group_, entry, &action, &content);
    if (status == -7 && !Lasts(entry)) continue;
    if (status != 0) return "rule " + std::to_string(entry) + ": status " + std::to_string(status);
    Rule rule;
    std::memcpy(&rule, action, sizeof(rule));
    for (const uint64_t word : rule.words) {
      if (word != rule.words[0]) return "torn rule";
    }
    if (EntryOf(rule.words[0]) != entry) return "another key's rule";
  }
  return "";
}

}  // namespace qdt::host
