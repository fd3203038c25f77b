#ifndef TESTS_HOST_HOST_FIXTURE_H_
#define TESTS_HOST_HOST_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/tbm/table_writer.h"
#include "platform/tbm.h"
#include "tests/host/error_of.h"

namespace qdt::host {

// Tables of the plan that the tests use.
constexpr uint32_t kUniqueTable = 0;
constexpr uint32_t kRoute4Table = 1;
constexpr uint32_t kTinyTable = 3;  // four entries
constexpr uint32_t kRoute6Table = 5;
constexpr uint32_t kUndefinedTable = 14;
constexpr uint32_t kGroupTable = 24;  // delivers what stands 8 bytes into its records
constexpr uint32_t kRuleTable = 35;   // the rules of those groups
constexpr uint32_t kManyTable = 42;
constexpr uint32_t kSessionTable = 50;  // clients may write to its records
constexpr uint32_t kOddTable = 60;      // sizes that fill no word
// Behind the server maps and the flow partition: kServerMapTable, kFlowPartitionTable (whose entries are
// Flows).

// A record that shows when it is torn.
struct Record {
  uint64_t id = 0;
  uint64_t body[4] = {};
  uint64_t sum = 0;      // of all before
  uint32_t aging = 300;  // where clients may write, they may set this to 0
  uint32_t reserved = 0;

  static Record Make(uint64_t id, uint64_t salt = 0);
  bool Whole() const;
};

// A record and what is attached to it.
struct Flow {
  Record record;
  Record attached;
};

struct RouteKey4 {
  uint16_t length;
  uint16_t vpn;
  uint8_t address[4];
};
struct RouteKey6 {
  uint16_t length;
  uint16_t vpn;
  uint8_t address[16];
};

ArenaPlan TestPlan();

// Lines that the code under test has written to the system log since the last call, "PRIORITY TEXT".
std::vector<std::string> TakeLog();

// `work` in a forked process, which starts without the parent's mapping of `*engine` (which may be null).
class Child {
 public:
  Child(std::unique_ptr<Arena> *engine, const std::function<std::string()> &work);
  // What `work` returned; "error: TEXT" when it threw HostError, "signal N" or "exit N" when it died.
  std::string Wait();
  // Whether Wait would return at once.
  bool Ended() const;
  void Kill();
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
  int said_;
};

inline std::string InChild(std::unique_ptr<Arena> *engine, const std::function<std::string()> &work) {
  return Child(engine, work).Wait();
}

// A published arena in a directory of its own, worked on by this process.
class HostTest : public ::testing::Test {
 protected:
  HostTest();
  ~HostTest() override;

  void SetUp() override;
  // Creates, publishes and makes current.
  void Start(const ArenaPlan &plan = TestPlan());
  void Stop() { engine_.reset(); }
  // A copy of the arena, made by the engine.
  std::string Snapshot();
  // The file as a snapshot in which this process may damage all but the records; current then.
  static std::unique_ptr<Arena> AttachToDamage(const std::string &file);
  // Works as a client of the running engine, in another process.
  std::string AsClient(const std::function<std::string(Arena *)> &work);
  // Opens whatever stands at the path as a tool would, and says how that went.
  std::string Attach(Arena::Access access = Arena::Access::kSnapshot);

  // Adds an entry to a table with 4-byte keys and Record records.
  void *Add(uint32_t table, uint32_t key, uint64_t id);
  // The ids of a walk in batches of `batch`; `*status` is the last status.
  std::vector<uint64_t> Walk(uint32_t table, uint32_t batch, int32_t *status, const uint32_t *key = nullptr);

  std::string dir_;
  std::string path_;
  std::unique_ptr<Arena> engine_;
  std::unique_ptr<TableWriter> writer_;
};

// The ids of one batch; sets *status.
std::vector<uint64_t> Batch(uint32_t table, TbmTravContext *ctx, uint32_t batch, int32_t *status,
                            const uint32_t *key = nullptr);

}  // namespace qdt::host

#endif  // TESTS_HOST_HOST_FIXTURE_H_
