#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

// The bytes below were worked out by hand from the file and the engine's record.
class CampusTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    scenario_ = new Scenario(Scenario::Load(QDT_SOURCE_DIR "/examples/campus.yaml", Layout::BuiltIn()));
  }
  static void TearDownTestSuite() { delete scenario_; }

  static std::string Bytes(uint32_t table, uint32_t entry, size_t offset, size_t size) {
    return Hex(scenario_->FindTable(table)->record(entry).subspan(offset, size));
  }

  static Scenario *scenario_;
};
Scenario *CampusTest::scenario_ = nullptr;

TEST_F(CampusTest, HasTheSite) {
  EXPECT_EQ(scenario_->FindTable(11)->count(), 63u);  // trunk, 2 members, 48 ports, 4 VAPs, 8 VLANs
  EXPECT_EQ(scenario_->FindTable(12)->count(), 54u);
  EXPECT_EQ(scenario_->FindTable(85)->count(), 40u);
  EXPECT_EQ(scenario_->FindTable(24)->count(), 9u);
  EXPECT_EQ(scenario_->FindTable(29)->count(), 63u);
}

TEST_F(CampusTest, Maps) {
  EXPECT_EQ(Bytes(11, 0, 0, 16), "e8030000 01000000 00000000 00000000");
  EXPECT_EQ(Bytes(11, 62, 0, 8), "1b0c0000 d0000000");
  EXPECT_EQ(Bytes(12, 53, 0, 8), "83000000 68000000");
  EXPECT_EQ(Bytes(85, 39, 0, 8), "28000000 68000000");
  EXPECT_EQ(Bytes(24, 2, 0, 40),
            "00000000 b90b0000 00000000 00000000 00000000 00000000 03000000 b90b0000 00000000 00000000");
}

TEST_F(CampusTest, UplinkRecord) {
  EXPECT_EQ(Bytes(29, 0, 0, 20), "01000000 09000100 00000000 e8030000 01010000");
  EXPECT_EQ(Bytes(29, 0, 32, 16), "01000000 02005e10 00016300 01000000");
  EXPECT_EQ(Bytes(29, 0, 48, 4), "01000000");
  EXPECT_EQ(Bytes(29, 0, 56, 12), "d4000000 000000a0 00100000");
  EXPECT_EQ(Bytes(29, 0, 72, 4), "00000100");
  EXPECT_EQ(Bytes(29, 0, 124, 8), "01000000 8c230000");
  EXPECT_EQ(Bytes(29, 0, 132, 8), "04000000 00008c23");
  EXPECT_EQ(Bytes(29, 0, 144, 8), "11000000 00000000");
  EXPECT_EQ(Bytes(29, 0, 176, 8), "00000000 13000000");  // 76 GiB
  EXPECT_EQ(Bytes(29, 0, 328, 8), "00000060 12000000");  // 73.5 GiB in the second block
  EXPECT_EQ(Bytes(29, 0, 852, 12), "05000000 00000000 a10f0000");
  EXPECT_EQ(Bytes(29, 0, 892, 4), "a20f0000");
  EXPECT_EQ(Bytes(29, 0, 988, 8), "02000000 02000000");
  EXPECT_EQ(Bytes(29, 0, 1008, 4), "04000000");
  EXPECT_EQ(Bytes(29, 0, 1016, 8), "02000200 a10f0000");
  EXPECT_EQ(Bytes(29, 0, 1400, 16), "01000000 00000000 02010000 ba0b0000");
}

TEST_F(CampusTest, SecondStaffVapRecord) {
  constexpr uint32_t kVap = 52;  // interface 103, on radio 1
  EXPECT_EQ(Bytes(29, kVap, 0, 16), "67000000 04000500 82000000 d3070000");
  EXPECT_EQ(Bytes(29, kVap, 36, 6), "02005e21 0001");
  EXPECT_EQ(Bytes(29, kVap, 48, 4), "59000000");
  EXPECT_EQ(Bytes(29, kVap, 60, 8), "09020101 37030000");
  EXPECT_EQ(Bytes(29, kVap, 80, 12), "02000000 02005e10 00990100");
  EXPECT_EQ(Bytes(29, kVap, 784, 4), "22001100");
  EXPECT_EQ(Bytes(29, kVap, 800, 8), "20001840 0b000000");
  EXPECT_EQ(Bytes(29, kVap, 828, 8), "2f010000 93010000");
}

TEST_F(CampusTest, ApplicationControl) {
  EXPECT_EQ(Bytes(99, 0, 8 + 9 * 12, 12), "ec030304 63020000 0e000000");
  EXPECT_EQ(Bytes(102, 1, 0, 12), "02000000 ec030300 64020000");
  EXPECT_EQ(Bytes(103, 0, 0, 24), "03000000 01000000 e3d83401 00000000 92d83401 00000000");
  EXPECT_EQ(Bytes(103, 0, 9672 + 32, 28), "00770100 80b50100 0078ce04 00000000 00c80208 00000000 e9030000");
  EXPECT_EQ(Bytes(104, 0, 0, 12), "02005e30 00010000 02000000");
  EXPECT_EQ(Bytes(104, 0, 1064 + 24, 24), "14000000 d0070000 14000000 204e0000 99080000 00000000");
}

TEST_F(CampusTest, PriorityMaps) {
  EXPECT_EQ(Bytes(69, 0, 0, 16), "00081018 22282e38 00010203 04050607");
  EXPECT_EQ(Bytes(69, 0, 144, 8), "00020103 04050607");
  EXPECT_EQ(Bytes(69, 0, 216, 8), "000a121a 22282e30");
}

TEST_F(CampusTest, OneServiceIsStale) {
  uint32_t stale = 0;
  for (const PlannedReference &reference : scenario_->FindTable(29)->references) stale += reference.stale;
  EXPECT_EQ(scenario_->FindTable(29)->references.size(), 34u);
  EXPECT_EQ(stale, 1u);
}

// The first example of the format's description, as it stands there.
TEST(ScenarioDocumentTest, ExampleLoads) {
  std::ifstream file(QDT_SOURCE_DIR "/docs/scenarios.md");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const size_t start = text.find("```yaml\n") + 8;
  const Scenario scenario =
      Scenario::FromText("example", text.substr(start, text.find("```", start) - start), Layout::BuiltIn());
  EXPECT_EQ(scenario.FindTable(11)->count(), 25u);
  EXPECT_EQ(scenario.FindTable(29)->references.size(), 1u);
  EXPECT_EQ(scenario.regions().size(), 1u);
}

}  // namespace
}  // namespace qdt::host
