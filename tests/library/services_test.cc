#include "host/library/services.h"

#include <gtest/gtest.h>

#include "platform/engine.h"
#include "platform/memory.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

class ServicesTest : public testing::Test {
 protected:
  ~ServicesTest() override {
    SetEngineChannel(nullptr);
    free_ex(g_mallocHandle, reply_);
  }
  void Answer(int32_t status, const std::string &text) {
    SetEngineChannel([=, this](std::string_view line) {
      line_ = line;
      return EngineReply{status, text, {}};
    });
  }

  std::string line_;
  char *reply_ = nullptr;
};

TEST_F(ServicesTest, ClearSendsTheEnginesCommandAndHandsBackItsStatus) {
  Answer(0, "done");
  EXPECT_EQ(QdtCpCarStatClearAll(), 0);
  EXPECT_EQ(line_, "clear cpcar");
  Answer(-7, "");
  EXPECT_EQ(QdtCpCarStatClearAll(), -7);
}

TEST_F(ServicesTest, ProcessCmdlineHandsBackStatusAndText) {
  Answer(0, "the answer");
  EXPECT_EQ(QdtProcessCmdline("egn display", &reply_), 0);
  EXPECT_EQ(line_, "egn display");
  ASSERT_STREQ(reply_, "the answer");
}

TEST_F(ServicesTest, ARefusalStillHasItsText) {
  Answer(-1, "unknown command");
  EXPECT_EQ(QdtProcessCmdline("x", &reply_), -1);
  ASSERT_STREQ(reply_, "unknown command");
}

TEST_F(ServicesTest, SendCmdCountsTheNul) {
  Answer(0, "four");
  EXPECT_EQ(QdtSendCmdToNqe("x", &reply_), 5);
  ASSERT_STREQ(reply_, "four");
  free_ex(g_mallocHandle, reply_);
  Answer(0, "");
  EXPECT_EQ(QdtSendCmdToNqe("x", &reply_), 1);
  ASSERT_STREQ(reply_, "");
}

TEST_F(ServicesTest, WithoutAnEngineNothingIsReady) {
  EXPECT_EQ(QdtCpCarStatClearAll(), QDT_TBL_NOT_READY);
  char marker;
  reply_ = &marker;
  EXPECT_EQ(QdtSendCmdToNqe("x", &reply_), QDT_TBL_NOT_READY);
  EXPECT_EQ(reply_, nullptr);
  SetEngineChannel([](std::string_view) -> EngineReply { throw HostError("gone"); });
  EXPECT_EQ(QdtCpCarStatClearAll(), QDT_TBL_NOT_READY);
  EXPECT_EQ(QdtProcessCmdline("x", &reply_), QDT_TBL_NOT_READY);
  EXPECT_EQ(reply_, nullptr);
  EXPECT_EQ(TakeEngineFailure(), "gone");
  EXPECT_EQ(TakeEngineFailure(), "");
  EXPECT_EQ(QdtCpCarStatClearAll(), QDT_TBL_NOT_READY);
  Answer(-1, "refused");
  EXPECT_EQ(QdtCpCarStatClearAll(), -1);
  EXPECT_EQ(TakeEngineFailure(), "");
}

}  // namespace
}  // namespace qdt::host
