#include "host/inspect/export.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/base/host_error.h"
#include "host/layout/yaml_tree.h"
#include "host/record/record_yaml.h"
#include "host/regions/reassembly_regions.h"
#include "host/regions/statistics.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

// Passes on as much as a scenario may have.
class BoundedOut : public TextOut {
 public:
  explicit BoundedOut(TextOut *out) : out_(*out) {}

 private:
  void Write(std::string_view text) override {
    written_ += text.size();
    if (written_ > YamlTree::kMaxFileSize) {
      throw HostError("as a scenario this takes more than " + std::to_string(YamlTree::kMaxFileSize) +
                      " bytes, which no engine loads (keep a snapshot instead)");
    }
    out_.Append(text);
  }

  TextOut &out_;
  uint64_t written_ = 0;
};

class Export {
 public:
  Export(const RecordSource &source, TextOut *out) : source_(source), out_(out) {}

  uint32_t Run(const NatPolicyLines &natPolicy) {
    out_.Append("# An engine's state as a scenario: nqed --scenario FILE\n");
    for (const TableLayout &table : source_.layout().tables()) Table(table);
    Regions();
    NatPolicy(natPolicy);
    Statistics();
    // A scenario of nothing is a mapping as well.
    if (!hasSection_) out_.Append("statistics: {}\n");
    out_.Spill();
    return comments_;
  }

 private:
  void Section(std::string_view name) {
    hasSection_ = true;
    out_.Append(name);
    out_.Append(":\n");
    Count(3);
  }

  void Comment(const std::string &text) {
    ++comments_;
    out_.Append("# " + text + "\n");
  }

  void Count(uint64_t values) {
    values_ += values;
    if (values_ > YamlTree::kMaxNodes) {
      throw HostError("as a scenario this takes more than " + std::to_string(YamlTree::kMaxNodes) +
                      " values, which no engine loads (keep a snapshot instead)");
    }
  }

  void Table(const TableLayout &table) {
    const tbm::TableView *view = source_.View(table);
    if (view == nullptr) return;
    if (table.fields.empty()) {
      if (view->EntryNum() != 0)
        Comment("not in it: " + std::to_string(view->EntryNum()) + " entries of " +
                std::string(table.shortName) + ", of whose fields nothing is known");
      return;
    }
    const RecordShape shape = RecordShape::Whole(table);
    YamlWriter yaml(&out_, shape);
    EntryReader reader(source_, table);
    const TableLayout *owner = table.partOf.empty() ? nullptr : source_.layout().FindTable(table.partOf);
    std::unique_ptr<EntryReader> owners;
    if (owner != nullptr && source_.View(*owner) != nullptr)
      owners = std::make_unique<EntryReader>(source_, *owner);
    bool any = false;
    while (reader.Next()) {
      if (!any) Section(table.shortName);
      any = true;
      const bool isOrphan = owner != nullptr && (owners == nullptr || !owners->Find(reader.entry().key));
      if (isOrphan) Comment("not in it, as " + std::string(owner->shortName) + " has no such entry:");
      out_.Append(isOrphan ? "#  - " : "  - ");
      const uint64_t before = yaml.values();
      yaml.Record(RecordBytes(source_, reader));
      out_.Put('\n');
      if (!isOrphan) Count(yaml.values() - before);
    }
  }

  void Regions() {
    bool any = false;
    for (const RegionLayout &region : source_.layout().regions()) {
      // Regions without fields are what the engine has measured.
      std::vector<uint8_t> bytes = source_.ReadRegion(region);
      if (bytes.empty() || region.fields.empty()) continue;
      TurnArrivals(region, &bytes);
      const RecordShape shape = RecordShape::Whole(region);
      YamlWriter yaml(&out_, shape);
      const RecordBytes record(source_, bytes.data(), region.fields);
      if (yaml.IsZero(record)) continue;
      if (!any) Section("regions");
      any = true;
      out_.Append("  ");
      out_.Append(region.spec.name);
      out_.Append(": ");
      yaml.Record(record);
      out_.Put('\n');
      Count(yaml.values() + 1);
    }
  }

  // A running engine has the time at which a packet came where a scenario says how long it has waited.
  void TurnArrivals(const RegionLayout &region, std::vector<uint8_t> *bytes) const {
    if (std::ranges::find(kReassemblyRegions, region.spec.name) == std::end(kReassemblyRegions)) return;
    const Field *packets = region.fields.Find(kReassemblyPackets);
    const Field *arrival = packets == nullptr ? nullptr : packets->fields.Find(kReassemblyArrival);
    if (arrival == nullptr) return;
    const uint64_t now = source_.Timer();
    for (uint32_t i = 0; i < packets->count; ++i) {
      uint8_t *packet = bytes->data() + packets->ref.offset + i * packets->stride;
      const uint64_t came = arrival->ref.Get(packet);
      if (came != 0) arrival->ref.Set(packet, now - std::min(now, came));
    }
  }

  void NatPolicy(const NatPolicyLines &policy) {
    if (!policy.unknown.empty()) Comment("not in it: the NAT policy; " + policy.unknown);
    if (policy.entries.empty()) return;
    Section("nat_policy");
    std::string_view rest = policy.entries;
    while (!rest.empty()) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      out_.Append("  - ");
      out_.Append(line);
      out_.Put('\n');
    }
  }

  void Statistics() {
    constexpr uint32_t kVectorSize = QDT_STAT_COUNTERS * sizeof(uint64_t);
    uint32_t size = 0;
    const auto *vectors = static_cast<const uint8_t *>(source_.arena().FindRegion(kStatisticsRegion, &size));
    const uint32_t cores = vectors == nullptr ? 0 : size / kVectorSize;
    bool any = false;
    for (uint32_t counter = 0; counter < QDT_STAT_COUNTERS; ++counter) {
      std::vector<uint64_t> perCore(cores);
      for (uint32_t core = 0; core < cores; ++core)
        std::memcpy(&perCore[core], vectors + core * kVectorSize + counter * sizeof(uint64_t),
                    sizeof(uint64_t));
      while (!perCore.empty() && perCore.back() == 0) perCore.pop_back();
      if (perCore.empty()) continue;
      if (!any) {
        out_.Append("# " + std::to_string(cores) + " forwarding cores: nqed --cores " +
                    std::to_string(cores) + "\n");
        Section("statistics");
      }
      any = true;
      out_.Append("  " + std::to_string(counter) + ": [");
      for (size_t core = 0; core < perCore.size(); ++core)
        out_.Append((core > 0 ? ", " : "") + std::to_string(perCore[core]));
      out_.Append("]\n");
      Count(perCore.size() + 2);
    }
  }

  const RecordSource &source_;
  BoundedOut out_;
  uint64_t values_ = 1;
  uint32_t comments_ = 0;
  bool hasSection_ = false;
};

}  // namespace

uint32_t ExportScenario(const RecordSource &source, const NatPolicyLines &natPolicy, TextOut *out) {
  return Export(source, out).Run(natPolicy);
}

}  // namespace qdt::host
