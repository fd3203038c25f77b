#ifndef TESTS_TBM_CONTEST_H_
#define TESTS_TBM_CONTEST_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/host/host_fixture.h"

// A writer and readers that meet where entries could be lost: in every kind of table, all entries share one
// chain, changing entries stand between lasting ones, and a freed slot is used again at once. In the route
// tables a route moves between two prefix lengths above a shorter one.
namespace qdt::host {

class Contest {
 public:
  // The tables of the contest, with no slot to spare.
  static ArenaPlan Plan();

  // Of the current arena. In the engine all entries are put in, in an order in which lasting ones stand
  // behind changing ones; a client finds them there.
  Contest();

  // Takes every changing entry out and puts it in again, in the slot that was freed, and overwrites lasting
  // ones; moves the moving routes there and back, the new one in before the old one leaves. 0 or the first
  // status that is not. `number` makes the records differ.
  int32_t Change(uint64_t number);
  // Makes the order what it was at the beginning.
  int32_t Restore();

  // What readers do; each looks at one kind of table in one way and says what is wrong: a lasting entry that
  // is not shown, a record that is torn or another key's, an entry shown twice, a status.
  struct Look {
    const char *name;
    std::string (Contest::*look)() const;
  };
  static const std::vector<Look> &Looks();

  std::string Search() const;
  std::string Match() const;
  std::string MatchMoving() const;
  std::string Walk() const;
  std::string WalkInPlace() const;
  std::string WalkByKey() const;
  std::string WalkBuckets() const;
  std::string CountRules() const;
  std::string SearchRules() const;

 private:
  int32_t Put(uint32_t entry, uint64_t number);
  int32_t Take(uint32_t entry);
  int32_t PutMoving(uint32_t table, uint32_t at, uint64_t number);
  int32_t TakeMoving(uint32_t table, uint32_t at);
  int32_t Move(uint32_t table, uint64_t number);
  std::vector<uint32_t> KeysOfOneBucket(uint32_t table) const;

  TableWriter writer_;
  // By entry; even ones change, odd ones last.
  std::vector<uint32_t> unique_, map_, routes_;
  std::vector<void *> many_, updated_;
  void *group_ = nullptr;
};

}  // namespace qdt::host

#endif  // TESTS_TBM_CONTEST_H_
