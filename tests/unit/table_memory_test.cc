#include <string>

#include "tests/unit/view_test.h"

// View of the memory that the engine's tables take.
namespace qdt::test {
namespace {

class TableMemoryTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    info_ = {109, 0, tables_, nullptr, nullptr};
    g_tbmGlobalInfo = &info_;
  }
  void TearDown() override {
    g_tbmGlobalInfo = nullptr;
    ViewTest::TearDown();
  }

  TbmTableDesc tables_[110] = {};
  TbmGlobalInfo info_ = {};
};

const std::string kRule = std::string(99, '-') + "\n";
const std::string kHead =
    kRule +
    "TableId    TableName                        Enable     Spec        EntryNum     MemorySize(Bytes)  \n" +
    kRule;

// The line of table `id`, none of whose fields is set.
std::string EmptyLine(uint32_t id) {
  std::string line = "  " + std::to_string(id);
  line.resize(11, ' ');
  return line + std::string(35, ' ') + "0          0            0            0\n";
}

std::string EmptyLines(uint32_t first, uint32_t last) {
  std::string text;
  for (uint32_t id = first; id <= last; ++id) text += EmptyLine(id);
  return text;
}

std::string Total(const std::string &bytes) {
  return kRule + "Total Table Memory Size: " + bytes + " (Bytes)\n" + kRule;
}

TEST_F(TableMemoryTest, WholeAnswer) {
  tables_[0].name = "CAP_TABLE_GLOBAL";
  tables_[0].enable = 1;
  tables_[0].spec = 2;
  tables_[0].entryNum = 3;
  platform.tableMemory[0] = {0, 4};
  tables_[7].name = "A_NAME_OF_THIRTY_SEVEN_CHARACTERS_IN_";
  tables_[7].enable = 0xFFFFFFFF;
  tables_[7].spec = 0x80000000;
  tables_[7].entryNum = 2147483647;
  platform.tableMemory[7] = {-1, 3000000007u};  // what it counted stands, whatever it returns
  platform.tableMemory[108] = {0, 3000000108u};
  platform.tableMemory[109] = {0, 5};  // no table
  const std::string text =
      kHead + "  0        CAP_TABLE_GLOBAL                   1          2            3            4\n" +
      EmptyLines(1, 6) +
      "  7        A_NAME_OF_THIRTY_SEVEN_CHARACTERS_IN_-1         -2147483648  2147483647   3000000007\n" +
      EmptyLines(8, 107) +
      "  108                                         0          0            0            3000000108\n" +
      Total("1705032823");  // 6000000119 in 32 bits
  for (const char *key1 : {"0", "all", "num5", "x"}) EXPECT_EQ(Query("47", key1), text);
  EXPECT_TRUE(platform.allocations.size() <= 4) << "only the frame's own, for num";
  EXPECT_TRUE(platform.walks.empty());
  ExpectBoundedByRoom(NqeTableFormatTbmMemStat, Record(1));
}

TEST_F(TableMemoryTest, OtherTableManagers) {
  EXPECT_EQ(Query("47", "0"), kHead + EmptyLines(0, 108) + Total("0"));
  for (const uint32_t count : {0u, 108u, 110u, UINT32_MAX}) {
    info_.tableCount = count;
    EXPECT_EQ(Query("47", "0"), "search is not supported") << count;
  }
  info_ = {109, 0, nullptr, nullptr, nullptr};
  EXPECT_EQ(Query("47", "0"), "search is not supported");
  g_tbmGlobalInfo = nullptr;
  EXPECT_EQ(Query("47", "0"), "search is not supported");
}

}  // namespace
}  // namespace qdt::test
