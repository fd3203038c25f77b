#include "tests/host/amount.h"

#include <gtest/gtest.h>

namespace qdt::host {
namespace {

TEST(AmountTest, IsWhatTheVariableSays) {
  unsetenv("QDT_AMOUNT");
  EXPECT_EQ(Amount("QDT_AMOUNT", 40), 40u);
  setenv("QDT_AMOUNT", "2000000000000", 1);
  EXPECT_EQ(Amount("QDT_AMOUNT", 40), 2000000000000u);
  unsetenv("QDT_AMOUNT");
}

TEST(AmountTest, WhatIsNoNumberEndsTheProgram) {
  for (const char *wrong : {"", "0", "abc", "1e9", "-1", " 1", "18446744073709551616"}) {
    setenv("QDT_AMOUNT", wrong, 1);
    EXPECT_EXIT(Amount("QDT_AMOUNT", 40), testing::ExitedWithCode(2), "QDT_AMOUNT: \".*\" is not a number");
  }
  unsetenv("QDT_AMOUNT");
}

}  // namespace
}  // namespace qdt::host
