#include "host/agent/refusals.h"

#include <gtest/gtest.h>

namespace qdt::host {
namespace {

TEST(RefusalsTest, TextsThatOnlySayWhatWasWrong) {
  EXPECT_TRUE(OnlySaysWhatIsWrong("  Input error, source-ip is 1.2.3.4, but ip-type is 6"));
  EXPECT_TRUE(OnlySaysWhatIsWrong("  egn display status|application|statistic\n  egn help\n"));
  EXPECT_TRUE(OnlySaysWhatIsWrong("nqecli perf task clear\nnqecli perf task disable\n"));
  EXPECT_TRUE(
      OnlySaysWhatIsWrong("diag clear cpcar status\n 0. fwdif                    diag search nqpTable"));
  EXPECT_TRUE(OnlySaysWhatIsWrong("search result not found\n"));
  EXPECT_TRUE(OnlySaysWhatIsWrong("Invalid error code"));
  EXPECT_TRUE(OnlySaysWhatIsWrong("Trace flag type is wrong\n"));
  EXPECT_TRUE(
      OnlySaysWhatIsWrong("current trace flag doesn't have top down info, please set flag to time.\n"
                          "current trace flag doesn't have top down info, please set flag to time.\n"));
}

TEST(RefusalsTest, AnswersThatOnlyHoldSuchWords) {
  EXPECT_FALSE(OnlySaysWhatIsWrong(""));
  EXPECT_FALSE(OnlySaysWhatIsWrong("\n"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("Current Total Sessions : 0\n"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("\n Vrf : 0\n  Input error, source-ip is 1.2.3.4, but ip-type is 6"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("search result not found, they said"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("Trace flag is not set\n"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("Trace flag type is wrong\nRunc 0:\n"));
  EXPECT_FALSE(OnlySaysWhatIsWrong("no rule of the NAT policy takes addresses from group 77"));
}

}  // namespace
}  // namespace qdt::host
