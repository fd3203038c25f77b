#include <memory>
#include <string>

#include "tests/unit/view_test.h"

// Views of the mirror observe ports and of the engine's modules.
namespace qdt::test {
namespace {

constexpr uint32_t kObserve = 36, kModule = 74;

class MirrorTest : public ViewTest {};

TEST_F(MirrorTest, WholeAnswer) {
  const Record port = Record(8).U32(0, 3000000001u).U32(4, 3000000002u);
  platform.AddEntry(kObserve, Key(uint32_t{70000}), port.bytes());
  EXPECT_EQ(Query("19", "x", "70000"), Framed("  CtrlIfIdx  :  3000000001\n"
                                              "  FwdIfIdx   :  3000000002\n"));
  EXPECT_EQ(Query("19", "70000"), "search result not found");
  ExpectFindsOne(NqeTableSearchNqeMirrObserve, kObserve, port, "search 36 70110100", "x", 70000);
  ExpectOneRecordOnly(NqeTableFormatNqeMirrObserve, 8);
  ExpectBoundedByRoom(NqeTableFormatNqeMirrObserve, port);
}

// Modules. The size of their names is what the table manager's descriptor tells.

class ModuleTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    SetNameSize(12);
    info_ = {109, 0, tables_, nullptr, nullptr};
    g_tbmGlobalInfo = &info_;
  }
  void TearDown() override {
    g_tbmGlobalInfo = nullptr;
    ViewTest::TearDown();
  }

  void SetNameSize(uint16_t size) {
    nameSize_ = size;
    tables_[kModule].dataSize = size;
    tables_[kModule - 1].dataSize = tables_[kModule + 1].dataSize = static_cast<uint16_t>(size + 1);
  }

  Record Module(uint32_t id, const std::string &name) {
    return Record(4 + nameSize_).U32(0, id).Copy(4, name);
  }
  void AddModule(uint32_t id, const std::string &name) {
    platform.AddEntry(kModule, Key(id), Module(id, name).bytes());
  }

  static std::string ModuleText(const std::string &id, const std::string &name) {
    return "  ModId       :  " + id + "\n  ModName     :  " + name + "\n\n";
  }

  // Adds modules 0 to count - 1 and returns the text of the first `shown`.
  std::string AddModules(int count, int shown) {
    std::string text;
    for (int i = 0; i < count; ++i) {
      const std::string id = std::to_string(i);
      AddModule(static_cast<uint32_t>(i), "mod-" + id);
      if (i < shown) text += ModuleText(id, "mod-" + id);
    }
    return text;
  }

  TbmTableDesc tables_[109] = {};
  TbmGlobalInfo info_{};
  uint16_t nameSize_ = 0;
};

TEST_F(ModuleTest, WholeAnswer) {
  AddModule(3000000001u, "fwd");
  AddModule(0, "");
  AddModule(2, "eleven-char");
  EXPECT_EQ(Query("65", "all", "1", "2", "3"), Framed("  ModId       :  3000000001\n"
                                                      "  ModName     :  fwd\n"
                                                      "\n"
                                                      "  ModId       :  0\n"
                                                      "  ModName     :  \n"
                                                      "\n"
                                                      "  ModId       :  2\n"
                                                      "  ModName     :  eleven-char\n"
                                                      "\n"));
  EXPECT_EQ(platform.walks, std::vector<std::string>{"next 74 800"});
}

TEST_F(ModuleTest, AtMost50AreShown) {
  const std::string fifty = AddModules(60, 50);
  EXPECT_EQ(Query("65", "all"), Framed(fifty));
  EXPECT_EQ(Query("65", "num100"), Framed(fifty));
  EXPECT_EQ(Query("65", "num50"), Framed(fifty));
  EXPECT_EQ(platform.walks, std::vector<std::string>(3, "next 74 800"));
}

TEST_F(ModuleTest, ACountLimitsTheBatch) {
  const std::string three = AddModules(7, 3);
  EXPECT_EQ(Query("65", "num3"), Framed(three));
  EXPECT_EQ(platform.walks, std::vector<std::string>{"next 74 48"});
  EXPECT_EQ(Query("65", "num7"), Query("65", "all"));
}

TEST_F(ModuleTest, NoLookupByKey) {
  AddModules(1, 1);
  g_tbmGlobalInfo = nullptr;
  for (const char *key1 : {"0", "x", "ALL", "num0", "num101"}) {
    EXPECT_EQ(Query("65", key1), "invalid input param") << key1;
  }
  EXPECT_EQ(platform.log, std::vector<LogLine>{});  // refused before the descriptor is looked at
}

TEST_F(ModuleTest, EmptyTable) {
  EXPECT_EQ(Query("65", "all"), "datasize empty or invalid");
  EXPECT_EQ(Call(NqeTableSearchModInfo, 50, "all"), (Found{0, Key(uint32_t{12})}));
}

TEST_F(ModuleTest, TheNameSizeIsTheDescriptors) {
  for (const uint16_t size : {uint16_t{4}, uint16_t{32}, uint16_t{65535}}) {
    platform.ClearTable(kModule);
    platform.walks.clear();
    SetNameSize(size);
    AddModule(7, "abc");
    AddModule(8, "d");
    EXPECT_EQ(Query("65", "all"), Framed(ModuleText("7", "abc") + ModuleText("8", "d")));
    EXPECT_EQ(platform.walks, std::vector<std::string>{"next 74 " + std::to_string((size + 4) * 50)});
    EXPECT_EQ(platform.allocations.back().size, (size + 4) * 50u + 4);
  }
}

