#include "host/wire/make_room.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qdt::host {
namespace {

constexpr uid_t kOne = 1001;
constexpr uid_t kTwo = 1002;

Occupant Of(uid_t user, Doing doing, int second) {
  return {user, doing, std::chrono::steady_clock::time_point(std::chrono::seconds(second))};
}

struct Case {
  const char *name;
  std::vector<Occupant> occupants;
  uid_t newcomer;
  int leaves;  // -1: nobody
};

class MakeRoomTest : public testing::TestWithParam<Case> {};

TEST_P(MakeRoomTest, Leaves) {
  const std::optional<size_t> leaves = WhoMakesRoom(GetParam().occupants, GetParam().newcomer);
  EXPECT_EQ(leaves ? static_cast<int>(*leaves) : -1, GetParam().leaves);
}

INSTANTIATE_TEST_SUITE_P(
    All, MakeRoomTest,
    testing::Values(
        Case{"Nobody", {}, kOne, -1},
        Case{"TheOldestSilentOne",
             {Of(kOne, Doing::kSilent, 5), Of(kOne, Doing::kSilent, 3), Of(kOne, Doing::kSilent, 4)},
             kOne,
             1},
        Case{"SilentBeforeResting", {Of(kOne, Doing::kResting, 1), Of(kOne, Doing::kSilent, 9)}, kOne, 1},
        Case{"RestingBeforeTaking", {Of(kOne, Doing::kTaking, 1), Of(kOne, Doing::kResting, 9)}, kOne, 1},
        Case{"TakingBeforeAsking", {Of(kOne, Doing::kAsking, 1), Of(kOne, Doing::kTaking, 9)}, kOne, 1},
        Case{"NoOwnRequest", {Of(kOne, Doing::kAsking, 1), Of(kOne, Doing::kAsking, 2)}, kOne, -1},
        Case{"AnothersRequest", {Of(kTwo, Doing::kAsking, 2), Of(kTwo, Doing::kAsking, 1)}, kOne, 1},
        Case{"OfWhoHoldsMost",
             {Of(kOne, Doing::kSilent, 1), Of(kTwo, Doing::kAsking, 8), Of(kTwo, Doing::kResting, 9)},
             kOne,
             2},
        Case{"OfWhoHoldsMostAlsoForThem",
             {Of(kOne, Doing::kSilent, 1), Of(kTwo, Doing::kResting, 8), Of(kTwo, Doing::kResting, 9)},
             kTwo,
             1},
        Case{"OfTwoAlikeTheOther", {Of(kOne, Doing::kSilent, 1), Of(kTwo, Doing::kAsking, 2)}, kOne, 1}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qdt::host
