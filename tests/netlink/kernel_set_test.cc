#include "host/netlink/kernel_set.h"

#include <gtest/gtest.h>

#include <vector>

// Dumps and notifications come on two sockets: what of the two is newer, nobody tells.
namespace qdt::host {
namespace {

struct Id {
  uint32_t number;
};

class KernelSetTest : public testing::Test {
 protected:
  bool Dump(uint32_t number, int value) { return Tell(number, value, Told::kByDump); }
  bool Notify(uint32_t number, int value) { return Tell(number, value, Told::kByNotification); }
  bool Tell(uint32_t number, int value, Told told) {
    int *object = set_.Take({number}, told);
    if (object != nullptr) *object = value;
    return object != nullptr;
  }
  void Drop(uint32_t number) {
    set_.Drop({number}, [this](const Id &id, int) { left_.push_back(id.number); });
  }
  std::vector<uint32_t> End(bool complete = true) {
    set_.End(complete, [this](const Id &id, int) { left_.push_back(id.number); });
    return std::exchange(left_, {});
  }
  int Value(uint32_t number) { return set_.Find({number}) == nullptr ? -1 : *set_.Find({number}); }

  KernelSet<Id, int> set_;
  std::vector<uint32_t> left_;
};

TEST_F(KernelSetTest, WhatADumpDoesNotShowLeavesAtItsEnd) {
  Notify(1, 10);
  Notify(2, 20);
  set_.Begin();
  EXPECT_TRUE(Dump(2, 21));
  EXPECT_EQ(Value(1), 10);
  EXPECT_EQ(End(), std::vector<uint32_t>{1});
  EXPECT_EQ(Value(2), 21);
  EXPECT_EQ(set_.size(), 1u);
}

TEST_F(KernelSetTest, ADumpThatWasInterruptedTakesNothingAway) {
  Notify(1, 10);
  set_.Begin();
  EXPECT_EQ(End(false), std::vector<uint32_t>{});
  EXPECT_EQ(Value(1), 10);
}

TEST_F(KernelSetTest, ANotificationDuringTheDumpStands) {
  Notify(1, 10);
  set_.Begin();
  Notify(1, 11);
  Notify(2, 20);
  EXPECT_FALSE(Dump(1, 10));
  EXPECT_FALSE(Dump(2, 19));
  EXPECT_EQ(End(), std::vector<uint32_t>{});
  EXPECT_EQ(Value(1), 11);
  EXPECT_EQ(Value(2), 20);
}

TEST_F(KernelSetTest, WhatWentDuringTheDumpDoesNotComeBack) {
  Notify(1, 10);
  set_.Begin();
  Drop(1);
  Drop(2);  // never heard of, but the dump may still show it
  EXPECT_FALSE(Dump(1, 10));
  EXPECT_FALSE(Dump(2, 20));
  EXPECT_EQ(End(), std::vector<uint32_t>{1});
  EXPECT_EQ(set_.size(), 0u);
}

TEST_F(KernelSetTest, WhatWentAndCameBackDuringTheDumpStands) {
  set_.Begin();
  Drop(1);
  Notify(1, 12);
  EXPECT_FALSE(Dump(1, 10));
  EXPECT_EQ(End(), std::vector<uint32_t>{});
  EXPECT_EQ(Value(1), 12);
}

TEST_F(KernelSetTest, TheNextDumpKnowsNothingOfTheLastOne) {
  set_.Begin();
  Drop(1);
  End();
  set_.Begin();
  EXPECT_TRUE(Dump(1, 10));
  EXPECT_EQ(End(), std::vector<uint32_t>{});
  set_.Begin();
  EXPECT_EQ(End(), std::vector<uint32_t>{1});
}

}  // namespace
}  // namespace qdt::host