TEST_F(ModuleTest, RecordIsTheNameSizeAndTheEntries) {
  const std::string text = AddModules(3, 3);
  TbmTblTravContextInit(&context);
  const Found two = Call(NqeTableSearchModInfo, 2, "all");  // there is more, which is not said
  EXPECT_EQ(two.code, 0);
  Record expected(4 + 2 * 16);
  expected.U32(0, 12).U32(4, 0).Copy(8, "mod-0").U32(20, 1).Copy(24, "mod-1");
  EXPECT_EQ(two.record, expected.bytes());
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_mod");
  EXPECT_EQ(platform.allocations.back().size, 36u);
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchModInfo, 2, "all").code, QDT_TBL_NO_MEMORY);
}

TEST_F(ModuleTest, MissingDescriptor) {
  AddModules(1, 1);
  info_.tables = nullptr;
  EXPECT_EQ(Query("65", "all"), "search fail");
  const LogLine line = {3, "Failed to get table MODINFO\n"};
  EXPECT_EQ(platform.log, std::vector<LogLine>{line});
  g_tbmGlobalInfo = nullptr;
  EXPECT_EQ(Query("65", "num3"), "search fail");
  EXPECT_EQ(platform.log, std::vector<LogLine>(2, line));
  EXPECT_TRUE(platform.walks.empty());
}

// A table manager need not list as many tables as this one; what lies behind its list is no descriptor.
TEST_F(ModuleTest, TheDescriptorMustBeListed) {
  const LogLine line = {3, "Failed to get table MODINFO\n"};
  for (const uint32_t count : {0u, 10u, 74u}) {
    const auto tables = std::make_unique<TbmTableDesc[]>(count);  // a sanitizer sees a read behind it
    info_ = {count, 0, tables.get(), nullptr, nullptr};
    platform.log.clear();
    EXPECT_EQ(Query("65", "all"), "search fail") << count;
    EXPECT_EQ(platform.log, std::vector<LogLine>{line}) << count;
  }
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_EQ(platform.liveAllocations(), 0u);
  const std::string text = AddModules(1, 1);
  for (const uint32_t count : {75u, 109u, 110u, UINT32_MAX}) {
    info_ = {count, 0, tables_, nullptr, nullptr};
    EXPECT_EQ(Query("65", "all"), Framed(text)) << count;
  }
}

TEST_F(ModuleTest, AFailingWalkIsAFailedSearch) {
  AddModules(1, 1);
  for (const int32_t code : {-12, -7, 2, INT32_MAX}) {
    platform.FailTable(kModule, code);
    EXPECT_EQ(Call(NqeTableSearchModInfo, 50, "all").code, QDT_TBL_FAIL);
    EXPECT_EQ(Query("65", "all"), "search fail");
  }
}

TEST_F(ModuleTest, ANameWithoutNulEndsWithItsField) {
  SetNameSize(4);
  AddModule(7, "abcd");
  AddModule(0x31313131, "efgh");
  EXPECT_EQ(Query("65", "all"), Framed(ModuleText("7", "abcd") + ModuleText("825307441", "efgh")));
  const auto record = std::make_unique<char[]>(12);  // a sanitizer sees a byte read behind it
  std::memcpy(record.get(), "\x04\0\0\0\x07\0\0\0wxyz", 12);
  char area[64];
  EXPECT_EQ(NqeTableFormatModInfo(area, sizeof(area), record.get(), 12), 42);
  EXPECT_EQ(area, ModuleText("7", "wxyz"));
}

TEST_F(ModuleTest, Lengths) {
  Record record(4 + 3 * 16);
  record.U32(0, 12);
  char area[256] = "#";
  for (const int32_t length : {INT32_MIN, -1, 0, 1, 3, 4, 5, 16, 19, 21, 35, 37}) {
    EXPECT_EQ(NqeTableFormatModInfo(area, sizeof(area), record.data(), length), QDT_TBL_DATA_SIZE) << length;
  }
  EXPECT_EQ(NqeTableFormatModInfo(area, sizeof(area), nullptr, 20), QDT_TBL_DATA_SIZE);
  EXPECT_STREQ(area, "#");
  EXPECT_EQ(NqeTableFormatModInfo(area, sizeof(area), record.data(), 20), 38);
  EXPECT_EQ(NqeTableFormatModInfo(area, sizeof(area), record.data(), 36), 76);
}

TEST_F(ModuleTest, WrongNameSizes) {
  // Sizes that wrap a 32-bit sum to 0, 1 and 16.
  for (const uint32_t size : {0xFFFFFFFCu, 0xFFFFFFFDu, UINT32_MAX}) {
    EXPECT_EQ(FormatText(NqeTableFormatModInfo, Record(20).U32(0, size)), "code -119") << size;
  }
  EXPECT_EQ(FormatText(NqeTableFormatModInfo, Record(12).U32(0, 0).U32(4, 1).U32(8, 2)),
            ModuleText("1", "") + ModuleText("2", ""));
}

TEST_F(ModuleTest, Room) {
  Record record(4 + 2 * 16);
  record.U32(0, 12).U32(4, UINT32_MAX).Copy(8, "twelve-chars").U32(20, 1).Copy(24, "x");
  ExpectBoundedByRoom(NqeTableFormatModInfo, record);
}

}  // namespace
}  // namespace qdt::test
