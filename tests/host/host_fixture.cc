#include "tests/host/host_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/arena/arena_layout.h"
#include "tests/host/syslog_lines.h"

namespace {

std::vector<std::string> g_log;

}  // namespace

namespace qdt::host {

void OnSyslogLine(const std::string &line) { g_log.push_back(line); }

std::vector<std::string> TakeLog() { return std::exchange(g_log, {}); }

namespace {

uint64_t SumOf(const Record &record) {
  uint64_t sum = record.id ^ 0x5bd1e995;
  for (const uint64_t word : record.body) sum = sum * 31 + word;
  return sum;
}

TableSpec Spec(uint32_t id, const char *name, uint16_t keySize, uint32_t recordSize, uint32_t capacity,
               Lookup lookup = Lookup::kUnique) {
  TableSpec spec;
  spec.id = id;
  spec.name = name;
  spec.keySize = keySize;
  spec.dataSize = static_cast<uint16_t>(recordSize);
  spec.recordSize = recordSize;
  spec.capacity = capacity;
  spec.lookup = lookup;
  return spec;
}

}  // namespace

Record Record::Make(uint64_t id, uint64_t salt) {
  Record record;
  record.id = id;
  for (uint64_t &word : record.body) word = salt++ * 0x9e3779b97f4a7c15 + id;
  record.sum = SumOf(record);
  return record;
}

bool Record::Whole() const { return sum == SumOf(*this); }

ArenaPlan TestPlan() {
  ArenaPlan plan;
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (uint32_t id = 0; id < kTableCount; ++id) all.push_back("CAP_TABLE_" + std::to_string(id));
    return all;
  }();
  for (uint32_t id = 0; id < kTableCount; ++id) {
    TableSpec spec;
    spec.id = id;
    spec.name = names[id];
    plan.tables.push_back(spec);
  }
  const auto define = [&plan](const TableSpec &spec) { plan.tables[spec.id] = spec; };
  define(Spec(kUniqueTable, "CAP_TABLE_GLOBAL", 4, sizeof(Record), 16384));
  define(Spec(kRoute4Table, "CAP_TABLE_FIB", sizeof(RouteKey4), 16, 1000, Lookup::kPrefix4));
  define(Spec(kTinyTable, "CAP_TABLE_TINY", 4, sizeof(Record), 4));
  define(Spec(kRoute6Table, "CAP_TABLE_IPV6_FIB", sizeof(RouteKey6), 16, 1000, Lookup::kPrefix6));
  TableSpec group = Spec(kGroupTable, "CAP_TABLE_ACL_GROUP", 8, 40, 64);
  group.dataSize = 32;
  group.searchOffset = 8;
  group.groupRuleSpec = 512;
  define(group);
  TableSpec rules = Spec(kRuleTable, "CAP_TABLE_ACL_RULE", 12, 256, 4096);
  rules.groupKeySize = 8;
  define(rules);
  define(Spec(kManyTable, "CAP_TABLE_MANY", 4, sizeof(Record), 4096, Lookup::kMany));
  define(Spec(kArpMissTable, "CAP_TABLE_ARP_MISS_CACHE", 8, sizeof(Record), 64, Lookup::kMany));
  TableSpec session = Spec(kSessionTable, "CAP_TABLE_SESSION", 4, sizeof(Record), 256);
  session.agingOffset = offsetof(Record, aging);
  session.agingSize = sizeof(Record::aging);
  session.enabled = false;
  define(session);
  TableSpec maps = Spec(kServerMapTable, "CAP_TABLE_SERVER_MAP", 4, sizeof(Record), 1000);
  maps.agingOffset = offsetof(Record, aging);
  maps.agingSize = sizeof(Record::aging);
  define(maps);
  TableSpec flows = Spec(kFlowPartitionTable, "CAP_TABLE_FLOW", 4, sizeof(Record), 3000);
  flows.attachedSize = sizeof(Record);
  flows.agingOffset = offsetof(Record, aging);
  flows.agingSize = sizeof(Record::aging);
  define(flows);
  define(Spec(kOddTable, "CAP_TABLE_ODD", 6, 13, 100));
  plan.regions = {{"PKT_TRACE_CTX_PTR", 224}, {"FAST_STAT_SSMAP_PTR", 100000}};
  plan.socketPath = "/tmp/nqed.sock";
  return plan;
}

