#include "host/metrics/exporter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "host/arena/arena_layout.h"
#include "host/regions/statistics.h"
#include "qdt/stats.h"
#include "tests/inspect/lab_arena.h"

namespace qdt::host {
namespace {

using Lines = std::vector<std::string>;

// No second look at an arena while a test runs.
constexpr Surveyor::Pace kOnce{std::chrono::hours(1), 20};

class ExporterTest : public testing::Test {
 protected:
  ExporterTest() : path_(testing::TempDir() + "qdt_metrics_" + std::to_string(getpid())) {}
  ~ExporterTest() override { unlink(path_.c_str()); }

  // An engine of two cores.
  std::unique_ptr<LabArena> Engine(const std::string &scenario,
                                   const std::function<void(ArenaPlan *)> &change = {}) {
    return std::make_unique<LabArena>(path_, scenario, [&](ArenaPlan *plan) {
      plan->regions.push_back(StatisticsSpec(2));
      if (change) change(plan);
    });
  }

  std::unique_ptr<MetricsExporter> Exporter(Surveyor::Pace pace = kOnce) const {
    return std::make_unique<MetricsExporter>(std::vector<MetricsTarget>{{"ap7", path_, false}},
                                             Layout::BuiltIn(), ReadGuard(), pace);
  }

  // Asks until the first look at the arena has come to its end.
  static std::string WithSurvey(const MetricsExporter &exporter) {
    std::string text;
    do {
      std::this_thread::yield();
      text = exporter.Probe("ap7").value();
    } while (text.find("nqe_survey_time_seconds") == std::string::npos);
    return text;
  }

  // The series whose names begin with `prefix`, a line each; with help and type too when `whole`.
  static Lines Series(const std::string &text, std::string_view prefix, bool whole = false) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      std::string_view name = line;
      if (line.starts_with("# ")) {
        if (!whole) continue;
        name.remove_prefix(7);  // "# HELP "
      }
      if (name.starts_with(prefix)) lines.push_back(line);
    }
    return lines;
  }

  const std::string path_;
  const std::vector<MetricsTarget> targets_{{"ap7", path_, false}, {"ap8", path_ + ".second", false}};
};

TEST_F(ExporterTest, WhatTheLayoutSaysOfCounters) {
  const auto engine = Engine(R"(
fwdif:
  - if_index: 12
    counters: [{in_bytes: 5000000000, in_packets: 4}, {in_bytes: 1}, {in_bytes: 0}, {out_broadcast: 3, in_packets: 2}]
  - {if_index: 13}
cpcar_pro:
  - {protocol: 0, wireless: 1, pass_packets: 70, drop_packets: 4294967295}
  - {protocol: 200, wireless: 0, drop_packets: 5}
cause: [{cp_cause_id: 17, packets: 9}]
buf_cache_stat: [{index: 0, capwap_over_max: 2}]
)");
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(
      Series(text, "nqe_fwdif", true),
      (Lines{
          "# HELP nqe_fwdif_in_bytes_total Forwarding interfaces, that is ports, VAPs, VLAN interfaces, "
          "trunks "
          "and tunnels: bytes received",
          "# TYPE nqe_fwdif_in_bytes_total counter",
          "nqe_fwdif_in_bytes_total{if_index=\"12\"} 5000000001",
          "# HELP nqe_fwdif_in_packets_total Forwarding interfaces, that is ports, VAPs, VLAN interfaces, "
          "trunks and tunnels: packets received",
          "# TYPE nqe_fwdif_in_packets_total counter",
          "nqe_fwdif_in_packets_total{if_index=\"12\"} 6",
          "# HELP nqe_fwdif_out_broadcast_packets_total Forwarding interfaces, that is ports, VAPs, VLAN "
          "interfaces, trunks and tunnels: broadcasts sent",
          "# TYPE nqe_fwdif_out_broadcast_packets_total counter",
          "nqe_fwdif_out_broadcast_packets_total{if_index=\"12\"} 3",
      }));
  EXPECT_EQ(Series(text, "nqe_cpcar_pro"),
            (Lines{"nqe_cpcar_pro_pass_packets_total{protocol=\"arp-request\",wireless=\"1\"} 70",
                   "nqe_cpcar_pro_drop_packets_total{protocol=\"arp-request\",wireless=\"1\"} 4294967295",
                   "nqe_cpcar_pro_drop_packets_total{protocol=\"200\",wireless=\"0\"} 5"}));
  EXPECT_EQ(Series(text, "nqe_cause"), (Lines{"nqe_cause_packets_total{cp_cause_id=\"17\"} 9"}));
  EXPECT_EQ(Series(text, "nqe_buf_cache_stat"), (Lines{"nqe_buf_cache_stat_capwap_over_max_total 2"}));
}

