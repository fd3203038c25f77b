#include <string>

#include "tests/unit/view_test.h"

// View of the name of a discard reason.
namespace qdt::test {
namespace {

class DropReasonTest : public ViewTest {};

TEST_F(DropReasonTest, WholeAnswer) {
  for (const char *key1 : {"0", "all", "num5", "x"})
    EXPECT_EQ(Query("77", key1, "1"), Framed("  Discard Type:  arp miss\n"));
  EXPECT_EQ(Query("77", "0", "0"), Framed("  Discard Type:  not defined\n"));
  EXPECT_EQ(Query("77", "0", "273"), Framed("  Discard Type:  host if isolate\n"));
  EXPECT_TRUE(platform.searches.empty());
  EXPECT_TRUE(platform.walks.empty());
}

TEST_F(DropReasonTest, NoSuchReason) {
  for (const char *reason : {"274", "275", "4294967295"})
    EXPECT_EQ(Query("77", "0", reason), "invalid input param") << reason;
  for (const char *unnamed : {"121", "122", "123", "200", "233", "234", "235"})
    EXPECT_EQ(Query("77", "0", unnamed), "invalid input param") << unnamed;
  EXPECT_TRUE(platform.allocations.empty());
}

TEST_F(DropReasonTest, TheRecordHoldsTheNameAndNothingElse) {
  EXPECT_EQ(Call(NqeTableSearchDropId, 0, "0", 1), (Found{0, Record(128).Copy(0, "arp miss").bytes()}));
  EXPECT_EQ(platform.allocations.back().size, 128u);
  platform.FailAllocation(0);
  EXPECT_EQ(Call(NqeTableSearchDropId, 0, "0", 1).code, QDT_TBL_NO_MEMORY);
}

TEST_F(DropReasonTest, LengthsAndRoom) {
  ExpectOneRecordOnly(NqeTableFormatDropIdDesc, 128);
  const Record reason = Record(128).Copy(0, std::string("a reason\0behind", 15));
  EXPECT_EQ(FormatText(NqeTableFormatDropIdDesc, reason), "  Discard Type:  a reason\n");
  ExpectBoundedByRoom(NqeTableFormatDropIdDesc, reason);
  const std::string whole(128, 'x');
  EXPECT_EQ(FormatText(NqeTableFormatDropIdDesc, Record(128).Copy(0, whole)),
            "  Discard Type:  " + whole + "\n");
}

}  // namespace
}  // namespace qdt::test