Child::Child(std::unique_ptr<Arena> *engine, const std::function<std::string()> &work) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  pid_ = fork();
  said_ = ends[0];
  if (pid_ != 0) {
    close(ends[1]);
    return;
  }
  if (engine != nullptr) engine->reset();
  std::string said;
  try {
    said = work();
  } catch (const HostError &error) {
    said = std::string("error: ") + error.what();
  }
  for (size_t at = 0; at < said.size();) {
    const ssize_t sent = write(ends[1], said.data() + at, said.size() - at);
    if (sent <= 0) break;
    at += static_cast<size_t>(sent);
  }
  _exit(0);
}

std::string Child::Wait() {
  std::string said;
  char piece[4096];
  for (ssize_t got; (got = read(said_, piece, sizeof(piece))) > 0;)
    said.append(piece, static_cast<size_t>(got));
  close(said_);
  int status = 0;
  waitpid(pid_, &status, 0);
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit " + std::to_string(WEXITSTATUS(status));
  return said;
}

bool Child::Ended() const {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid == pid_;
}

void Child::Kill() { kill(pid_, SIGKILL); }

HostTest::HostTest() {
  // Where arenas stand by default, if that is possible here.
  std::string name = access("/dev/shm", W_OK) == 0 ? "/dev/shm/host_test.XXXXXX" : "/tmp/host_test.XXXXXX";
  dir_ = mkdtemp(name.data());
  path_ = dir_ + "/arena";
}

HostTest::~HostTest() {
  engine_.reset();
  std::filesystem::remove_all(dir_);
}

void HostTest::SetUp() { TakeLog(); }

void HostTest::Start(const ArenaPlan &plan) {
  engine_ = Arena::Create(path_, plan);
  engine_->Publish();
  Arena::SetCurrent(engine_.get());
  writer_ = std::make_unique<TableWriter>(engine_.get());
}

std::string HostTest::Snapshot() {
  const std::string copy = dir_ + "/snapshot";
  const int fd = open(copy.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  engine_->CopyTo(fd);
  close(fd);
  return copy;
}

std::unique_ptr<Arena> HostTest::AttachToDamage(const std::string &file) {
  auto arena = Arena::Attach(file, Arena::Access::kSnapshot);
  Arena::SetCurrent(arena.get());
  if (mprotect(arena->header(), arena->header()->recordsOffset, PROT_READ | PROT_WRITE) != 0)
    throw HostError("mprotect: " + std::string(std::strerror(errno)));
  return arena;
}

std::string HostTest::AsClient(const std::function<std::string(Arena *)> &work) {
  return InChild(&engine_, [&] {
    const std::unique_ptr<Arena> client = Arena::Attach(path_, Arena::Access::kLive);
    Arena::SetCurrent(client.get());
    return work(client.get());
  });
}

std::string HostTest::Attach(Arena::Access access) {
  return InChild(&engine_, [&]() -> std::string {
    const std::unique_ptr<Arena> arena = Arena::Attach(path_, access);
    return "attached";
  });
}

void *HostTest::Add(uint32_t table, uint32_t key, uint64_t id) {
  const Record record = Record::Make(id);
  void *address = nullptr;
  EXPECT_EQ(writer_->Insert(table, &key, &record, &address), 0) << "key " << key;
  return address;
}

std::vector<uint64_t> Batch(uint32_t table, TbmTravContext *ctx, uint32_t batch, int32_t *status,
                            const uint32_t *key) {
  std::vector<Record> records(batch);
  uint32_t bytes = batch * sizeof(Record);
  *status = key == nullptr ? TbmTblTravNext(0, table, ctx, records.data(), &bytes)
                           : TbmTblTravNextByKey(0, table, key, ctx, records.data(), &bytes);
  EXPECT_EQ(bytes, TbmTblTravContextCnt(ctx) * sizeof(Record));
  std::vector<uint64_t> ids;
  for (uint32_t i = 0; i < TbmTblTravContextCnt(ctx); ++i) {
    EXPECT_TRUE(records[i].Whole());
    ids.push_back(records[i].id);
  }
  return ids;
}

std::vector<uint64_t> HostTest::Walk(uint32_t table, uint32_t batch, int32_t *status, const uint32_t *key) {
  TbmTravContext ctx;
  TbmTblTravContextInit(&ctx);
  std::vector<uint64_t> all;
  do {
    const std::vector<uint64_t> ids = Batch(table, &ctx, batch, status, key);
    all.insert(all.end(), ids.begin(), ids.end());
  } while (*status == 1);
  return all;
}

}  // namespace qdt::host
