#include <string>
#include <vector>

#include "tests/unit/view_test.h"

// View of the packet sockets that listen for an Ethernet type.
namespace qdt::test {
namespace {

constexpr uint32_t kSockets = 55;

class PacketListenTest : public ViewTest {
 protected:
  void AddSocket(uint16_t type, const Record &socket) {
    platform.AddEntry(kSockets, Key(type, uint16_t{0}), socket.bytes());
  }
};

Record Socket(uint32_t protocol, int32_t fd, uint32_t ifIndex) {
  return Record(12).U32(0, protocol).U32(4, static_cast<uint32_t>(fd)).U32(8, ifIndex);
}

const std::string kArp =
    "  Ethernet protocol  :  0xfedc0806\n"
    "  Fd                 :  -2000000004\n"
    "  IfIndex            :  3000000008\n\n";
const std::string kArpToo =
    "  Ethernet protocol  :  0x806\n"
    "  Fd                 :  17\n"
    "  IfIndex            :  18\n\n";

TEST_F(PacketListenTest, WholeAnswer) {
  AddSocket(0x0806, Socket(0xfedc0806, -2000000004, 3000000008u));
  AddSocket(0x86dd, Socket(0x86dd, 7, 8));
  AddSocket(0x0806, Socket(0x0806, 17, 18));
  EXPECT_EQ(Query("27", "0x0806"), Framed(kArp + kArpToo));
  EXPECT_EQ(platform.walks, std::vector<std::string>{"by key 55 600 06080000"});
  EXPECT_EQ(Query("27", "0x86DD"), Framed("  Ethernet protocol  :  0x86dd\n"
                                          "  Fd                 :  7\n"
                                          "  IfIndex            :  8\n\n"));
  EXPECT_EQ(platform.walks.back(), "by key 55 600 dd860000");
  EXPECT_EQ(Query("27", "0x0800"), "datasize empty or invalid");  // no socket
}

TEST_F(PacketListenTest, KeyMustBeAnEthernetType) {
  AddSocket(0x0806, Socket(0x0806, 17, 18));
  for (const char *key1 : {"0806", "0", "all", "0x", "0x08", "0xzz06", "arp", "ALL"})
    EXPECT_EQ(Query("27", key1), "search fail") << key1;
  EXPECT_EQ(Query("27", "num5"), "search fail");
  EXPECT_EQ(Query("27", "num0"), "invalid input param");
  EXPECT_TRUE(platform.walks.empty());
  EXPECT_EQ(Query("27", "0x0806ff"), Framed(kArpToo));  // what follows is not looked at
}

// A digit's place may hold a sign, and the sum of both halves then wraps as 32 bits do.
TEST_F(PacketListenTest, KeyOfSignedHalves) {
  AddSocket(0x0806, Socket(0x0806, 17, 18));
  EXPECT_EQ(Query("27", "0x-1-1"), "datasize empty or invalid");
  EXPECT_EQ(platform.walks.back(), "by key 55 600 fffe0000");
  EXPECT_EQ(Query("27", "0x9-7"), "datasize empty or invalid");
  EXPECT_EQ(platform.walks.back(), "by key 55 600 f9080000");
}

TEST_F(PacketListenTest, Batches) {
  std::vector<Record> sockets;
  for (uint32_t i = 0; i < 3; ++i) AddSocket(0x0806, sockets.emplace_back(Socket(0x0806, 5, i)));
  ExpectWalks(NqeTableSearchAfPacketListen, kSockets, sockets, "0x0806");
  EXPECT_EQ(Call(NqeTableSearchAfPacketListen, 0, "0806").code, QDT_TBL_INVALID_INPUT);
  EXPECT_EQ(Call(NqeTableSearchAfPacketListen, 1, "0806").code, QDT_TBL_FAIL);
}

TEST_F(PacketListenTest, LengthsAndRoom) {
  const Record socket = Socket(0xfedc0806, -2000000004, 3000000008u);
  ExpectFormatsEach(NqeTableFormatAfPacketListen, socket);
  ExpectBoundedByRoom(NqeTableFormatAfPacketListen, socket);
}

}  // namespace
}  // namespace qdt::test
