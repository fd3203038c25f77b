#include "host/linux/mirror_table.h"

#include "host/layout/layout_files.h"
#include "tests/linux/mirror_fixture.h"

namespace qdt::host {
namespace {

class MirrorTableTest : public MirrorTest {
 protected:
  MirrorTableTest() : MirrorTest({{"ctrlif_map_fwdif", 2}}) {}

  void Put(uint32_t key, uint32_t value, void **entry) {
    table_.New().SetKey(key_, key).Set(control_, key).Set(forward_, value).Put(entry);
  }

  MirrorTable table_{target(), "ctrlif_map_fwdif"};
  FieldRef key_ = table_.Key("ctrl_if_index"), control_ = table_.Value("ctrl_if_index"),
           forward_ = table_.Value("fwd_if_index");
};

TEST_F(MirrorTableTest, AnEntryKeepsItsAddressWhileItLives) {
  void *entry = nullptr;
  Put(5, 50, &entry);
  void *const first = entry;
  ASSERT_NE(first, nullptr);
  Put(5, 51, &entry);
  EXPECT_EQ(entry, first);
  EXPECT_EQ(Values("ctrlif_map_fwdif", "fwd_if_index"), std::vector<uint64_t>{51});
  table_.Remove(&entry);
  EXPECT_EQ(entry, nullptr);
  EXPECT_TRUE(Values("ctrlif_map_fwdif", "fwd_if_index").empty());
  table_.Remove(&entry);  // nothing to take out
}

TEST_F(MirrorTableTest, AFullTableCountsAndSaysWhenThereIsRoomAgain) {
  void *entries[3] = {};
  for (uint32_t i = 0; i < 3; ++i) Put(i, i, &entries[i]);
  EXPECT_EQ(entries[2], nullptr);
  EXPECT_EQ(table_.refused(), 1u);
  EXPECT_FALSE(table_.TakeRoomAgain());
  table_.Remove(&entries[0]);
  EXPECT_TRUE(table_.TakeRoomAgain());
  EXPECT_FALSE(table_.TakeRoomAgain());
  Put(2, 2, &entries[2]);
  EXPECT_NE(entries[2], nullptr);
  table_.Remove(&entries[1]);  // nobody waits for it
  EXPECT_FALSE(table_.TakeRoomAgain());
}

TEST_F(MirrorTableTest, ATableThatTheLayoutLacksTakesNothing) {
  std::string text = R"(
tables:
  ctrlif_map_fwdif: {id: 11, name: CAP_TABLE_CTRLIF_MAP, key_size: 4, record_size: 16, capacity: 2,
                     key: {ctrl_if_index: 0 u32}, fields: {ctrl_if_index: 0 u32}}
)";
  for (uint32_t id = 0; id < kTableCount; ++id) {
    const std::string number = std::to_string(id);
    if (id != 11) text += "  t" + number + ": {id: " + number + ", name: CAP_TABLE_T" + number + "}\n";
  }
  const Layout other = ReadLayouts({{"own.yaml", text}});
  const FillTarget poor{other, *arena_, *writer_, *statistics_, natPolicy_};
  MirrorTable missing(poor, "fwdif"), lacks(poor, "ctrlif_map_fwdif");
  EXPECT_FALSE(missing.usable());
  const FieldRef optional = lacks.Optional("fwd_if_index");
  EXPECT_TRUE(lacks.usable());
  lacks.New().Set(optional, 7);
  lacks.Value("fwd_if_index");
  EXPECT_FALSE(lacks.usable());
  void *entry = nullptr;
  lacks.New().SetKey(lacks.Key("ctrl_if_index"), 1).Set(lacks.Value("ctrl_if_index"), 1).Put(&entry);
  missing.New().Put(&entry);
  EXPECT_EQ(entry, nullptr);
  EXPECT_TRUE(Values("ctrlif_map_fwdif", "fwd_if_index").empty());
}

TEST_F(MirrorTableTest, ADerivedTableHasWhatIsWantedAndNothingElse) {
  DerivedTable derived(target(), "ssw_boardcast");
  MirrorTable &table = derived.table();
  const FieldRef bridge = table.Key("bridge_id"), vlan = table.Key("vlan_id"),
                 port = table.Value("fwd_if_index");
  const auto want = [&](uint32_t vlanId, uint32_t index) {
    table.New().SetKey(bridge, 1).SetKey(vlan, vlanId).Set(port, index);
    derived.Want();
  };
  derived.Begin();
  want(10, 3);
  want(10, 4);  // the same key
  want(20, 3);
  derived.End();
  EXPECT_EQ(Values("ssw_boardcast", "fwd_if_index"), (std::vector<uint64_t>{3, 4, 3}));
  derived.Begin();
  want(10, 4);
  want(10, 5);
  derived.End();
  EXPECT_EQ(Values("ssw_boardcast", "fwd_if_index"), (std::vector<uint64_t>{4, 5}));
}

}  // namespace
}  // namespace qdt::host
