#include "host/inspect/export.h"

#include <array>

#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/inspect/diff.h"
#include "host/scenario/scenario.h"
#include "tests/inspect/random_state.h"

namespace qdt::host {
namespace {

class ExportTest : public testing::Test {
 protected:
  explicit ExportTest(const Layout &layout = Layout::BuiltIn())
      : layout_(layout),
        first_(directory_.File("first"), layout),
        second_(directory_.File("second"), layout) {}

  std::string Exported(TestArena &arena, const NatPolicyLines &policy = {}) {
    const auto source = arena.Source();
    StringOut out;
    comments_ = ExportScenario(*source, policy, &out);
    return out.Take();
  }

  void Load(const std::string &text) {
    scenario_ = Scenario::FromText("exported.yaml", text, layout_);
    scenario_.Fill(&second_.arena(), &second_.writer());
  }

  // What nqecli diff says of the two.
  std::string Differences() {
    StringOut out;
    const DiffResult result =
        RunDiff(*first_.Source(), *second_.Source(), DiffRequest::Whole(layout_), MakeDiffLines(&out).get());
    return result.aside + out.Take();
  }

  const Layout &layout_;
  TestDirectory directory_;
  TestArena first_;
  TestArena second_;
  Scenario scenario_;
  uint32_t comments_ = 0;
};

// Holds two arenas against each other, value by value.
class Comparison {
 public:
  Comparison(const TestArena &a, const TestArena &b) : a_(a.Source()), b_(b.Source()) {}

  // Returns how many values were the same.
  uint64_t Tables() {
    for (const TableLayout &table : a_->layout().tables()) {
      if (!table.fields.empty()) Table(table);
    }
    return same_;
  }

  // How often each kind of reference was met.
  const std::array<uint64_t, 4> &references() const { return references_; }
  uint64_t strayed() const { return strayed_; }
  uint64_t parts() const { return parts_; }

 private:
  void Table(const TableLayout &table) {
    EntryReader a(*a_, table), b(*b_, table);
    ASSERT_EQ(a.Count(), b.Count()) << table.shortName;
    const std::vector<Leaf> leaves = LeavesOf(table);
    for (uint32_t i = 0; a.Next(); ++i) {
      ASSERT_TRUE(b.Next()) << table.shortName;
      ASSERT_EQ(std::memcmp(a.entry().key, b.entry().key, table.spec.keySize), 0)
          << table.shortName << " " << i;
      Twins(table, a, b);
      for (const Leaf &leaf : leaves) {
        SCOPED_TRACE(std::string(table.shortName) + " " + std::to_string(i) + " " + leaf.path);
        if (!leaf.inKey && IsThere(leaf, a, b)) Value(leaf, a.entry().record, b.entry().record);
        if (testing::Test::HasFailure()) return;
      }
    }
    EXPECT_FALSE(b.Next());
  }

  // Fields of the record that its key has, too.
  void Twins(const TableLayout &table, const EntryReader &a, const EntryReader &b) {
    for (const Field &field : table.key.all()) {
      const Field *twin = table.fields.Find(field.name);
      if (twin == nullptr) continue;
      if (twin->ref.kind == FieldKind::kText) {
        EXPECT_EQ(twin->ref.GetText(a.entry().record), twin->ref.GetText(b.entry().record)) << field.name;
      } else {
        EXPECT_TRUE(twin->ref.Read(a.entry().record) == twin->ref.Read(b.entry().record)) << field.name;
      }
    }
  }

  bool IsThere(const Leaf &leaf, const EntryReader &a, const EntryReader &b) {
    if (leaf.part == nullptr) return true;
    EXPECT_EQ(a.Has(*leaf.part), b.Has(*leaf.part));
    if (!a.Has(*leaf.part)) return false;
    ++parts_;
    if (leaf.part->pointer == 0) return true;
    EXPECT_EQ(a.IsStrayed(*leaf.part), b.IsStrayed(*leaf.part));
    if (!a.IsStrayed(*leaf.part)) return true;
    EXPECT_EQ(a.PointerTo(*leaf.part), b.PointerTo(*leaf.part));
    ++strayed_;
    return false;
  }

