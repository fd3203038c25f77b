#include "host/query/own_records.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qdt/tables.h"

namespace qdt::host {
namespace {

constexpr uint32_t kMacCar = 48, kDropReason = 77, kPolicy = 67, kTables = 47, kRules = 59;

// What a view makes of a batch: its records' bytes and how that ended.
struct Made {
  const ViewLayout &view;
  std::vector<std::string> records;
  int32_t code = 0;
  bool cut = false;

  Made(uint32_t id, std::string_view batch) : view(*Layout::BuiltIn().FindView(id)) {
    const uint32_t size = view.recordSize;
    OwnRecords own(Layout::BuiltIn(), view, [&](const uint8_t *record) {
      records.emplace_back(reinterpret_cast<const char *>(record), size);
    });
    code = own.Show({reinterpret_cast<const uint8_t *>(batch.data()), batch.size()});
    cut = own.IsCut();
  }

  std::string Text(std::string_view path, size_t record = 0) const {
    return std::string(view.At(path).GetText(records.at(record).data()));
  }
};

TEST(OwnRecordsTest, RecordsThatAreDeliveredAsTheyAreAreCutAtTheirSize) {
  const Made made(kMacCar, std::string("\x01\x02\x03\x04", 4));
  ASSERT_EQ(made.records.size(), 2u);
  EXPECT_EQ(made.view.At("car_id").Get(made.records[0].data()), 0x0201u);
  EXPECT_EQ(made.view.At("car_id").Get(made.records[1].data()), 0x0403u);
}

TEST(OwnRecordsTest, APartOfARecordIsRefused) {
  const Made made(kDropReason, std::string(129, 'x'));
  EXPECT_EQ(made.code, QDT_TBL_DATA_SIZE);
  EXPECT_TRUE(made.records.empty());
}

TEST(OwnRecordsTest, ARuleIsReadLineByLine) {
  const Made made(kPolicy, "  RuleName     :  out\n\n  Service      :  tcp 80:443\nno colon\n");
  ASSERT_EQ(made.records.size(), 1u);
  EXPECT_EQ(made.Text("properties[0].name"), "RuleName");
  EXPECT_EQ(made.Text("properties[0].value"), "out");
  EXPECT_EQ(made.Text("properties[1].name"), "Service");
  EXPECT_EQ(made.Text("properties[1].value"), "tcp 80:443");
  EXPECT_EQ(made.Text("properties[2].name"), "");
  EXPECT_EQ(made.Text("properties[2].value"), "no colon");
  EXPECT_EQ(made.Text("properties[3].value"), "");
  EXPECT_FALSE(made.cut);
}

TEST(OwnRecordsTest, ARuleEndsAtItsNulAndWithoutANewline) {
  const Made made(kPolicy, std::string("A : b\0C : d", 11));
  EXPECT_EQ(made.Text("properties[0].value"), "b");
  EXPECT_EQ(made.Text("properties[1].name"), "");
}

TEST(OwnRecordsTest, WhatDoesNotFitARuleIsSaidToBeCut) {
  const Made wide(kPolicy, "A : " + std::string(257, 'v'));
  EXPECT_EQ(wide.Text("properties[0].value"), std::string(256, 'v'));
  EXPECT_TRUE(wide.cut);
  std::string lines;
  for (int i = 0; i < 129; ++i) lines += "N : v\n";
  const Made tall(kPolicy, lines);
  EXPECT_EQ(tall.Text("properties[127].name"), "N");
  EXPECT_TRUE(tall.cut);
  EXPECT_FALSE(Made(kPolicy, std::string_view(lines).substr(6)).cut);
}

TEST(OwnRecordsTest, WithoutATableManagerItsFiguresAreNotSupported) {
  for (const uint32_t id : {kTables, kRules}) {
    uint32_t shown = 0;
    OwnRecords own(Layout::BuiltIn(), *Layout::BuiltIn().FindView(id), [&](const uint8_t *) { ++shown; });
    ASSERT_TRUE(own.StandAlone());
    EXPECT_EQ(own.ShowAlone(), QDT_TBL_UNSUPPORTED);
    EXPECT_EQ(shown, 0u);
  }
}

}  // namespace
}  // namespace qdt::host
