#include "host/inspect/check.h"

#include <time.h>

#include <vector>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

// Findings that are looked at again together.
constexpr size_t kBatch = 4096;
// How often a live table is counted in the hope that nothing comes or goes meanwhile.
constexpr int kCounts = 20;

class TableCheck {
 public:
  TableCheck(const RecordSource &source, const TableLayout &table, const TellFinding &tell,
             const std::function<void()> &wait)
      : source_(source),
        table_(table),
        view_(*source.View(table)),
        tell_(tell),
        wait_(wait),
        rules_(RulesOf(source, table)) {}

  uint64_t Run() {
    try {
      if (!rules_.empty()) Walk();
      CheckCount();
    } catch (const HostError &error) {
      // Of a saved arena the table itself is what is wrong.
      if (source_.IsLive()) throw;
      Tell({Severity::kError, &table_, nullptr, nullptr, "",
            "cannot be read to its end: its order leads astray"});
    }
    return count_;
  }

 private:
  struct Suspicion {
    tbm::Place place;
    uint32_t rule;
  };

  void Tell(const Finding &finding) {
    ++count_;
    tell_(finding);
  }

  void Walk() {
    EntryReader reader(source_, table_);
    while (reader.Next()) {
      const RecordBytes record(source_, reader);
      for (uint32_t rule = 0; rule < rules_.size(); ++rule) {
        if (!rules_[rule]->Look(record)) continue;
        suspicions_.push_back({reader.entry().place, rule});
      }
      if (suspicions_.size() >= kBatch) LookAgain(&reader);
    }
    LookAgain(&reader);
  }

  void LookAgain(EntryReader *reader) {
    if (suspicions_.empty()) return;
    if (source_.IsLive()) {
      wait_();
      for (const auto &rule : rules_) rule->Renew();
    }
    for (const Suspicion &suspicion : suspicions_) {
      if (!reader->Again(suspicion.place)) continue;
      const EntryRule &rule = *rules_[suspicion.rule];
      const std::optional<Problem> problem = rule.Look(RecordBytes(source_, *reader));
      if (!problem) continue;
      Tell({problem->severity, &table_, nullptr, reader->entry().key, rule.field(), problem->text,
            problem->stale});
    }
    suspicions_.clear();
  }

  uint64_t CountByOrder() const {
    const tbm::TableOrder order(view_);
    uint64_t count = 0;
    for (tbm::Place place;; ++count) {
      const tbm::Step step = order.Next(&place);
      if (step == tbm::Step::kLost) throw HostError("the table's order leads astray");
      if (step == tbm::Step::kEnd) return count;
    }
  }

  // The table's number of entries against those that a walk finds.
  void CheckCount() {
    for (int attempt = 0; attempt < kCounts; ++attempt) {
      const uint64_t serial = view_.state().lastSerial.load(std::memory_order_acquire);
      const uint32_t says = view_.EntryNum();
      const uint64_t walked = CountByOrder();
      if (says == walked) return;
      const bool rests = view_.EntryNum() == says && view_.state().lastSerial.load() == serial;
      if (source_.IsLive() && (!rests || attempt == 0)) {
        wait_();
        continue;
      }
      const std::string text =
          "counts " + std::to_string(says) + " entries, a walk finds " + std::to_string(walked);
      return Tell({Severity::kError, &table_, nullptr, nullptr, "", text});
    }
  }

  const RecordSource &source_;
  const TableLayout &table_;
  const tbm::TableView &view_;
  const TellFinding &tell_;
  const std::function<void()> &wait_;
  const EntryRuleList rules_;
  std::vector<Suspicion> suspicions_;
  uint64_t count_ = 0;
};

uint64_t CheckRegion(const RecordSource &source, const RegionLayout &region, const TellFinding &tell) {
  uint64_t count = 0;
  const EntryRuleList rules = RulesOf(source, region);
  if (rules.empty()) return 0;
  const std::vector<uint8_t> bytes = source.ReadRegion(region);
  if (bytes.empty()) return 0;
  for (const auto &rule : rules) {
    const std::optional<Problem> problem = rule->Look(RecordBytes(source, bytes.data()));
    if (!problem) continue;
    ++count;
    tell({problem->severity, nullptr, &region, nullptr, rule->field(), problem->text, problem->stale});
  }
  return count;
}

}  // namespace

void WaitMoment() {
  const timespec moment = {0, 20'000'000};
  nanosleep(&moment, nullptr);
}

uint64_t CheckArena(const RecordSource &source, const TellFinding &tell, const std::function<void()> &wait) {
  uint64_t count = 0;
  for (const TableLayout &table : source.layout().tables()) {
    if (table.fields.empty() || source.View(table) == nullptr) continue;
    count += TableCheck(source, table, tell, wait).Run();
  }
  for (const RegionLayout &region : source.layout().regions()) count += CheckRegion(source, region, tell);
  return count;
}

}  // namespace qdt::host