TEST_F(ExporterTest, Statistics) {
  const auto engine = Engine("fwdif: []");
  Statistics statistics(*engine->arena());
  statistics.Add(0, 2, 7);               // a normal event
  statistics.Add(0, QDT_STAT_ERROR, 1);  // a failure
  statistics.Add(0, 460, 10);            // a discard, on both cores
  statistics.Add(1, 460, 5);
  statistics.Add(0, 308, 2);                 // a reason without a name
  statistics.Add(1, 480, 4000000000);        // received
  statistics.Add(1, 544, 3);                 // sent
  statistics.Add(0, QDT_STAT_CAR + 12, 31);  // a rate limit
  statistics.Add(0, QDT_STAT_CAR + 253, 1);  // of a protocol without a name
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(Series(text, "nqe_cores"), Lines{"nqe_cores 2"});
  EXPECT_EQ(Series(text, "nqe_events"), Lines{"nqe_events_total{event=\"mac aging msg punt\"} 7"});
  EXPECT_EQ(Series(text, "nqe_failures").size(), 1u);
  EXPECT_EQ(Series(text, "nqe_discarded"),
            (Lines{"nqe_discarded_packets_by_reason_total{reason=\"308\"} 2",
                   "nqe_discarded_packets_by_reason_total{reason=\"host if isolate\"} 15",
                   "nqe_discarded_packets_total 17"}));
  EXPECT_EQ(Series(text, "nqe_received"),
            Lines{"nqe_received_packets_by_class_total{class=\"TCP packets received\"} 4000000000"});
  EXPECT_EQ(Series(text, "nqe_sent"),
            Lines{"nqe_sent_packets_by_class_total{class=\"TCP packets transmitted\"} 3"});
  EXPECT_EQ(Series(text, "nqe_refused"), (Lines{"nqe_refused_packets_by_protocol_total{protocol=\"dns\"} 31",
                                                "nqe_refused_packets_by_protocol_total{protocol=\"830\"} 1",
                                                "nqe_refused_packets_total 32"}));
}

// Whoever reads the sums sees the first packet as well.
TEST_F(ExporterTest, SumsAreThereBeforeAnythingIsCounted) {
  const auto engine = Engine("fwdif: []");
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(Series(text, "nqe_discarded"), Lines{"nqe_discarded_packets_total 0"});
  EXPECT_EQ(Series(text, "nqe_refused"), Lines{"nqe_refused_packets_total 0"});
  EXPECT_EQ(Series(text, "nqe_fwdif", true), Lines{});
}

