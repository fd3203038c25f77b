#include <poll.h>
#include <syslog.h>

#include <atomic>
#include <list>
#include <mutex>
#include <vector>

#include "host/wire/client.h"
#include "tests/host/syslog_lines.h"
#include "tests/wire/server_fixture.h"

namespace {

std::mutex g_logMutex;
std::vector<std::string> g_log;  // "PRIORITY TEXT"

}  // namespace

namespace qdt::host {

void OnSyslogLine(const std::string &line) {
  const std::lock_guard lock(g_logMutex);
  g_log.push_back(line);
}

namespace {

using std::chrono_literals::operator""h;
using std::chrono_literals::operator""ms;
using std::string_literals::operator""s;

constexpr char kMadeRoom[] = "the engine has too many clients and closed this idle connection; connect again";

// "big" is answered with 1 MiB, all others with themselves.
EngineReply Echo(std::string_view line) {
  return {kReplyOk, line == "big" ? std::string(kFrameLimit, 'b') : std::string(line), {}};
}

class ServerLimitsTest : public testing::Test {
 protected:
  ServerLimitsTest() { TakeLog(); }

  static std::vector<std::string> TakeLog() {
    const std::lock_guard lock(g_logMutex);
    return std::exchange(g_log, {});
  }

  static std::string Request(std::string_view line) { return EncodeFrame(kRequestMark, line); }

  // Waits until the server has closed; whether it told why before.
  static bool WasToldToMakeRoom(RawClient *client) {
    const std::string frame = EncodeFrame(~0u, kMadeRoom);
    return client->Read(frame.size()) == frame && client->AtEnd();
  }

  static bool Answers(RawClient *client, const std::string &word) {
    const std::string reply = EncodeFrame(0, word);
    return client->Send(Request(word)) && client->Read(reply.size()) == reply;
  }

  // Waits until the server has closed, without taking anything that it has sent.
  static void AwaitClosing(const RawClient &client) {
    pollfd entry{client.fd(), 0, 0};
    EXPECT_EQ(poll(&entry, 1, 5000), 1);
    EXPECT_NE(entry.revents & POLLHUP, 0);
  }

  TempDir dir_;
  const std::string path_ = dir_.File("s");
};

TEST_F(ServerLimitsTest, SilentConnectionsLockNobodyOut) {
  const RunningServer server(path_, Echo, {.clients = 4, .patience = 1h});
  std::list<RawClient> silent;
  for (int i = 0; i < 4; ++i) silent.emplace_back(path_);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(EngineClient(path_).Run("in").text, "in");
  }
  // Only the oldest one had to go: whoever asked has left again.
  EXPECT_TRUE(WasToldToMakeRoom(&silent.front()));
  silent.pop_front();
  for (RawClient &client : silent) EXPECT_TRUE(Answers(&client, "still"));
  EXPECT_EQ(TakeLog(),
            (std::vector<std::string>{
                "3 the limit clients is reached: 4 connections; from now on idle ones make room\n"}));
}

TEST_F(ServerLimitsTest, HalfARequestMakesRoomAsSilenceDoes) {
  const RunningServer server(path_, Echo, {.clients = 2, .patience = 1h});
  RawClient asked(path_);
  ASSERT_TRUE(Answers(&asked, "a"));
  RawClient half(path_);
  ASSERT_TRUE(half.Send(Request("never finished").substr(0, 12)));
  RawClient fresh(path_);
  EXPECT_TRUE(WasToldToMakeRoom(&half));
  EXPECT_TRUE(Answers(&fresh, "b"));
  EXPECT_TRUE(Answers(&asked, "c"));
}

TEST_F(ServerLimitsTest, WhoRestedLongestMakesRoom) {
  const RunningServer server(path_, Echo, {.clients = 2, .patience = 1h});
  RawClient first(path_), second(path_);
  ASSERT_TRUE(Answers(&first, "a"));
  ASSERT_TRUE(Answers(&second, "b"));
  ASSERT_TRUE(Answers(&first, "c"));
  RawClient third(path_);
  ASSERT_TRUE(Answers(&third, "d"));
  EXPECT_TRUE(WasToldToMakeRoom(&second));
  EXPECT_TRUE(Answers(&first, "e"));
}

TEST_F(ServerLimitsTest, WhoDoesNotTakeAReplyMakesRoom) {
  const RunningServer server(path_, Echo, {.clients = 1, .patience = 1h});
  RawClient slow(path_);
  ASSERT_TRUE(slow.Send(Request("big")));
  ASSERT_EQ(slow.Read(8), "\0\0\x10\0\0\0\0\0"s);  // it is being answered
  EXPECT_EQ(EngineClient(path_).Run("in").text, "in");
  AwaitClosing(slow);
}

TEST_F(ServerLimitsTest, ThousandsOfSilentConnectionsLockNobodyOut) {
  const RunningServer server(path_, Echo);
  std::atomic<bool> stop = false;
  std::thread flood([&] {
    std::list<RawClient> silent;
    while (!stop) {
      silent.emplace_back(path_);
      if (silent.size() > 200) silent.pop_front();
    }
  });
  for (int i = 0; i < 200; ++i) {
    const std::string word = std::to_string(i);
    EXPECT_EQ(EngineClient(path_).Run(word).text, word);
  }
  stop = true;
  flood.join();
}

TEST_F(ServerLimitsTest, WhoNeverAsksIsClosed) {
  const RunningServer server(path_, Echo, {.clients = 8, .patience = 50ms});
  RawClient silent(path_);
  EXPECT_TRUE(silent.AtEnd());
  RawClient again(path_);
  EXPECT_TRUE(again.AtEnd());
  const std::string user = std::to_string(getuid());
  EXPECT_EQ(TakeLog(),
            (std::vector<std::string>{"3 the limit patience is reached: user " + user +
                                      " has not sent a whole request for 50 ms and is cut off\n"}));
}

TEST_F(ServerLimitsTest, WhoTakesAReplyInSipsIsClosed) {
  const RunningServer server(path_, Echo, {.clients = 8, .patience = 200ms});
  RawClient client(path_);
  ASSERT_TRUE(client.Send(Request("big")));
  // Each sip moves the reply on; the whole would take seconds.
  size_t taken = 0;
  for (std::string sip; !(sip = client.Read(16 << 10)).empty(); taken += sip.size()) {
    std::this_thread::sleep_for(30ms);
  }
  EXPECT_LT(taken, kFrameLimit);
  const std::string user = std::to_string(getuid());
  EXPECT_EQ(TakeLog(), (std::vector<std::string>{"3 the limit patience is reached: user " + user +
                                                 " has not taken a reply for 200 ms and is cut off\n"}));
}

}  // namespace
}  // namespace qdt::host