  void Value(const Leaf &leaf, const uint8_t *a, const uint8_t *b) {
    ++same_;
    if (leaf.ref.kind == FieldKind::kText) {
      EXPECT_EQ(leaf.ref.GetText(a), leaf.ref.GetText(b));
    } else if (leaf.ref.kind == FieldKind::kReference) {
      Same(a_->Resolve(leaf.field->targets, leaf.ref.Get(a)),
           b_->Resolve(leaf.field->targets, leaf.ref.Get(b)));
    } else if (IsTimeAgo(leaf.ref.kind)) {
      // What was written before is loaded some seconds later, on a slow machine some minutes.
      const uint64_t before = leaf.ref.Get(a), after = leaf.ref.Get(b);
      EXPECT_TRUE(before == 0 ? after == 0 : after >= before && after <= before + 600)
          << before << " " << after;
    } else {
      EXPECT_TRUE(leaf.ref.Read(a) == leaf.ref.Read(b))
          << ValueText(leaf.ref, leaf.ref.Read(a)) << " " << ValueText(leaf.ref, leaf.ref.Read(b));
    }
  }

  void Same(const Reference &a, const Reference &b) {
    ++references_[static_cast<size_t>(a.kind)];
    ASSERT_EQ(a.kind, b.kind) << a.address << " " << b.address;
    if (a.kind == Reference::Kind::kNone) return;
    if (a.kind == Reference::Kind::kWild) {
      EXPECT_EQ(a.address, b.address);
      return;
    }
    EXPECT_EQ(a.table->shortName, b.table->shortName);
    if (a.kind == Reference::Kind::kStale) return;
    EXPECT_EQ(std::memcmp(a.key, b.key, a.table->spec.keySize), 0) << a.table->shortName;
  }