// All counters at once: no name and labels stand twice, also of the two reasons that share a name.
TEST_F(ExporterTest, NoSeriesTwice) {
  const auto engine = Engine("fwdif: [{if_index: 1}]");
  Statistics statistics(*engine->arena());
  for (uint32_t number = 0; number < QDT_STAT_COUNTERS; ++number) statistics.Add(0, number, 1);
  const std::string text = WithSurvey(*Exporter());
  std::set<std::string> names;
  for (const std::string &line : Series(text, "nqe_"))
    EXPECT_TRUE(names.insert(line.substr(0, line.rfind(' '))).second) << line;
  EXPECT_EQ(Series(text, "nqe_discarded_packets_by_reason_total").size(), 273u);
  EXPECT_EQ(
      Series(text, "nqe_discarded_packets_by_reason_total{reason=\"IPv6 fragment packets hashlist"),
      Lines{"nqe_discarded_packets_by_reason_total{reason=\"IPv6 fragment packets hashlist find fail\"} 2"});
  EXPECT_EQ(Series(text, "nqe_discarded_packets_total"), Lines{"nqe_discarded_packets_total 274"});
  std::set<std::string> families;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const bool isNew = !line.starts_with("# TYPE ") || families.insert(line).second;
    EXPECT_TRUE(isNew) << line;
  }
}

TEST_F(ExporterTest, Identity) {
  const auto engine = Engine("arp: [{vpn: 0, next_hop: 192.0.2.1}, {vpn: 0, next_hop: 192.0.2.2}]");
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(text.find("# HELP nqe_up "), 0u);
  EXPECT_EQ(Series(text, "nqe_up"), Lines{"nqe_up 1"});
  EXPECT_EQ(Series(text, "nqe_info"),
            Lines{"nqe_info{version=\"1.0.0\",arena_version=\"6\",source=\"engine\"} 1"});
  const Lines start = Series(text, "nqe_start_time_seconds");
  ASSERT_EQ(start.size(), 1u);
  const double age = static_cast<double>(time(nullptr)) - std::stod(start[0].substr(start[0].find(' ')));
  EXPECT_LT(std::abs(age), 600);
  EXPECT_EQ(Series(text, "nqe_snapshot_time_seconds"), Lines{});
  EXPECT_EQ(Series(text, "nqe_table_entries{table=\"arp\"}"), Lines{"nqe_table_entries{table=\"arp\"} 2"});
  EXPECT_EQ(Series(text, "nqe_table_entries{table=\"nhp\"}"), Lines{"nqe_table_entries{table=\"nhp\"} 0"});
  EXPECT_EQ(Series(text, "nqe_table_capacity{table=\"session\"}"),
            Lines{"nqe_table_capacity{table=\"session\"} 65536"});
  EXPECT_EQ(Series(text, "nqe_unreadable"), Lines{"nqe_unreadable_tables 0"});
  EXPECT_EQ(Series(text, "nqe_series_cut"), Lines{"nqe_series_cut 0"});
  // nqe_up and itself are the two that it does not count.
  EXPECT_EQ(Series(text, "nqe_series "),
            Lines{"nqe_series " + std::to_string(Series(text, "nqe_").size() - 2)});
}

TEST_F(ExporterTest, FindingsAndSessions) {
  const auto engine = Engine(R"(
nhp: [{index: 1}, {index: 2}]
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {stale: {index: 1}}}}
  - {prefix: 25, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {stale: {index: 1}}}}
  - {prefix: 26, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {index: 2}}}
portip_head: [{fwd_if_index: 8, list_id: 2}]
session:
  - {index: 1, valid: 1, positive: {protocol: 6}}
  - {index: 2, valid: 1, positive: {protocol: 17}}
  - {index: 3, valid: 1, positive: {protocol: 1}}
  - {index: 4, valid: 1}
  - {index: 5, valid: 0, positive: {protocol: 6}}
  - {index: 6, valid: 1, is_ipv6: 1, positive6: {protocol: 58}}
  - {index: 7, valid: 1, is_ipv6: 1, positive6: {protocol: 6}}
)");
  const auto exporter = Exporter();
  const std::string text = WithSurvey(*exporter);
  EXPECT_EQ(Series(text, "nqe_stale"), Lines{"nqe_stale_bindings{table=\"fib\"} 2"});
  EXPECT_EQ(Series(text, "nqe_findings"),
            (Lines{"nqe_findings{severity=\"error\"} 3", "nqe_findings{severity=\"warning\"} 1"}));
  EXPECT_EQ(Series(text, "nqe_sessions"), (Lines{"nqe_sessions{family=\"ipv4\",protocol=\"tcp\"} 1",
                                                 "nqe_sessions{family=\"ipv4\",protocol=\"udp\"} 1",
                                                 "nqe_sessions{family=\"ipv4\",protocol=\"icmp\"} 1",
                                                 "nqe_sessions{family=\"ipv4\",protocol=\"other\"} 1",
                                                 "nqe_sessions{family=\"ipv6\",protocol=\"tcp\"} 1",
                                                 "nqe_sessions{family=\"ipv6\",protocol=\"udp\"} 0",
                                                 "nqe_sessions{family=\"ipv6\",protocol=\"icmp\"} 1",
                                                 "nqe_sessions{family=\"ipv6\",protocol=\"other\"} 0"}));
}

