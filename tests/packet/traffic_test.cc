#include "host/packet/traffic.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/engine.h"
#include "platform/shm.h"
#include "platform/tbm.h"
#include "qdt/stats.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using End = PacketFate::End;

const std::vector<TrafficInterface> kInterfaces = {{11, 10}, {12, 10}, {13, 20}, {14, 50}};

std::vector<Packet> Round(uint32_t cores = 4) {
  PacketGenerator generator(kInterfaces, cores);
  std::vector<Packet> packets;
  for (uint32_t i = 0; i < PacketGenerator::MixSize(); ++i) packets.push_back(generator.Next());
  return packets;
}

TEST(PacketGenerator, MakesTheSamePacketsAgain) {
  PacketGenerator one(kInterfaces, 4), other(kInterfaces, 4);
  for (int i = 0; i < 1000; ++i) {
    const Packet a = one.Next(), b = other.Next();
    ASSERT_EQ(a.headers.source, b.headers.source);
    ASSERT_EQ(a.headers.sourcePort, b.headers.sourcePort);
    ASSERT_EQ(a.sourceFwdIf, b.sourceFwdIf);
    ASSERT_EQ(a.fate.discardReason, b.fate.discardReason);
  }
}

TEST(PacketGenerator, HasEveryKindInItsMix) {
  EXPECT_EQ(PacketGenerator::MixSize(), 157u);
  std::map<std::string, int> seen;
  for (const Packet &packet : Round()) {
    const PacketHeaders &headers = packet.headers;
    seen["arp"] += headers.etherType == 0x0806;
    seen["ipv4 tcp"] += headers.IsIpv4() && headers.IsTcp();
    seen["ipv4 udp"] += headers.IsIpv4() && headers.IsUdp();
    seen["icmp"] += headers.IsIpv4() && headers.IsIcmp();
    seen["ipv6"] += headers.IsIpv6();
    seen["icmpv6"] += headers.IsIpv6() && headers.IsIcmp();
    seen["first fragment"] += headers.moreFragments && headers.fragmentOffset == 0;
    seen["last fragment"] += !headers.moreFragments && headers.fragmentOffset != 0;
    seen["eap key"] += packet.kind == PacketKind::kEapKey;
    seen["capwap keepalive"] += packet.kind == PacketKind::kCapwapKeepalive;
    seen["pppoe keepalive"] += packet.kind == PacketKind::kPppoeKeepalive;
    seen["tunnel"] += packet.inner.has_value();
    seen["from control plane"] += packet.fromControlPlane;
    seen["to control plane"] += packet.fate.end == End::kToControlPlane;
    seen["discarded"] += packet.Discarded();
    seen["error"] += packet.fate.errorStatistic != 0;
    seen["rate limit"] += packet.fate.limitedProtocol != 0;
  }
  const std::map<std::string, int> expected = {{"arp", 8},
                                               {"ipv4 tcp", 62},
                                               {"ipv4 udp", 50},
                                               {"icmp", 10},
                                               {"ipv6", 25},
                                               {"icmpv6", 4},
                                               {"first fragment", 2},
                                               {"last fragment", 2},
                                               {"eap key", 1},
                                               {"capwap keepalive", 1},
                                               {"pppoe keepalive", 1},
                                               {"tunnel", 9},
                                               {"from control plane", 4},
                                               {"to control plane", 12},
                                               {"discarded", 14},
                                               {"error", 1},
                                               {"rate limit", 2}};
  EXPECT_EQ(seen, expected);
}

TEST(PacketGenerator, UsesAllInterfacesAndCores) {
  std::set<uint32_t> in, out, cores;
  for (const Packet &packet : Round()) {
    in.insert(packet.sourceFwdIf);
    out.insert(packet.destinationFwdIf);
    cores.insert(packet.core);
    EXPECT_TRUE(packet.sourceFwdIf != packet.destinationFwdIf || packet.sourceFwdIf == 0);
    EXPECT_EQ(packet.fromControlPlane, packet.sourceFwdIf == 0);
    const bool lost = packet.Discarded() && packet.fate.stage <= PathStage::kLookup;
    EXPECT_EQ(packet.fate.end == End::kToControlPlane || lost, packet.destinationFwdIf == 0);
  }
  EXPECT_EQ(in, (std::set<uint32_t>{0, 11, 12, 13, 14}));
  EXPECT_EQ(out, (std::set<uint32_t>{0, 11, 12, 13, 14}));
  EXPECT_EQ(cores, (std::set<uint32_t>{0, 1, 2, 3}));
  for (const Packet &packet : Round(1)) EXPECT_EQ(packet.core, 0u);
}

TEST(Pace, KeepsTheRateOnTheAverage) {
  Pace::Time now{};
  Pace pace(150, now);
  uint64_t sent = 0;
  for (int tick = 0; tick < 100; ++tick) sent += pace.Due(now += 10ms);
  EXPECT_EQ(sent, 150u);
  EXPECT_EQ(pace.Due(now), 0u);
  Pace slow(1, now);
  for (int tick = 0; tick < 99; ++tick) EXPECT_EQ(slow.Due(now += 10ms), 0u);
  EXPECT_EQ(slow.Due(now += 10ms), 1u);
}