  std::unique_ptr<RecordSource> a_, b_;
  std::array<uint64_t, 4> references_{};
  uint64_t same_ = 0;
  uint64_t strayed_ = 0;
  uint64_t parts_ = 0;
};

class RandomExportTest : public ExportTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(RandomExportTest, LoadsIntoAnEqualArena) {
  RandomState(&first_, GetParam()).Fill(30);
  if (HasFailure()) return;
  Load(Exported(first_));
  EXPECT_EQ(comments_, 0u);
  Comparison comparison(first_, second_);
  EXPECT_GT(comparison.Tables(), 100'000u);
  for (const uint64_t met : comparison.references()) EXPECT_GT(met, 100u);
  EXPECT_GT(comparison.strayed(), 20u);
  EXPECT_GT(comparison.parts(), 1'000u);
  EXPECT_EQ(Differences(), "");
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomExportTest, testing::Range(1u, 4u));

TEST_F(ExportTest, RegionsOfRandomBytes) {
  RandomState(&first_, 7).Fill(0);
  if (HasFailure()) return;
  Load(Exported(first_));
  uint32_t values = 0;
  for (const RegionLayout &region : layout_.regions()) {
    if (region.fields.empty()) continue;
    const auto *a = static_cast<const uint8_t *>(first_.arena().FindRegion(region.spec.name, nullptr));
    const auto *b = static_cast<const uint8_t *>(second_.arena().FindRegion(region.spec.name, nullptr));
    for (const Leaf &leaf : LeavesOf(region)) {
      ++values;
      if (leaf.field->name != kReassemblyArrival) {
        EXPECT_TRUE(leaf.ref.Read(a) == leaf.ref.Read(b)) << region.spec.name << " " << leaf.path;
        continue;
      }
      // Here the first one has a moment, and the second one how long ago that was.
      const uint64_t ago = TimerMilliseconds() - leaf.ref.Get(a);
      EXPECT_LE(leaf.ref.Get(b), ago) << leaf.path;
      EXPECT_GE(leaf.ref.Get(b) + 60'000, ago) << leaf.path;
    }
  }
  EXPECT_GT(values, 1'000u);
  EXPECT_EQ(Differences(), "");
}

TEST_F(ExportTest, Statistics) {
  Statistics statistics(first_.arena());
  statistics.Add(0, 0, 5);
  statistics.Add(2, 830, UINT64_MAX);
  statistics.Add(1, 7, 1);
  EXPECT_EQ(Exported(first_),
            "# An engine's state as a scenario: nqed --scenario FILE\n"
            "# 3 forwarding cores: nqed --cores 3\n"
            "statistics:\n"
            "  0: [5]\n"
            "  7: [0, 1]\n"
            "  830: [0, 0, 18446744073709551615]\n");
  Load(Exported(first_));
  ASSERT_EQ(scenario_.statistics().size(), 3u);
  EXPECT_EQ(scenario_.statistics()[2].name, "830");
  EXPECT_EQ(scenario_.statistics()[2].perCore, (std::vector<uint64_t>{0, 0, UINT64_MAX}));
}

TEST_F(ExportTest, AnEngineWithoutAnythingLoadsAsWell) {
  const std::string text = Exported(first_);
  EXPECT_EQ(text,
            "# An engine's state as a scenario: nqed --scenario FILE\n"
            "statistics: {}\n");
  Load(text);
}

TEST_F(ExportTest, NatPolicy) {
  const std::string rules =
      "{name: 'a', source: '192.0.2.0/24', action: 'source-nat', hits: '7'}\n{name: 'b', action: 'no-nat'}\n";
  const std::string text = Exported(first_, {rules, ""});
  EXPECT_EQ(text,
            "# An engine's state as a scenario: nqed --scenario FILE\n"
            "nat_policy:\n"
            "  - {name: 'a', source: '192.0.2.0/24', action: 'source-nat', hits: '7'}\n"
            "  - {name: 'b', action: 'no-nat'}\n");
  Load(text);
  EXPECT_EQ(scenario_.natPolicy().at(0).entry + '\n' + scenario_.natPolicy().at(1).entry + '\n', rules);
  EXPECT_EQ(Exported(first_, {"", "nobody can tell it"}),
            "# An engine's state as a scenario: nqed --scenario FILE\n"
            "# not in it: the NAT policy; nobody can tell it\n"
            "statistics: {}\n");
  EXPECT_EQ(comments_, 1u);
}

// What a scenario would refuse stands in it as a comment.
TEST_F(ExportTest, EntriesWithoutTheirOwner) {
  const Layout &layout = Layout::BuiltIn();
  const TableLayout &rules = *layout.FindTable("acl_rule");
  const uint32_t key[] = {2, 77, 5};
  std::vector<uint8_t> record(rules.spec.StoredSize());
  ASSERT_EQ(first_.writer().Insert(rules.spec.id, key, record.data(), nullptr), 0);
  const std::string text = Exported(first_);
  EXPECT_EQ(text,
            "# An engine's state as a scenario: nqed --scenario FILE\n"
            "acl_rule:\n"
            "# not in it, as acl_group has no such entry:\n"
            "#  - {group_type: 2, group_id: 77, priority: 5, record: {group_type: 0, priority: 0}}\n");
  EXPECT_EQ(comments_, 1u);
  Load(text);
  EXPECT_EQ(scenario_.FindTable(rules.spec.id)->count(), 0u);
}

// Tables up to their last place, references among them.
TEST_F(ExportTest, FullTables) {
  const auto fill = [&](std::string_view name,
                        const std::function<void(uint32_t, uint8_t *, uint8_t *)> &make) {
    const TableSpec &spec = layout_.FindTable(name)->spec;
    std::vector<void *> places(spec.capacity);
    for (uint32_t i = 1; i <= spec.capacity; ++i) {
      std::vector<uint8_t> key(spec.keySize), record(spec.StoredSize());
      make(i, key.data(), record.data());
      EXPECT_EQ(first_.writer().Insert(spec.id, key.data(), record.data(), &places[i - 1]), 0)
          << name << " " << i;
    }
    EXPECT_EQ(first_.writer().Insert(spec.id, std::vector<uint8_t>(spec.keySize).data(),
                                     std::vector<uint8_t>(spec.StoredSize()).data(), nullptr),
              -8);
    return places;
  };
  const auto hops = fill("nhp", [](uint32_t i, uint8_t *key, uint8_t *record) {
    std::memcpy(key, &i, sizeof i);
    std::memcpy(record + 8, &i, sizeof i);
  });
  const FieldRef next = layout_.FindTable("fib")->At("next_hop");
  fill("fib", [&](uint32_t i, uint8_t *key, uint8_t *record) {
    const uint16_t length = 32;
    std::memcpy(key, &length, sizeof length);
    const uint32_t address = __builtin_bswap32(0x0a000000 + i);
    std::memcpy(key + 4, &address, sizeof address);
    next.Set(record, reinterpret_cast<uint64_t>(hops[i % hops.size()]));
  });
  fill("ssw_macinfo", [](uint32_t i, uint8_t *key, uint8_t *) { std::memcpy(key, &i, sizeof i); });
  const std::string text = Exported(first_);
  EXPECT_EQ(comments_, 0u);
  Load(text);
  EXPECT_GT(Comparison(first_, second_).Tables(), 500'000u);
  EXPECT_EQ(Differences(), "");
  // It would say so.
  const uint32_t hop = 7;
  ASSERT_EQ(second_.writer().Remove(layout_.FindTable("nhp")->spec.id, &hop), 0);
  EXPECT_EQ(Differences(),
            "~ fib prefix=32 vpn=0 destination=10.0.0.6: next_hop nhp/7 -> nhp/stale\n"
            "- nhp index=7\n");
}

}  // namespace
}  // namespace qdt::host
