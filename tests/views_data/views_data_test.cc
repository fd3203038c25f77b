#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "host/base/host_error.h"
#include "host/layout/layout_store.h"
#include "qdt/tables.h"
#include "tests/views_data/view_check.h"
#include "tests/views_data/view_map.h"
#include "tests/views_data/view_stage.h"

// The views' texts and the data that the layouts make of the same records say the same.
namespace qdt::host {
namespace {

std::vector<const MapView *> ShownViews() {
  std::vector<const MapView *> views;
  for (const MapView &view : Maps()) {
    if (!view.table.empty()) views.push_back(&view);
  }
  return views;
}

class ViewsData : public testing::TestWithParam<const MapView *> {
 protected:
  static constexpr int kRounds = 60;

  const MapView &view() const { return *GetParam(); }
  const Shown &shown() const { return shown_; }

  // Fills the entry again and again, and holds text and data of it against each other; the first that is
  // wrong.
  std::string HoldRounds(ViewCheck *check, const MapCase &wanted, const Shown &shown, int rounds) {
    stage_.Take(shown_, wanted.key);
    for (int round = 0; round < rounds; ++round) {
      stage_.FillEntry(round % 2 == 0 ? ViewStage::Fill::kFields : ViewStage::Fill::kBytes, &chance_);
      const std::string wrong = Hold(check, wanted, shown);
      if (!wrong.empty()) return wrong;
    }
    return "";
  }

  // Of a layout that is wrong some values have no form.
  std::string Hold(ViewCheck *check, const MapCase &wanted, const Shown &shown) {
    try {
      return check->Hold(stage_.Text(view().id, wanted.query), stage_.Json(shown));
    } catch (const HostError &error) {
      return error.what();
    }
  }

  const MapHidden *HiddenBy(const std::string &path) const {
    const auto at = std::ranges::find_if(view().hidden,
                                         [&](const MapHidden &hidden) { return IsLike(hidden.path, path); });
    return at == view().hidden.end() ? nullptr : &*at;
  }

  // Whether the text of some query changes when only the value does.
  bool ChangesText(const Leaf &leaf, int rounds) {
    for (const MapCase &wanted : view().cases) {
      stage_.Take(shown_, wanted.key);
      for (int round = 0; round < rounds; ++round) {
        stage_.FillEntry(ViewStage::Fill::kFields, &chance_);
        const std::string before = stage_.Text(view().id, wanted.query);
        stage_.Change(leaf, &chance_);
        if (stage_.Text(view().id, wanted.query) != before) return true;
      }
    }
    return false;
  }

  static ViewStage &Stage() {
    static ViewStage stage;
    return stage;
  }