// What was found in an engine says nothing about the one that has taken its place.
TEST_F(ExporterTest, FindingsOfAnEarlierEngine) {
  auto engine = Engine("fwdif: []");
  const auto exporter = Exporter();
  EXPECT_EQ(Series(WithSurvey(*exporter), "nqe_findings").size(), 2u);
  engine.reset();
  engine = Engine("fwdif: []");
  const std::string text = exporter->Probe("ap7").value();
  EXPECT_EQ(Series(text, "nqe_up"), Lines{"nqe_up 1"});
  EXPECT_EQ(Series(text, "nqe_findings"), Lines{});
  // And who is new does not have to wait for his turn.
  EXPECT_EQ(Series(WithSurvey(*exporter), "nqe_findings").size(), 2u);
}

// Nobody looks where nobody asks: of two targets the one that was not asked for has no findings after the
// other's.
TEST_F(ExporterTest, LooksAreAskedFor) {
  const auto engine = Engine("fwdif: []");
  const LabArena second(path_ + ".second", "fwdif: []");
  Surveyor surveyor(targets_, Layout::BuiltIn(), {std::chrono::milliseconds(1), 1});
  const uint64_t first = engine->arena()->header()->identity;
  EXPECT_FALSE(surveyor.Last(0, first).has_value());
  double seen = 0;
  for (int looks = 0; looks < 3;) {
    const std::optional<Survey> survey = surveyor.Last(0, first);
    if (survey && survey->finished > seen) {
      seen = survey->finished;
      ++looks;
    }
    std::this_thread::yield();
  }
  EXPECT_FALSE(surveyor.Last(1, second.arena()->header()->identity).has_value());
}

TEST_F(ExporterTest, MoreLooksFollow) {
  const auto engine = Engine("fwdif: []");
  const auto exporter = Exporter({std::chrono::milliseconds(1), 1});
  const Lines first = Series(WithSurvey(*exporter), "nqe_survey_time_seconds");
  while (Series(WithSurvey(*exporter), "nqe_survey_time_seconds") == first) std::this_thread::yield();
}

TEST_F(ExporterTest, MoreEntriesThanSeries) {
  const auto engine = Engine(R"(
fwdif:
  - {repeat: 300, if_index: {from: 1, step: 1}, counters: [{in_bytes: 1, in_packets: 1, in_unicast: 1, in_multicast: 1,
     in_broadcast: 1, out_bytes: 1, out_packets: 1, out_unicast: 1, out_multicast: 1, out_broadcast: 1}]}
cpcar_pro: [{repeat: 256, protocol: {from: 0, step: 1}, wireless: 0, pass_packets: 1, drop_packets: 1}]
cause: [{repeat: 257, cp_cause_id: {from: 0, step: 1}, packets: 1}]
)");
  Statistics statistics(*engine->arena());
  for (uint32_t number = 0; number < QDT_STAT_COUNTERS; ++number) statistics.Add(0, number, 1);
  const auto exporter = Exporter();
  const std::string text = WithSurvey(*exporter);
  EXPECT_EQ(Series(text, "nqe_fwdif").size(), 2560u);
  EXPECT_EQ(Series(text, "nqe_fwdif_in_bytes_total{if_index=\"256\"}").size(), 1u);
  EXPECT_EQ(Series(text, "nqe_fwdif_in_bytes_total{if_index=\"257\"}").size(), 0u);
  EXPECT_EQ(Series(text, "nqe_cpcar_pro").size(), 512u);
  EXPECT_EQ(Series(text, "nqe_cause").size(), 256u);
  // 44 interfaces of 10 counters and one cause.
  EXPECT_EQ(Series(text, "nqe_series_cut"), Lines{"nqe_series_cut 441"});
  EXPECT_LE(Series(text, "nqe_").size(), exporter->MaxSeries());
  EXPECT_EQ(exporter->MaxSeries(), 4514u);  // docs/metrics.md
}

