#ifndef TESTS_ENGINE_MADE_UP_FILLER_H_
#define TESTS_ENGINE_MADE_UP_FILLER_H_

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "host/base/fd.h"
#include "host/engine/filler.h"

namespace qdt::host {

// Fills one table with entries whose key and first word is a number: number 1 at first, the next one with
// each change.
class MadeUpFiller : public Filler {
 public:
  static constexpr uint32_t kTable = 11;  // 4 bytes key, 16 bytes record

  Source source() const override { return {"numbers", "one by one"}; }

  void Fill(const FillTarget &target) override {
    if (refuses_) throw HostError("there are no numbers (try letters)");
    Add(target);
    target.statistics.Add(1, 7, 40);
    target.natPolicy.push_back({"rule_one", "RuleName : rule_one", true, 5, 6});
  }

  int changes() const override { return changes_.get(); }

  void Follow(const FillTarget &target) override {
    uint64_t count = 0;
    while (read(changes_.get(), &count, sizeof count) == sizeof count) {
      for (; count != 0; --count) Add(target);
    }
  }

  void Change(uint64_t count) {
    [[maybe_unused]] const ssize_t written = write(changes_.get(), &count, sizeof count);
  }
  void Refuse() { refuses_ = true; }

 private:
  void Add(const FillTarget &target) {
    const uint32_t record[4] = {++number_};
    target.writer.Insert(kTable, &number_, record, nullptr);
  }

  const UniqueFd changes_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  uint32_t number_ = 0;
  bool refuses_ = false;
};

}  // namespace qdt::host

#endif  // TESTS_ENGINE_MADE_UP_FILLER_H_