  ViewStage &stage_ = Stage();
  const Shown shown_ = Shown::Of(view().table);
  std::mt19937_64 chance_{20201};
};

// Each value in the text is that of the field which the map names, each line is known, and each field is
// shown or said to be hidden.
TEST_P(ViewsData, TextSaysWhatTheRecordDoes) {
  ViewCheck check(view(), shown(), stage_);
  for (const MapCase &wanted : view().cases) ASSERT_EQ(HoldRounds(&check, wanted, shown(), kRounds), "");
  EXPECT_EQ(check.Unused(), std::vector<std::string>());
  std::set<const MapHidden *> needed;
  for (const Leaf &leaf : shown().OwnLeaves()) {
    const MapHidden *hidden = HiddenBy(leaf.path);
    if (check.Seen(leaf.path) == 0) {
      EXPECT_NE(hidden, nullptr) << view().place << ": no text shows " << leaf.path;
      needed.insert(hidden);
    } else {
      EXPECT_GE(check.Seen(leaf.path), 2u) << leaf.path << " never changed";
    }
  }
  for (const MapHidden &hidden : view().hidden)
    EXPECT_TRUE(needed.contains(&hidden)) << view().place << ": hides nothing: " << hidden.path;
}

// What is said to be hidden is; what is said to steer does.
TEST_P(ViewsData, HiddenFieldsLeaveTheTextAlone) {
  std::set<const MapHidden *> steering;
  for (const Leaf &leaf : shown().OwnLeaves()) {
    const MapHidden *hidden = HiddenBy(leaf.path);
    if (hidden == nullptr || hidden->path.find('*') == 0) continue;
    if (!hidden->steers) {
      EXPECT_FALSE(ChangesText(leaf, 3)) << view().place << ": " << leaf.path << " is not hidden";
    } else if (!steering.contains(hidden) && ChangesText(leaf, 40)) {
      steering.insert(hidden);
    }
  }
  for (const MapHidden &hidden : view().hidden) {
    EXPECT_TRUE(!hidden.steers || steering.contains(&hidden)) << hidden.path << " changes nothing";
  }
}

// A layout of the table in which two fields have changed places.
class SwappedLayout {
 public:
  SwappedLayout(const TableLayout &table, std::string_view one, std::string_view other) : table_(table) {
    std::vector<Field> fields(table.fields.all().begin(), table.fields.all().end());
    const auto a = std::ranges::find(fields, one, &Field::name);
    const auto b = std::ranges::find(fields, other, &Field::name);
    std::swap(a->ref, b->ref);
    table_.fields = store_.Keep(std::move(fields));
  }
  const TableLayout &table() const { return table_; }

 private:
  LayoutStore store_;
  TableLayout table_;
};

// The comparison finds it when a layout says the wrong place of a field: any two neighbours that change
// places.
TEST_P(ViewsData, SwappedFieldsAreFound) {
  if (shown().table() == nullptr) return;
  ViewCheck right(view(), shown(), stage_);
  for (const MapCase &wanted : view().cases) ASSERT_EQ(HoldRounds(&right, wanted, shown(), 8), "");
  std::map<std::tuple<FieldKind, uint32_t, uint32_t>, const Field *> last;  // of a kind and width
  for (const Field &field : shown().fields().all()) {
    const bool isShown = field.fields.empty() && field.count == 0 && right.Seen(std::string(field.name)) >= 2;
    if (!isShown || field.ref.kind == FieldKind::kReference) continue;
    const Field *&other = last[{field.ref.kind, field.ref.size, field.ref.Width()}];
    if (other != nullptr) {
      const SwappedLayout wrong(*shown().table(), other->name, field.name);
      const Shown swapped(wrong.table());
      ViewCheck check(view(), swapped, stage_);
      bool found = false;
      for (const MapCase &wanted : view().cases)
        found = found || !HoldRounds(&check, wanted, swapped, kRounds).empty();
      EXPECT_TRUE(found) << other->name << " in place of " << field.name;
    }
    other = &field;
  }
}

INSTANTIATE_TEST_SUITE_P(All, ViewsData, testing::ValuesIn(ShownViews()),
                         [](const auto &info) { return info.param->name; });

TEST(ViewsDataMap, HasEachViewOnce) {
  std::vector<uint32_t> ids;
  for (const MapView &view : Maps()) {
    ids.push_back(view.id);
    ASSERT_LT(view.id, uint32_t{QDT_DIAG_TABLE_COUNT}) << view.place;
    EXPECT_EQ(view.table.empty(), !view.reason.empty()) << view.place;
    EXPECT_EQ(view.reason == "no view has the number", g_nqeTblOps[view.id].search == nullptr) << view.place;
    for (const MapCase &wanted : view.cases) EXPECT_EQ(wanted.query.size(), 4u) << view.place;
  }
  std::ranges::sort(ids);
  std::vector<uint32_t> all(QDT_DIAG_TABLE_COUNT);
  for (uint32_t id = 0; id < QDT_DIAG_TABLE_COUNT; ++id) all[id] = id;
  EXPECT_EQ(ids, all);
}

}  // namespace
}  // namespace qdt::host