TEST_F(ExporterTest, WhatCannotBeRead) {
  const auto exporter = Exporter();
  const std::string gone =
      "# HELP nqe_up Whether the arena can be read, 0 when the engine is gone, damaged or of "
      "another version\n# TYPE nqe_up gauge\nnqe_up 0\n";
  EXPECT_EQ(exporter->Probe("ap7"), gone);
  std::ofstream(path_) << "no arena";
  EXPECT_EQ(exporter->Probe("ap7"), gone);
  unlink(path_.c_str());
  auto engine = Engine("fwdif: []");
  EXPECT_EQ(Series(*exporter->Probe("ap7"), "nqe_up"), Lines{"nqe_up 1"});
  const uint32_t version = engine->arena()->header()->version;
  engine->arena()->header()->version = version + 1;
  EXPECT_EQ(exporter->Probe("ap7"), gone);
  engine->arena()->header()->version = version;
  engine->arena()->header()->startTime += 1;  // so that the header's sum does not fit
  EXPECT_EQ(exporter->Probe("ap7"), gone);
  engine->arena()->header()->startTime -= 1;
  EXPECT_EQ(Series(*exporter->Probe("ap7"), "nqe_up"), Lines{"nqe_up 1"});
  engine.reset();
  EXPECT_EQ(exporter->Probe("ap7"), gone);
  engine = Engine("fwdif: []");
  EXPECT_EQ(Series(*exporter->Probe("ap7"), "nqe_up"), Lines{"nqe_up 1"});
}

// Labels are numbers of the device's own parts, never addresses or texts of the traffic.
TEST(CountedTablesTest, KeysAreNumbers) {
  for (const CountedTable &row : kCountedTables) {
    const TableLayout *table = TableCounters::TableOf(Layout::BuiltIn(), row);
    ASSERT_NE(table, nullptr) << row.table;
    for (const Field &field : table->key.all()) {
      EXPECT_EQ(field.ref.kind, FieldKind::kUnsigned) << row.table << ' ' << field.name;
      EXPECT_NE(field.leadsTo, "usf_user") << row.table << ' ' << field.name;
    }
    EXPECT_EQ(row.named.empty(), row.nameOf == nullptr);
    EXPECT_TRUE(row.named.empty() || table->key.Find(row.named) != nullptr) << row.named;
  }
}

// A file that loses bytes while it is read is told by who takes care of it; what was read so far is not
// shown.
TEST_F(ExporterTest, BytesThatAreLost) {
  const auto engine = Engine("fwdif: []");
  std::atomic<bool> isLost = false;
  const ReadGuard guard = [&](const std::function<void()> &read) {
    read();
    return !isLost;
  };
  const MetricsExporter exporter({{"ap7", path_, false}}, Layout::BuiltIn(), guard, kOnce);
  EXPECT_EQ(Series(*exporter.Probe("ap7"), "nqe_up"), Lines{"nqe_up 1"});
  isLost = true;
  EXPECT_EQ(Series(*exporter.Probe("ap7"), ""), Lines{"nqe_up 0"});
  EXPECT_EQ(Series(exporter.Metrics(), ""), (Lines{"nqe_exporter_info{version=\"1.0.0\"} 1", "nqe_up 0"}));
}