TEST(Pace, ForgetsWhatAStandstillHasCost) {
  Pace::Time now{};
  Pace pace(1000, now);
  EXPECT_EQ(pace.Due(now += 10ms), 10u);
  EXPECT_EQ(pace.Due(now += 100s), 100u);
  EXPECT_EQ(pace.Due(now += 10ms), 10u);
  // A year at the highest rate is no overflow.
  Pace fast(Traffic::kMaxRate, now);
  EXPECT_EQ(fast.Due(now += std::chrono::hours(24 * 365)), 100000u);
}

class TrafficTest : public testing::Test {
 protected:
  static constexpr char kScenario[] = R"(
fwdif:
  - {repeat: 2, if_index: {from: 11, step: 1}, enable: 1, pvid: 10}
  - {if_index: 13, enable: 0}
)";

  // A counter of a forwarding interface.
  static uint64_t Counter(uint32_t index, const char *field) {
    const TableLayout *table = Layout::BuiltIn().FindTable("fwdif");
    void *entry = nullptr;
    EXPECT_EQ(TbmTblSearch(0, table->spec.id, &index, &entry), 0);
    return table->At(field).Get(entry);
  }

  // The statistics that are not 0, "NUMBER=VALUE ".
  static std::string Counted(uint32_t core) {
    std::string text;
    for (uint32_t i = 0; i < QDT_STAT_COUNTERS; ++i) {
      const uint64_t value = QdtSysStatGetRuncStat(core)[i];
      if (value != 0) text += std::to_string(i) + "=" + std::to_string(value) + " ";
    }
    return text;
  }

  TempDir directory_;
  ScenarioFiller filler_{"test", Scenario::FromText("test", kScenario, Layout::BuiltIn())};
  Engine engine_{{directory_.File("arena"), directory_.File("socket"), 2}, Layout::BuiltIn(), &filler_};
  InterfaceCounters interfaces_{Layout::BuiltIn()};
  PacketPath path_{&engine_.statistics(), &interfaces_, &engine_.measurement()};
};

Packet Through(uint16_t etherType, uint8_t protocol) {
  Packet packet;
  packet.headers.destinationMac = {0x02};
  packet.headers.etherType = etherType;
  packet.headers.protocol = protocol;
  packet.length = 100;
  packet.sourceFwdIf = 11;
  packet.destinationFwdIf = 12;
  packet.core = 1;
  return packet;
}

TEST_F(TrafficTest, UsesTheInterfacesThatAreEnabled) {
  ASSERT_EQ(interfaces_.interfaces().size(), 2u);
  EXPECT_EQ(interfaces_.interfaces()[0].index, 11u);
  EXPECT_EQ(interfaces_.interfaces()[1].index, 12u);
  EXPECT_EQ(interfaces_.interfaces()[1].vlan, 10u);
}

TEST_F(TrafficTest, AForwardedPacketMovesItsCounters) {
  path_.Process(Through(0x0800, 6));
  EXPECT_EQ(Counted(0), "");
  EXPECT_EQ(Counted(1), "462=1 480=1 482=1 485=1 493=1 541=1 544=1 ");
  EXPECT_EQ(Counter(11, "counters[1].in_bytes"), 100u);
  EXPECT_EQ(Counter(11, "counters[1].in_packets"), 1u);
  EXPECT_EQ(Counter(11, "counters[1].in_unicast"), 1u);
  EXPECT_EQ(Counter(11, "counters[1].out_packets"), 0u);
  EXPECT_EQ(Counter(12, "counters[1].out_bytes"), 100u);
  EXPECT_EQ(Counter(12, "counters[1].out_packets"), 1u);
  EXPECT_EQ(Counter(11, "counters[0].in_packets"), 0u);
}

TEST_F(TrafficTest, CountsByProtocol) {
  const struct {
    Packet packet;
    const char *counted;
  } cases[] = {
      {Through(0x0800, 17), "462=1 479=1 483=1 493=1 541=1 543=1 "},
      {Through(0x0800, 1), "462=1 463=1 483=1 493=1 541=1 542=1 "},
      {Through(0x86dd, 6), "480=1 482=1 485=1 493=1 500=1 544=1 559=1 "},
      {Through(0x86dd, 58), "483=1 493=1 500=1 501=1 559=1 560=1 "},
      {Through(0x0806, 0), "483=1 493=1 498=1 "},
      {Through(0x8864, 0), "483=1 493=1 497=1 523=1 "},
  };
  for (const auto &expected : cases) {
    std::vector<uint64_t> old(QdtSysStatGetRuncStat(1), QdtSysStatGetRuncStat(1) + QDT_STAT_COUNTERS);
    path_.Process(expected.packet);
    std::string text;
    for (uint32_t i = 0; i < QDT_STAT_COUNTERS; ++i) {
      const uint64_t grown = QdtSysStatGetRuncStat(1)[i] - old[i];
      if (grown != 0) text += std::to_string(i) + "=" + std::to_string(grown) + " ";
    }
    EXPECT_EQ(text, expected.counted);
  }
}

