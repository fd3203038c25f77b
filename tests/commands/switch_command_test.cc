#include <gtest/gtest.h>

#include "host/commands/commands.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "host/regions/statistics.h"
#include "platform/tbm.h"
#include "qdt/stats.h"
#include "tests/host/temp_dir.h"

// The engine commands behind the management agent's switches: egn, perf-mode, trace-pkt-nqe, nat, server-map.
namespace qdt::host {
namespace {

constexpr uint32_t kAnyCore = 1;

class SwitchCommandTest : public testing::Test {
 protected:
  static constexpr char kScenario[] = R"(
sac_app_mapping:
  - {app_id: 1001, app_index: 1, class_id: 1, app_name: video-call}
  - {app_id: 1002, app_index: 2, class_id: 1, app_name: screen-share}
sac_protocol_mapping:
  - {protocol_id: 27, app_id: 1001, class_id: 1}
session:
  - {index: 1, valid: 1, aging_time: 65535, positive: {source: 192.0.2.1, destination: 192.0.2.2}, sac: {app_id: 1001}}
  - {index: 2, valid: 1, aging_time: 65535, positive: {source: 192.0.2.3, destination: 192.0.2.4}}
  - {index: 3, valid: 0, aging_time: 65535, positive: {source: 192.0.2.5, destination: 192.0.2.6}, sac: {app_id: 1002}}
server_map:
  - {source: 192.0.2.1, destination: 0.0.0.0, source_port: 1, destination_port: 0, vrf: 0, protocol: 6, type: 2, aging_time: 0xffffffff}
  - {source: 0.0.0.0, destination: 192.0.2.1, source_port: 2, destination_port: 0, vrf: 0, protocol: 6, type: 15, aging_time: 0xffffffff}
  - {source: 192.0.2.1, destination: 0.0.0.0, source_port: 3, destination_port: 0, vrf: 0, protocol: 6, type: 0, aging_time: 0xffffffff}
  - {source: 192.0.2.9, destination: 0.0.0.0, source_port: 4, destination_port: 0, vrf: 0, protocol: 6, type: 2, aging_time: 0xffffffff}
  - {source: 192.0.2.10, destination: 0.0.0.0, source_port: 5, destination_port: 0, vrf: 0, protocol: 6, type: 16, aging_time: 60, aspf: {second: 192.0.2.77}}
  - {source: 192.0.2.10, destination: 0.0.0.0, source_port: 6, destination_port: 0, vrf: 0, protocol: 6, type: 15, aging_time: 60, no_pat: {first: 192.0.2.77}}
nat_policy:
  - {name: stay, action: no-nat, address_group: 2, hits: 12}
  - {name: guests, action: source-nat, address_group: 0x2, hits: 18446744073709551000}
  - {name: staff, action: source-nat, address_group: 1, hits: 5}
  - {name: late, action: source-nat, address_group: 2, hits: 600}
  - {name: plain, action: source-nat}
)";

  // The answer; "refused: LINE" for a line that the engine refuses.
  std::string Run(const std::string &line) {
    try {
      const EngineReply reply = RunCommandLine(engine_, line);
      EXPECT_EQ(reply.status, 0) << line;
      return reply.text;
    } catch (const HostError &error) {
      return std::string("refused: ") + error.what();
    }
  }

