#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/arena/arena_layout.h"
#include "host/base/arguments.h"
#include "host/base/fd.h"
#include "host/base/time_text.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

class StampTest : public HostTest {};

TEST_F(StampTest, AnEngineRecordsWhereItPublishesAndItsVersion) {
  Start();
  EXPECT_EQ(engine_->header()->arenaPath, path_);
  EXPECT_EQ(engine_->header()->program, ProgramVersion());
  EXPECT_EQ(engine_->header()->savedTime, 0u);
}

TEST_F(StampTest, ACopyRecordsItsMomentAndStaysGood) {
  Start();
  const std::string copy = Snapshot();
  const UniqueFd file(open(copy.c_str(), O_RDWR));
  const uint64_t before = NanosecondsNow(), timer = TimerMilliseconds();
  Arena::StampCopy(file.get());
  const auto looked = Arena::Look(copy, Arena::Access::kSnapshot);
  EXPECT_GE(looked->header()->savedTime, before);
  EXPECT_LE(looked->header()->savedTime, NanosecondsNow());
  EXPECT_GT(looked->header()->savedUptime, 0u);
  EXPECT_GE(looked->header()->savedTimer, timer);
  EXPECT_LE(looked->header()->savedTimer, TimerMilliseconds());
  EXPECT_EQ(looked->header()->identity, engine_->header()->identity);
  EXPECT_EQ(looked->header()->program, ProgramVersion());
}

TEST_F(StampTest, WhatTakesNoStampIsSaid) {
  Start();
  const UniqueFd readOnly(open(Snapshot().c_str(), O_RDONLY));
  EXPECT_EQ(ErrorOf([&] { Arena::StampCopy(readOnly.get()); }),
            "cannot write the snapshot: Bad file descriptor");
  const UniqueFd empty(open((dir_ + "/empty").c_str(), O_RDWR | O_CREAT, 0600));
  EXPECT_EQ(ErrorOf([&] { Arena::StampCopy(empty.get()); }), "cannot write the snapshot: Input/output error");
}

TEST_F(StampTest, APathThatDoesNotFitIsLeftOut) {
  const std::string deep = dir_ + "/" + std::string(200, 'd');
  ASSERT_EQ(mkdir(deep.c_str(), 0700), 0);
  path_ = deep + "/" + std::string(60, 'a');
  Start();
  EXPECT_EQ(engine_->header()->arenaPath, std::string());
}

}  // namespace
}  // namespace qdt::host
