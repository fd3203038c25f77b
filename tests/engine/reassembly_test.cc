#include "host/engine/reassembly.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "tests/host/temp_dir.h"

// The rings of packets that wait for fragments, as others find them in the arena.
namespace qdt::host {
namespace {

class ReassemblyRingTest : public testing::Test {
 protected:
  void Start(const char *scenario) {
    filler_ =
        std::make_unique<ScenarioFiller>("test", Scenario::FromText("test", scenario, Layout::BuiltIn()));
    engine_ = std::make_unique<Engine>(EngineOptions{directory_.File("arena"), directory_.File("socket")},
                                       Layout::BuiltIn(), filler_.get());
  }

  static uint64_t Word(const char *at) {
    uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
  }

  // The places of the region's packets in its ring, followed from link to link ("forwards" by the second word
  // of each). Links stand at byte 24 of the region and at byte 16 of packets, which begin at 64, 128 bytes
  // each.
  std::vector<uint64_t> Walk(const std::string &region, bool forwards) {
    const auto *start = static_cast<const char *>(engine_->arena().FindRegion(region, nullptr));
    const auto head = reinterpret_cast<uint64_t>(start) + 24;
    std::vector<uint64_t> places;
    for (uint64_t link = Word(start + 24 + 8 * forwards); link != head && places.size() < 70;) {
      const uint64_t offset = link - 16 - reinterpret_cast<uint64_t>(start);
      EXPECT_EQ(offset % 128, 64u);
      EXPECT_LT(offset, 64u + 64 * 128);
      if (HasFailure()) break;
      places.push_back((offset - 64) / 128);
      link = Word(start + offset + 16 + 8 * forwards);
    }
    return places;
  }

  TempDir directory_;
  std::unique_ptr<ScenarioFiller> filler_;
  std::unique_ptr<Engine> engine_;
};

using Places = std::vector<uint64_t>;

TEST_F(ReassemblyRingTest, EmptyHeadsPointToThemselves) {
  Start("{arp: []}");
  for (const char *region : {"IP_REASS_CTX_PTR", "IP6_REASS_CTX_PTR"}) {
    EXPECT_EQ(Walk(region, true), Places{});
    EXPECT_EQ(Walk(region, false), Places{});
  }
}

TEST_F(ReassemblyRingTest, PacketsAreLinkedInTheirOrder) {
  Start(R"(
regions:
  IP_REASS_CTX_PTR: {packets: {0: {packet_id: 1}, 5: {vlan: 2}, 63: {reassemble: 1}}}
  IP6_REASS_CTX_PTR: {packets: [{packet_id: 1}, {packet_id: 2}]}
)");
  EXPECT_EQ(Walk("IP_REASS_CTX_PTR", true), (Places{0, 5, 63}));
  EXPECT_EQ(Walk("IP_REASS_CTX_PTR", false), (Places{63, 5, 0}));
  EXPECT_EQ(Walk("IP6_REASS_CTX_PTR", true), (Places{0, 1}));
  EXPECT_EQ(Walk("IP6_REASS_CTX_PTR", false), (Places{1, 0}));
}

TEST_F(ReassemblyRingTest, WaitedBecomesATimeStamp) {
  Start(
      "regions: {IP_REASS_CTX_PTR: {packets: [{vlan: 1}, {waited: 1500}, {waited: 18446744073709551615}]}}");
  const auto *region = static_cast<const char *>(engine_->arena().FindRegion("IP_REASS_CTX_PTR", nullptr));
  const uint64_t now = Word(region + 64 + 64);
  EXPECT_GT(now, 1500u);
  EXPECT_EQ(Word(region + 192 + 64), now - 1500);
  EXPECT_EQ(Word(region + 320 + 64), 0u);  // nothing is older than the timer
}

}  // namespace
}  // namespace qdt::host
