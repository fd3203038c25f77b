#include <cstdlib>
#include <string>
#include <vector>

#include "qdt/oma.h"
#include "tests/unit/packet_trace_fixture.h"

// What is attached stays attached for the life of a process. This program attaches nothing itself: each
// test's body runs in a child, where it is the first.
namespace qdt::test {
namespace {

class AttachTest : public PacketTraceTest {
 protected:
  template <typename Body>
  static void InNewProcess(Body body) {
    EXPECT_EXIT(
        {
          body();
          std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
  }
};

TEST_F(AttachTest, AttachesOnce) {
  InNewProcess([this] {
    EXPECT_EQ(Run({"enable"}), "packet trace set enable OK");
    EXPECT_TRUE(Run({"counter"}).starts_with("\n Packet Trace Counter\n"));
    EXPECT_EQ(PktTraceAttach(), 0);
    EXPECT_EQ(platform.attaches, std::vector<std::string>{"PKT_TRACE_CTX_PTR 224"});
  });
}

TEST_F(AttachTest, AFailedAttachIsToldAndTriedAgain) {
  InNewProcess([this] {
    platform.lentRegions.clear();
    const LogLine line = {3, "Packet trace create smmap failed.\n"};
    for (const Words &words : std::vector<Words>{{"show"}, {"set", "vlan", "1"}, {}}) {
      EXPECT_EQ(Run(words), "packet trace OsaSmmap failed \n");
      EXPECT_EQ(result, -1);
    }
    EXPECT_EQ(PktTraceAttach(), -1);
    EXPECT_EQ(platform.log, std::vector<LogLine>(4, line));
    EXPECT_EQ(platform.attaches.size(), 4u);
    platform.lentRegions[kRegion] = Block();
    EXPECT_EQ(Run({"disable"}), "packet trace set disable OK");
    EXPECT_EQ(platform.attaches.size(), 5u);
    EXPECT_EQ(platform.log.size(), 4u);
  });
}

TEST_F(AttachTest, TheAgentAttachesOnceAndTriesAgainAfterAFailure) {
  InNewProcess([this] {
    omcc_request request;
    DebugPktClear();  // nothing to clear yet
    platform.lentRegions.clear();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(QdtOmaDebugPktProc(&request), -1);
    EXPECT_EQ(platform.log, std::vector<LogLine>(2, {3, "attach shm failed\n"}));
    platform.lentRegions[kRegion] = Block();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(QdtOmaDebugPktProc(&request), 0);
    ExpectBlock(Record(kBlockSize).U16(10, 65535).U32(24, 300).U32(112, 5));
    EXPECT_EQ(platform.attaches, std::vector<std::string>(3, "PKT_TRACE_CTX_PTR 224"));
    EXPECT_TRUE(platform.answers.empty());
  });
}

}  // namespace
}  // namespace qdt::test