  TempDir directory_;
  ScenarioFiller filler_{"test", Scenario::FromText("test", kScenario, Layout::BuiltIn())};
  Engine engine_{{directory_.File("arena"), directory_.File("socket")}, Layout::BuiltIn(), &filler_};
};

TEST_F(SwitchCommandTest, EgnStatus) {
  EXPECT_EQ(Run("egn display status"),
            "  Debug error      :  off\n"
            "  Debug warning    :  off\n"
            "  Debug info       :  off\n"
            "  Debug packet     :  off\n"
            "  Statistic        :  off\n"
            "  DetectThreshold  :  10\n");
  EXPECT_EQ(Run("egn debugging debug-level warning on"), "debug-level warning is on\n");
  EXPECT_EQ(Run("egn debugging debug-level packet enable"), "debug-level packet is on\n");
  EXPECT_EQ(Run("egn debugging debug-level error on"), "debug-level error is on\n");
  EXPECT_EQ(Run("egn debugging debug-level error disable"), "debug-level error is off\n");
  EXPECT_EQ(Run("egn debugging statistic enable"), "statistic is on\n");
  EXPECT_EQ(Run("egn debugging detect-threshold 4294967295"), "detect-threshold is 4294967295\n");
  EXPECT_EQ(Run("egn display status"),
            "  Debug error      :  off\n"
            "  Debug warning    :  on\n"
            "  Debug info       :  off\n"
            "  Debug packet     :  on\n"
            "  Statistic        :  on\n"
            "  DetectThreshold  :  4294967295\n");
}

TEST_F(SwitchCommandTest, EgnKnowsTheTables) {
  EXPECT_EQ(Run("egn display application"),
            "  Applications     :  2\n"
            "  Protocols        :  1\n");
  EXPECT_EQ(Run("egn display statistic"),
            "  Sessions         :  2\n"
            "  Identified       :  1\n"
            "  DeniedPackets    :  0\n"
            "  LimitedPackets   :  0\n");
}

TEST_F(SwitchCommandTest, EgnCountsWhileStatisticsAreOn) {
  Statistics statistics(engine_.arena());
  const auto discard = [&](uint64_t denied, uint64_t limited) {
    statistics.Add(kAnyCore, 447, denied);  // "Sac policy action deny"
    statistics.Add(0, 448, limited);        // "Sac policy action car not permit"
    statistics.Add(0, 446, 1);
    statistics.Add(0, 449, 1);
  };
  const auto packets = [this](const std::string &denied, const std::string &limited) {
    EXPECT_EQ(Run("egn display statistic"),
              "  Sessions         :  2\n"
              "  Identified       :  1\n"
              "  DeniedPackets    :  " +
                  denied + "\n" + "  LimitedPackets   :  " + limited + "\n");
  };
  discard(1000, 2000);
  packets("0", "0");
  Run("egn debugging statistic on");
  packets("0", "0");
  discard(3, 40);
  packets("3", "40");
  Run("egn debugging statistic on");  // is on already
  packets("3", "40");
  Run("egn debugging statistic off");
  discard(500, 600);
  packets("3", "40");
  Run("egn debugging statistic on");
  discard(4, 2);
  packets("7", "42");
  EXPECT_EQ(Run("egn reset statistic"), "statistic is reset\n");
  packets("0", "0");
  discard(1, 0);
  packets("1", "0");
  EXPECT_EQ(Run("egn reset all"), "statistic is reset\n");
  packets("0", "0");
}

TEST_F(SwitchCommandTest, EgnHelp) {
  EXPECT_EQ(Run("egn help"),
            "  egn display status|application|statistic\n"
            "  egn debugging debug-level error|warning|info|packet on|off\n"
            "  egn debugging statistic on|off\n"
            "  egn debugging detect-threshold PACKETS\n"
            "  egn reset statistic|all\n"
            "  egn help\n");
}

struct Refusal {
  const char *line, *answer;
};

TEST_F(SwitchCommandTest, Refusals) {
  const Refusal refusals[] = {
      {"egn", "egn what? The engine knows: display, debugging, reset, help"},
      {"egn Display", "egn what? The engine knows: display, debugging, reset, help, not \"Display\""},
      {"egn display", "egn display what? The engine knows: status, application, statistic"},
      {"egn display all", "egn display what? The engine knows: status, application, statistic, not \"all\""},
      {"egn display status now", "too many words; \"egn help\" lists the commands"},
      {"egn debugging", "egn debugging what? The engine knows: debug-level, statistic, detect-threshold"},
      {"egn debugging debug-level",
       "egn debugging debug-level what? The engine knows: error, warning, info, packet"},
      {"egn debugging debug-level error",
       "egn debugging debug-level error what? The engine knows: on, off, enable, disable"},
      {"egn debugging debug-level error 1",
       "egn debugging debug-level error what? The engine knows: on, off, enable, disable, not \"1\""},
      {"egn debugging debug-level error on on", "too many words; \"egn help\" lists the commands"},
      {"egn debugging statistic", "egn debugging statistic what? The engine knows: on, off, enable, disable"},
      {"egn debugging detect-threshold",
       "egn debugging detect-threshold: \"\" is not a number (decimal or 0x...)"},
      {"egn debugging detect-threshold 4294967296",
       "egn debugging detect-threshold: 4294967296 does not fit 32 bits (0 to 4294967295)"},
      {"egn debugging detect-threshold -1",
       "egn debugging detect-threshold: -1 does not fit 32 bits (0 to 4294967295)"},
      {"egn reset", "egn reset what? The engine knows: statistic, all"},
      {"perf-mode fast", "perf-mode what? The engine knows: on, off, enable, disable, not \"fast\""},
      {"perf-mode on off", "too many words (perf-mode [on|off])"},
      {"trace-pkt-nqe show", "trace-pkt-nqe what? The engine knows: set, display, not \"show\""},
      {"trace-pkt-nqe display", "trace-pkt-nqe display what? The engine knows: index"},
      {"trace-pkt-nqe display index", "trace-pkt-nqe display index what? The engine knows: 0, 1, 2, 3"},
      {"trace-pkt-nqe display index 4",
       "trace-pkt-nqe display index what? The engine knows: 0, 1, 2, 3, not \"4\""},
      {"trace-pkt-nqe display index 0 1", "too many words (trace-pkt-nqe display index 0|1|2|3)"},
      {"trace-pkt-nqe set enable=1", "trace-pkt-nqe set: \"enable=1\" is no option (--NAME=VALUE)"},
      {"trace-pkt-nqe set --enable", "trace-pkt-nqe set: \"--enable\" is no option (--NAME=VALUE)"},
      {"trace-pkt-nqe set --colour=1",
       "trace-pkt-nqe set: unknown option \"--colour\"; \"trace-pkt-nqe\" lists them"},
      {"trace-pkt-nqe set --index=4",
       "trace-pkt-nqe set --index what? The engine knows: 0, 1, 2, 3, not \"4\""},
      {"trace-pkt-nqe set --source-port=65536",
       "trace-pkt-nqe set: --source-port: 65536 does not fit 16 bits (0 to 65535)"},
      {"trace-pkt-nqe set --source-ip=fe80::1",
       "trace-pkt-nqe set: --source-ip: \"fe80::1\" is not an IPv4 address (such as 192.0.2.1)"},
      {"nat",
       "nat what? The engine knows: query-nat-policy, query-nat-address-group-usage, "
       "export-nat-policy"},
      {"nat export-nat-policy all", "too many words (nat export-nat-policy)"},
      {"nat query-nat-policy name staff",
       "nat query-nat-policy what? The engine answers: nat query-nat-policy ruleName NAME"},
      {"nat query-nat-policy ruleName nobody", "the NAT policy has no rule \"nobody\""},
      {"nat query-nat-address-group-usage 2",
       "nat query-nat-address-group-usage what? A group is named: id NUMBER"},
      {"nat query-nat-address-group-usage id x",
       "nat query-nat-address-group-usage id: \"x\" is not a number (decimal or 0x...)"},
      {"server-map", "server-map what? The engine knows: server-map reset-server-map ip ADDRESS"},
      {"server-map reset-server-map ip",
       "server-map what? The engine knows: server-map reset-server-map ip ADDRESS"},
      {"server-map reset-server-map ip 1.2.3",
       "server-map reset-server-map ip: \"1.2.3\" is not an IPv4 address (such as 192.0.2.1)"},
  };
  for (const Refusal &refusal : refusals)
    EXPECT_EQ(Run(refusal.line), std::string("refused: ") + refusal.answer);
  uint32_t serverMaps = 0;
  EXPECT_EQ(TbmTblEntryNum(0, kServerMapTable, &serverMaps), 0);
  EXPECT_EQ(serverMaps, 6u);
}

TEST_F(SwitchCommandTest, PerformanceMode) {
  EXPECT_EQ(Run("perf-mode"), "performance mode is off\n");
  EXPECT_EQ(Run("perf-mode enable"), "performance mode is on\n");
  EXPECT_EQ(Run("perf-mode"), "performance mode is on\n");
  EXPECT_EQ(Run("perf-mode off"), "performance mode is off\n");
  EXPECT_EQ(Run("perf-mode"), "performance mode is off\n");
}

constexpr char kNoTrace[] =
    "  Enable           :  0\n"
    "  DestinationIp    :  any\n"
    "  SourceIp         :  any\n"
    "  DestinationMac   :  any\n"
    "  SourceMac        :  any\n"
    "  DestinationPort  :  any\n"
    "  SourcePort       :  any\n"
    "  EthType          :  any\n"
    "  Protocol         :  any\n"
    "  TimeOut          :  300\n";

TEST_F(SwitchCommandTest, TracesAreKeptByIndex) {
  for (const std::string index : {"0", "1", "2", "3"})
    EXPECT_EQ(Run("trace-pkt-nqe display index " + index),
              "  Index            :  " + index + "\n" + kNoTrace);
  EXPECT_EQ(Run("trace-pkt-nqe set --destination-ip=10.0.0.1 --source-ip=10.0.0.2 "
                "--destination-mac=00:e0:fc:12:34:56 "
                "--source-mac=00:e0:fc:12:34:57 --destination-port=443 --source-port=50000 --eth-type=0800 "
                "--protocol=6 --time-out=60 --enable=1 --index=2 "),
            "trace 2 is set\n");
  EXPECT_EQ(Run("trace-pkt-nqe display index 2"),
            "  Index            :  2\n"
            "  Enable           :  1\n"
            "  DestinationIp    :  10.0.0.1\n"
            "  SourceIp         :  10.0.0.2\n"
            "  DestinationMac   :  00:e0:fc:12:34:56\n"
            "  SourceMac        :  00:e0:fc:12:34:57\n"
            "  DestinationPort  :  443\n"
            "  SourcePort       :  50000\n"
            "  EthType          :  0800\n"
            "  Protocol         :  6\n"
            "  TimeOut          :  60\n");
  for (const std::string index : {"0", "1", "3"})
    EXPECT_EQ(Run("trace-pkt-nqe display index " + index),
              "  Index            :  " + index + "\n" + kNoTrace);
}

TEST_F(SwitchCommandTest, ATraceIsSetAsAWhole) {
  Run("trace-pkt-nqe set --source-port=7 --enable=1 --index=1 ");
  EXPECT_EQ(Run("trace-pkt-nqe set --index=1"), "trace 1 is set\n");
  EXPECT_EQ(Run("trace-pkt-nqe display index 1"), std::string("  Index            :  1\n") + kNoTrace);
  Run("trace-pkt-nqe set --source-port=7 --enable=1 --index=1 ");
  Run("trace-pkt-nqe set --source-port=9 --protocol=x --index=1");  // a mistake changes nothing
  EXPECT_NE(Run("trace-pkt-nqe display index 1").find("  SourcePort       :  7\n"), std::string::npos);
  EXPECT_EQ(Run("trace-pkt-nqe set --enable=1 "), "trace 0 is set\n");  // without an index
  EXPECT_NE(Run("trace-pkt-nqe display index 0").find("  Enable           :  1\n"), std::string::npos);
}

TEST_F(SwitchCommandTest, ATraceEndsWithItsTime) {
  Run("trace-pkt-nqe set --time-out=0 --enable=1 --index=3");
  EXPECT_NE(Run("trace-pkt-nqe display index 3").find("  Enable           :  0\n"), std::string::npos);
  Run("trace-pkt-nqe set --time-out=4294967295 --enable=1 --index=3");
  EXPECT_NE(Run("trace-pkt-nqe display index 3").find("  Enable           :  1\n"), std::string::npos);
}

TEST_F(SwitchCommandTest, TraceHelp) {
  EXPECT_EQ(
      Run("trace-pkt-nqe"),
      "  trace-pkt-nqe set [--OPTION=VALUE ...]\n"
      "      --destination-ip --source-ip --destination-mac --source-mac --destination-port --source-port\n"
      "      --eth-type --protocol --time-out --enable --index\n"
      "  trace-pkt-nqe display index 0|1|2|3\n");
}

TEST_F(SwitchCommandTest, NatAddressGroups) {
  EXPECT_EQ(Run("nat query-nat-address-group-usage "),
            "  AddressGroup :  0\n"
            "  Rules        :  plain\n"
            "  Hits         :  0\n"
            "\n"
            "  AddressGroup :  1\n"
            "  Rules        :  staff\n"
            "  Hits         :  5\n"
            "\n"
            "  AddressGroup :  2\n"
            "  Rules        :  guests, late\n"
            "  Hits         :  18446744073709551600\n");
  EXPECT_EQ(Run("nat query-nat-address-group-usage id 1"),
            "  AddressGroup :  1\n"
            "  Rules        :  staff\n"
            "  Hits         :  5\n");
  EXPECT_EQ(Run("nat query-nat-address-group-usage id 9"),
            "no rule of the NAT policy takes addresses from group 9\n");
}

TEST_F(SwitchCommandTest, NatPolicyAsAScenarioHasIt) {
  const std::string policy = Run("nat export-nat-policy");
  EXPECT_EQ(policy,
            "{name: 'stay', action: 'no-nat', address_group: '2', hits: '12'}\n"
            "{name: 'guests', action: 'source-nat', address_group: '0x2', hits: '18446744073709551000'}\n"
            "{name: 'staff', action: 'source-nat', address_group: '1', hits: '5'}\n"
            "{name: 'late', action: 'source-nat', address_group: '2', hits: '600'}\n"
            "{name: 'plain', action: 'source-nat'}\n");
}

TEST_F(SwitchCommandTest, ServerMapsOfAnAddress) {
  const auto left = [] {
    uint32_t count = 0;
    EXPECT_EQ(TbmTblEntryNum(0, kServerMapTable, &count), 0);
    return count;
  };
  EXPECT_EQ(Run("server-map reset-server-map ip 192.0.2.200"), "server maps reset: 0\n");
  EXPECT_EQ(left(), 6u);
  EXPECT_EQ(Run("server-map reset-server-map ip 192.0.2.1"), "server maps reset: 2\n");
  EXPECT_EQ(left(), 4u);  // the NAT server's stays
  EXPECT_EQ(Run("server-map reset-server-map ip 192.0.2.9"), "server maps reset: 1\n");
  EXPECT_EQ(left(), 3u);
  EXPECT_EQ(Run("server-map reset-server-map ip 192.0.2.77"), "server maps reset: 2\n");  // translated to
  EXPECT_EQ(left(), 1u);
}

}  // namespace
}  // namespace qdt::host