TEST_F(TrafficTest, GroupsOfAddressesAreCountedApart) {
  Packet packet = Through(0x0806, 0);
  packet.headers.destinationMac = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  path_.Process(packet);
  packet.headers.destinationMac = {0x33, 0x33, 0, 0, 0, 1};
  path_.Process(packet);
  EXPECT_EQ(Counter(11, "counters[1].in_broadcast"), 1u);
  EXPECT_EQ(Counter(11, "counters[1].in_multicast"), 1u);
  EXPECT_EQ(Counter(11, "counters[1].in_unicast"), 0u);
}

TEST_F(TrafficTest, ADiscardedPacketEndsAtItsStage) {
  Packet packet = Through(0x0800, 6);
  packet.fate = {End::kDiscarded, PathStage::kAcl, 138};
  path_.Process(packet);
  EXPECT_EQ(Counted(1), "325=1 462=1 480=1 493=1 ");
  EXPECT_EQ(Counter(11, "counters[1].in_packets"), 1u);
  EXPECT_EQ(Counter(12, "counters[1].out_packets"), 0u);
}

TEST_F(TrafficTest, RateLimitsAndErrorsAreCountedBesides) {
  Packet packet = Through(0x0806, 0);
  packet.fate = {End::kDiscarded, PathStage::kLimit, 131, 172, 1};
  path_.Process(packet);
  EXPECT_EQ(Counted(1), "172=1 318=1 493=1 498=1 578=1 ");
}

TEST_F(TrafficTest, APuntedPacketIsNotTransmitted) {
  Packet packet = Through(0x888e, 0);
  packet.kind = PacketKind::kEapKey;
  packet.causeId = 8;
  packet.destinationFwdIf = 0;
  packet.fate.end = End::kToControlPlane;
  path_.Process(packet);
  EXPECT_EQ(Counted(1), "48=1 483=1 493=1 524=1 ");
}

TEST_F(TrafficTest, OfTheControlPlaneNothingComesFromTheDriver) {
  Packet packet = Through(0x0800, 1);
  packet.fromControlPlane = true;
  packet.sourceFwdIf = 0;
  path_.Process(packet);
  EXPECT_EQ(Counted(1), "462=1 463=1 483=1 541=1 542=1 ");
  EXPECT_EQ(Counter(12, "counters[1].out_packets"), 1u);
}

// What every packet of a round has moved adds up to what the round holds.
TEST_F(TrafficTest, ARoundOfTheMixAddsUp) {
  PacketGenerator generator(interfaces_.interfaces(), 2);
  for (uint32_t i = 0; i < PacketGenerator::MixSize(); ++i) path_.Process(generator.Next());
  std::vector<uint64_t> total(QDT_STAT_COUNTERS);
  QdtSysStatAccumulate(7, total.data());
  EXPECT_EQ(total[493], 152u);  // all but four of the control plane and one for an interface that is down
  EXPECT_EQ(total[498], 8u);    // ARP
  EXPECT_EQ(total[5], 2u);      // ARP misses, told to the control plane
  EXPECT_EQ(total[188], 2u);    // and discarded
  EXPECT_EQ(total[260], 1u);    // the interface that is down
  EXPECT_EQ(total[315], 1u);    // a rate limit of the site
  EXPECT_EQ(total[318], 2u);    // the rate limit of the control plane
  EXPECT_EQ(total[578], 2u);    // of ARP replies
  EXPECT_EQ(total[172], 1u);    // the internal error
}

TEST_F(TrafficTest, ATickSendsPacketsAndShowsThemToTheTrace) {
  auto *block = static_cast<TraceBlock *>(VRX_Smmap("PKT_TRACE_CTX_PTR", 224, 0));
  ASSERT_NE(block, nullptr);
  block->switches = 1;
  block->leftPrints = 3;
  std::vector<std::string> lines;
  Pipeline pipeline(&engine_,
                    {[&](const std::string &line) { lines.push_back(line); }, [](const std::string &) {}});
  Traffic traffic(&engine_, 1000, &pipeline);
  std::this_thread::sleep_for(50ms);
  traffic.Tick();
  EXPECT_EQ(lines.size(), 3u);
  EXPECT_GE(block->fromDriver + block->fromSlowPath, 50u);
  EXPECT_LE(block->fromDriver + block->fromSlowPath, 100u);
}

TEST(TrafficErrors, NeedsTwoInterfaces) {
  const TempDir directory;
  ScenarioFiller filler("test", Scenario::FromText("test", "fwdif: [{if_index: 1, enable: 1}, {if_index: 2}]",
                                                   Layout::BuiltIn()));
  Engine engine({directory.File("arena"), directory.File("socket")}, Layout::BuiltIn(), &filler);
  Pipeline pipeline(&engine, {});
  try {
    Traffic traffic(&engine, 1000, &pipeline);
    FAIL() << "accepted";
  } catch (const HostError &error) {
    EXPECT_STREQ(
        error.what(),
        "--traffic needs two forwarding interfaces; add entries to the scenario's fwdif, with enable: 1");
  }
}

}  // namespace
}  // namespace qdt::host
