// What counters count a second.

#include "host/inspect/rates.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/record/record_rows.h"
#include "tests/host/temp_dir.h"
#include "tests/inspect/lab_arena.h"

namespace qdt::host {
namespace {

class RatesTest : public testing::Test {
 protected:
  static std::vector<std::string> Read(CounterRates *rates, double seconds) {
    std::vector<std::string> lines;
    rates->Read(seconds, [&](const Rate &rate) {
      std::string line(rate.table != nullptr ? rate.table->shortName : rate.region->spec.name);
      line += ' ';
      if (rate.table != nullptr) AppendNamedKey(*rate.table, rate.key, &line);
      lines.push_back(line + ' ' + std::string(rate.field) + ' ' + std::to_string(rate.perSecond));
    });
    return lines;
  }

  static const TableLayout &Table(std::string_view name) { return *Layout::BuiltIn().FindTable(name); }

  static void Set(const LabArena &lab, uint32_t index, std::string_view path, uint64_t value) {
    Table("fwdif").At(path).Set(lab.Record("fwdif", &index), value);
  }

  using Lines = std::vector<std::string>;
  TempDir dir_;
};

TEST_F(RatesTest, WhatHasRisenIsDividedByTheTime) {
  const LabArena lab(dir_.File("a"),
                     "fwdif: [{if_index: 5, counters: [{in_bytes: 1000}]}, {if_index: 6}, {if_index: 7}]\n");
  const auto source = lab.Source();
  const auto rates = MakeTableRates(*source, Table("fwdif"), {}, "");
  ASSERT_NE(rates, nullptr);
  EXPECT_EQ(Read(rates.get(), 0), Lines{});
  EXPECT_EQ(Read(rates.get(), 2), Lines{});
  Set(lab, 5, "counters[0].in_bytes", 4000);
  Set(lab, 5, "counters[3].out_packets", 1);
  Set(lab, 7, "counters[1].in_packets", uint64_t{1} << 40);
  Set(lab, 7, "mtu", 1500);  // counts nothing
  EXPECT_EQ(Read(rates.get(), 2), (Lines{"fwdif if_index=5 counters[0].in_bytes 1500.000000",
                                         "fwdif if_index=5 counters[3].out_packets 0.500000",
                                         "fwdif if_index=7 counters[1].in_packets 549755813888.000000"}));
  EXPECT_EQ(Read(rates.get(), 2), Lines{});
}

TEST_F(RatesTest, ClearedCountersAndNewEntriesBeginAnew) {
  const LabArena lab(dir_.File("a"), "fwdif: [{if_index: 5, counters: [{in_bytes: 1000}]}, {if_index: 6}]\n");
  const auto source = lab.Source();
  const auto rates = MakeTableRates(*source, Table("fwdif"), {}, "");
  Read(rates.get(), 0);
  Set(lab, 5, "counters[0].in_bytes", 10);
  EXPECT_EQ(Read(rates.get(), 1), Lines{});
  Set(lab, 5, "counters[0].in_bytes", 30);
  EXPECT_EQ(Read(rates.get(), 1), Lines{"fwdif if_index=5 counters[0].in_bytes 20.000000"});
  // Gone and there again under its key.
  const uint32_t table = Table("fwdif").spec.id;
  const uint32_t five = 5;
  const uint32_t six = 6;
  std::vector<uint8_t> record(Table("fwdif").spec.StoredSize());
  ASSERT_EQ(lab.writer()->Remove(table, &five), 0);
  Set(lab, 6, "counters[0].in_bytes", 7);
  EXPECT_EQ(Read(rates.get(), 1), Lines{"fwdif if_index=6 counters[0].in_bytes 7.000000"});
  Table("fwdif").At("counters[0].in_bytes").Set(record.data(), 5000);
  ASSERT_EQ(lab.writer()->Insert(table, &five, record.data(), nullptr), 0);
  EXPECT_EQ(Read(rates.get(), 1), Lines{});
  ASSERT_EQ(lab.writer()->Remove(table, &six), 0);
  Set(lab, 5, "counters[0].in_bytes", 5001);
  EXPECT_EQ(Read(rates.get(), 1), Lines{"fwdif if_index=5 counters[0].in_bytes 1.000000"});
}

TEST_F(RatesTest, OnlyWhatIsAskedFor) {
  const LabArena lab(dir_.File("a"), "fwdif: [{if_index: 5}, {if_index: 6}]\nnhp: [{index: 1}]\n");
  const auto source = lab.Source();
  std::vector<Condition> where;
  where.emplace_back(Table("fwdif"), "if_index=6");
  const auto rates =
      MakeTableRates(*source, Table("fwdif"), std::move(where), "if_index,counters[1].in_bytes");
  ASSERT_NE(rates, nullptr);
  Read(rates.get(), 0);
  for (const uint32_t index : {5u, 6u}) {
    for (const char *path : {"counters[0].in_bytes", "counters[1].in_bytes", "counters[1].out_bytes"})
      Set(lab, index, path, 8);
  }
  EXPECT_EQ(Read(rates.get(), 4), Lines{"fwdif if_index=6 counters[1].in_bytes 2.000000"});
  EXPECT_EQ(MakeTableRates(*source, Table("fwdif"), {}, "if_index,mtu"), nullptr);
  EXPECT_EQ(MakeTableRates(*source, Table("nhp"), {}, ""), nullptr);
}

// The entries that somebody else names, who may name others the next time, and in any order.
TEST_F(RatesTest, EntriesAtPlaces) {
  const LabArena lab(dir_.File("a"), "fwdif: [{if_index: 5}, {if_index: 6}, {if_index: 7}]\n");
  const auto source = lab.Source();
  std::vector<uint32_t> named;
  const auto rates = MakePlaceRates(
      *source, Table("fwdif"),
      [&] {
        std::vector<tbm::Place> places;
        EntryReader reader(*source, Table("fwdif"));
        for (const uint32_t index : named) {
          if (reader.Find(reinterpret_cast<const uint8_t *>(&index))) places.push_back(reader.entry().place);
        }
        return places;
      },
      "counters[0].in_bytes");
  ASSERT_NE(rates, nullptr);
  const auto count = [&](uint64_t value) {
    for (const uint32_t index : {5u, 6u, 7u}) Set(lab, index, "counters[0].in_bytes", value);
  };
  named = {7, 5};
  EXPECT_EQ(Read(rates.get(), 0), Lines{});
  count(10);
  EXPECT_EQ(Read(rates.get(), 1), (Lines{"fwdif if_index=5 counters[0].in_bytes 10.000000",
                                         "fwdif if_index=7 counters[0].in_bytes 10.000000"}));
  named = {6, 7};
  count(30);
  EXPECT_EQ(Read(rates.get(), 1), Lines{"fwdif if_index=7 counters[0].in_bytes 20.000000"});
  count(40);
  EXPECT_EQ(Read(rates.get(), 1), (Lines{"fwdif if_index=6 counters[0].in_bytes 10.000000",
                                         "fwdif if_index=7 counters[0].in_bytes 10.000000"}));
}

// Counters of a structure that an entry comes to have.
TEST_F(RatesTest, AttachedParts) {
  const LabArena lab(dir_.File("a"), "session: [{index: 1, valid: 1, tcp: {hold_count: 7}}, {index: 2}]\n");
  const auto source = lab.Source();
  const auto rates = MakeTableRates(*source, Table("session"), {}, "");
  Read(rates.get(), 0);
  const uint32_t one = 1;
  Table("session").At("tcp.hold_count").Set(lab.Record("session", &one), 9);
  EXPECT_EQ(Read(rates.get(), 1), Lines{"session index=1 tcp.hold_count 2.000000"});
}

TEST_F(RatesTest, Regions) {
  const LabArena lab(dir_.File("a"), "regions: {PKT_TRACE_CTX_PTR: {from_driver: 5}}\n");
  const auto source = lab.Source();
  const RegionLayout &region = *Layout::BuiltIn().FindRegion("PKT_TRACE_CTX_PTR");
  const auto rates = MakeRegionRates(*source, region, "");
  const auto other = MakeRegionRates(*source, region, "station_count,from_driver");
  ASSERT_NE(rates, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(Read(rates.get(), 0), Lines{});
  EXPECT_EQ(Read(other.get(), 0), Lines{});
  region.At("to_driver").Set(lab.arena()->FindRegion("PKT_TRACE_CTX_PTR", nullptr), 3);
  EXPECT_EQ(Read(rates.get(), 2), Lines{"PKT_TRACE_CTX_PTR  to_driver 1.500000"});
  EXPECT_EQ(Read(other.get(), 2), Lines{});
  EXPECT_EQ(MakeRegionRates(*source, *Layout::BuiltIn().FindRegion("IPP_SESSION_AGING_TIME"), ""), nullptr);
}

}  // namespace
}  // namespace qdt::host