// Names are names: nothing of a request is ever a path.
TEST_F(ExporterTest, OnlyNamesOfTargets) {
  const auto engine = Engine("fwdif: []");
  const auto exporter = Exporter();
  for (const std::string &name : {path_, std::string(), std::string("ap"), std::string("ap77"), "./" + path_,
                                  std::string("ap7\0", 4), std::string("AP7")})
    EXPECT_EQ(exporter->Probe(name), std::nullopt) << name;
}

TEST_F(ExporterTest, TheExporterItself) {
  const auto engine = Engine("fwdif: []");
  const std::string one = Exporter()->Metrics();
  EXPECT_EQ(Series(one, "nqe_exporter_info"), Lines{"nqe_exporter_info{version=\"1.0.0\"} 1"});
  EXPECT_EQ(Series(one, "nqe_up"), Lines{"nqe_up 1"});
  EXPECT_EQ(Series(one, "nqe_start_time_seconds").size(), 1u);

  const MetricsExporter many({{"ap7", path_, false}, {"ap8", path_ + ".gone", false}}, Layout::BuiltIn(), {},
                             kOnce);
  EXPECT_EQ(Series(many.Metrics(), ""), (Lines{"nqe_exporter_info{version=\"1.0.0\"} 1",
                                               "nqe_up{target=\"ap7\"} 1", "nqe_up{target=\"ap8\"} 0"}));
  EXPECT_EQ(Series(*many.Probe("ap8"), ""), Lines{"nqe_up 0"});
  EXPECT_EQ(Series(*many.Probe("ap7"), "nqe_up"), Lines{"nqe_up 1"});
}

TEST_F(ExporterTest, Snapshots) {
  const std::string file = path_ + ".copy";
  {
    const auto engine = Engine("cause: [{cp_cause_id: 17, packets: 9}]");
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    engine->arena()->CopyTo(fd);
    Arena::StampCopy(fd);
    close(fd);
  }
  const MetricsExporter exporter({{"ap7", file, true}}, Layout::BuiltIn(), {}, kOnce);
  const std::string text = WithSurvey(exporter);
  unlink(file.c_str());
  EXPECT_EQ(Series(text, "nqe_info"),
            Lines{"nqe_info{version=\"1.0.0\",arena_version=\"6\",source=\"snapshot\"} 1"});
  EXPECT_EQ(Series(text, "nqe_snapshot_time_seconds").size(), 1u);
  EXPECT_EQ(Series(text, "nqe_cause"), Lines{"nqe_cause_packets_total{cp_cause_id=\"17\"} 9"});
}

// A table that was made with another layout is missing; the rest goes on.
TEST_F(ExporterTest, AnotherLayout) {
  const uint32_t cause = Layout::BuiltIn().FindTable("cause")->spec.id;
  const auto engine = Engine("cpcar_pro: [{protocol: 0, wireless: 1, pass_packets: 70}]",
                             [&](ArenaPlan *plan) { plan->tables[cause].recordSize += 8; });
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(Series(text, "nqe_up"), Lines{"nqe_up 1"});
  EXPECT_EQ(Series(text, "nqe_unreadable"), Lines{"nqe_unreadable_tables 1"});
  EXPECT_EQ(Series(text, "nqe_table_entries{table=\"cause\"}"), Lines{});
  EXPECT_EQ(Series(text, "nqe_cpcar_pro").size(), 1u);
}

// An engine without statistics has none.
TEST_F(ExporterTest, NoStatistics) {
  const LabArena engine(path_, "fwdif: []");
  const std::string text = Exporter()->Probe("ap7").value();
  EXPECT_EQ(Series(text, "nqe_up"), Lines{"nqe_up 1"});
  EXPECT_EQ(Series(text, "nqe_discarded"), Lines{});
}

}  // namespace
}  // namespace qdt::host
