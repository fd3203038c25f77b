#include "host/wire/server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>

#include <atomic>
#include <future>
#include <list>
#include <optional>

#include "host/wire/client.h"
#include "tests/wire/server_fixture.h"

namespace qdt::host {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::string_literals::operator""s;

// Commands of the test: "big" answers 1 MiB, "file" hands over a file, "fail" fails, all others come back.
EngineReply Echo(std::string_view line) {
  if (line == "fail") throw HostError("no such thing");
  if (line == "code") return {-116, "", {}};
  if (line == "big") return {kReplyOk, std::string(kFrameLimit, 'b'), {}};
  if (line == "bigger") return {kReplyOk, std::string(kFrameLimit + 1, 'b'), {}};
  if (line == "file") {
    UniqueFd file(memfd_create("test", MFD_CLOEXEC));
    EXPECT_EQ(write(file.get(), "content", 7), 7);
    return {kReplyOk, "here", std::move(file)};
  }
  return {kReplyOk, "<" + std::string(line) + ">", {}};
}

class ServerTest : public testing::Test {
 protected:
  std::string Request(std::string_view line) { return EncodeFrame(kRequestMark, line); }
  // A short reply as it stands on the wire.
  std::string Expected(const std::string &text) {
    return std::string(1, static_cast<char>(text.size())) + "\0\0\0\0\0\0\0"s + text;
  }

  TempDir dir_;
  const std::string path_ = dir_.File("s");
};

TEST_F(ServerTest, AnswersOneLineAfterTheOther) {
  const RunningServer server(path_, Echo);
  EngineClient client(path_);
  for (const char *line : {"one", "", "three words here"}) {
    const EngineReply reply = client.Run(line);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.text, "<"s + line + ">");
    EXPECT_FALSE(reply.fd.ok());
  }
  EngineReply failed = client.Run("fail");
  EXPECT_EQ(failed.status, -1);
  EXPECT_EQ(failed.text, "no such thing");
  EXPECT_EQ(client.Run("code").status, -116);
}

TEST_F(ServerTest, CarriesTheFullBoundBothWays) {
  const RunningServer server(path_, Echo);
  EngineClient client(path_);
  EXPECT_EQ(client.Run("big").text, std::string(1 << 20, 'b'));
  EXPECT_EQ(client.Run(std::string((1 << 20) - 2, 'q')).text, "<" + std::string((1 << 20) - 2, 'q') + ">");
  // Two characters more come back: the request is taken, the answer is not.
  const EngineReply reply = client.Run(std::string(1 << 20, 'q'));
  EXPECT_EQ(reply.status, -1);
  EXPECT_EQ(reply.text, "the answer is too long for one reply");
  EXPECT_EQ(client.Run("bigger").text, "the answer is too long for one reply");
  EXPECT_THROW(client.Run(std::string((1 << 20) + 1, 'q')), HostError);
}

TEST_F(ServerTest, HandsOverAFile) {
  const RunningServer server(path_, Echo);
  const EngineReply reply = EngineClient(path_).Run("file");
  EXPECT_EQ(reply.text, "here");
  ASSERT_TRUE(reply.fd.ok());
  char content[16] = {};
  EXPECT_EQ(pread(reply.fd.get(), content, sizeof content, 0), 7);
  EXPECT_STREQ(content, "content");
}

TEST_F(ServerTest, AnswersPipelinedRequestsInOrder) {
  const RunningServer server(path_, Echo);
  RawClient client(path_);
  std::string requests, expected;
  for (int i = 0; i < 1000; ++i) {
    requests += Request(std::to_string(i));
    expected += Expected("<" + std::to_string(i) + ">");
  }
  ASSERT_TRUE(client.Send(requests));
  client.FinishSending();
  EXPECT_EQ(client.Read(expected.size()), expected);
  EXPECT_TRUE(client.AtEnd());
}

TEST_F(ServerTest, TakesARequestByteByByte) {
  const RunningServer server(path_, Echo);
  RawClient client(path_);
  for (const char c : Request("slow")) {
    ASSERT_TRUE(client.Send(std::string(1, c)));
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(client.Read(14), Expected("<slow>"));
}

TEST_F(ServerTest, RefusesOtherProtocolsAndCloses) {
  const RunningServer server(path_, Echo);
  RawClient client(path_);
  ASSERT_TRUE(client.Send("GET / HTTP/1.0\r\n\r\n"));
  const std::string text = "this is not a request of the engine's protocol";
  EXPECT_EQ(client.Read(8 + text.size()), "\x2e\0\0\0\xff\xff\xff\xff"s + text);
  EXPECT_TRUE(client.AtEnd());
}

TEST_F(ServerTest, RefusesALengthAboveTheBoundAndCloses) {
  const RunningServer server(path_, Echo);
  RawClient client(path_);
  ASSERT_TRUE(client.Send("\x01\0\x10\0NQE1"s));
  const std::string text = "a request has at most 1048576 bytes";
  EXPECT_EQ(client.Read(8 + text.size()), "\x23\0\0\0\xff\xff\xff\xff"s + text);
  EXPECT_TRUE(client.AtEnd());
}

TEST_F(ServerTest, ASlowReaderHoldsUpNobody) {
  const RunningServer server(path_, Echo);
  RawClient slow(path_);
  std::string requests;
  for (int i = 0; i < 20; ++i) requests += Request("big");
  ASSERT_TRUE(slow.Send(requests));
  const auto started = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) ASSERT_EQ(EngineClient(path_).Run("x").text, "<x>");
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  // Its answers are still whole when it comes to read them.
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(slow.Read(8), "\0\0\x10\0\0\0\0\0"s);
    ASSERT_EQ(slow.Read(1 << 20), std::string(1 << 20, 'b'));
  }
}

TEST_F(ServerTest, DropsWhoStallsInARequestButNotWhoRests) {
  const RunningServer server(path_, Echo, {.clients = 8, .patience = 200ms});
  RawClient stalled(path_), resting(path_);
  ASSERT_TRUE(stalled.Send(Request("never finished").substr(0, 12)));
  ASSERT_TRUE(resting.Send(Request("a")));
  EXPECT_EQ(resting.Read(11), Expected("<a>"));
  EXPECT_TRUE(stalled.AtEnd());
  // Who comes now and says nothing goes when the other one has rested longer than that.
  RawClient silent(path_);
  EXPECT_TRUE(silent.AtEnd());
  ASSERT_TRUE(resting.Send(Request("b")));
  EXPECT_EQ(resting.Read(11), Expected("<b>"));
}

TEST_F(ServerTest, DropsWhoTricklesARequest) {
  const RunningServer server(path_, Echo, {.clients = 8, .patience = 200ms});
  RawClient client(path_);
  const auto started = std::chrono::steady_clock::now();
  bool open = true;
  for (const char c : Request(std::string(300, 't'))) {
    if (!(open = client.Send(std::string(1, c)))) break;
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_FALSE(open);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
}

TEST_F(ServerTest, DropsWhoDoesNotReadTheReply) {
  const RunningServer server(path_, Echo, {.clients = 8, .patience = 200ms});
  RawClient client(path_);
  ASSERT_TRUE(client.Send(Request("big") + Request("big")));
  pollfd closed{client.fd(), 0, 0};
  ASSERT_EQ(poll(&closed, 1, 5000), 1);
  EXPECT_LT(client.Read(2 << 20).size(), size_t{1} << 20);
}

// All places are taken by requests of one user, who asks for another one.
TEST_F(ServerTest, RefusesMoreThanItsClients) {
  std::optional<RawClient> more;
  const auto connect = [&](std::string_view line) {
    if (line == "connect") more.emplace(path_);
    return Echo(line);
  };
  const RunningServer server(path_, connect, {.clients = 1, .patience = 30s});
  RawClient busy(path_);
  ASSERT_TRUE(busy.Send(Request("connect") + Request("1") + Request("2") + Request("3")));
  const std::string expected = Expected("<connect>") + Expected("<1>") + Expected("<2>") + Expected("<3>");
  EXPECT_EQ(busy.Read(expected.size()), expected);
  ASSERT_TRUE(more.has_value());
  const std::string text = "the engine serves 1 clients already";
  EXPECT_EQ(more->Read(8 + text.size()), "\x23\0\0\0\xff\xff\xff\xff"s + text);
  EXPECT_TRUE(more->AtEnd());
}

TEST_F(ServerTest, ServesManyClientsAtOnce) {
  const RunningServer server(path_, Echo);
  std::atomic<int> right = 0;
  std::list<std::thread> threads;
  for (int t = 0; t < 32; ++t) {
    threads.emplace_back([&, t] {
      EngineClient client(path_);
      for (int i = 0; i < 50; ++i) {
        const std::string line = std::to_string(t) + "/" + std::to_string(i);
        right += client.Run(line).text == "<" + line + ">";
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(right, 32 * 50);
}

TEST_F(ServerTest, GarbageOfAnyLengthIsRefusedOrWaitedFor) {
  const RunningServer server(path_, Echo);
  uint32_t state = 12345;
  for (int round = 0; round < 200; ++round) {
    RawClient client(path_);
    std::string bytes(round * 7 % 300, '\0');
    for (char &c : bytes) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    client.Send(bytes);
  }
  EXPECT_EQ(EngineClient(path_).Run("alive").text, "<alive>");
}

TEST(ServerTicks, AreCalledEveryPeriodAndBetweenRequests) {
  const TempDir dir;
  Listener listener(dir.File("s"));
  listener.Unlock();
  const UniqueFd stop(eventfd(0, EFD_CLOEXEC));
  int fast = 0, slow = 0;
  std::atomic<bool> answered = false;
  Server server(listener.fd(), Echo);
  const auto started = std::chrono::steady_clock::now();
  server.AddTick(10ms, [&] { ++fast; });
  server.AddTick(50ms, [&] {
    // A tick that comes late by periods is not made up for.
    if (++slow == 1) std::this_thread::sleep_for(200ms);
    const uint64_t one = 1;
    if (slow >= 2 && answered) {
      EXPECT_EQ(write(stop.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    }
  });
  EngineReply reply;
  std::thread client([&] {
    reply = EngineClient(dir.File("s")).Run("hello");
    answered = true;
  });
  server.Serve(stop.get());
  const auto passed = std::chrono::steady_clock::now() - started;
  client.join();
  EXPECT_EQ(reply.text, "<hello>");
  EXPECT_GE(slow, 2);
  EXPECT_LE(slow, (passed - 200ms) / 50ms + 1);
  EXPECT_GE(passed, 250ms);
  EXPECT_GE(fast, 2);
  EXPECT_LE(fast, (passed - 200ms) / 10ms + 1);
}

// Work that never ends by itself keeps nobody waiting: it ends when a client that came meanwhile has been
// answered.
TEST(ServerSteps, ClientsAreAnsweredBetweenThem) {
  const TempDir dir;
  Listener listener(dir.File("s"));
  listener.Unlock();
  const UniqueFd stop(eventfd(0, EFD_CLOEXEC));
  std::atomic<bool> began = false, answered = false;
  int steps = 0;
  Server server(listener.fd(), Echo);
  server.AddSteps(1ms, [&] {
    began = true;
    ++steps;
    if (!answered) return true;
    const uint64_t one = 1;
    EXPECT_EQ(write(stop.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    return false;
  });
  EngineReply reply;
  std::thread client([&] {
    while (!began) std::this_thread::yield();
    reply = EngineClient(dir.File("s")).Run("hello");
    answered = true;
  });
  server.Serve(stop.get());
  client.join();
  EXPECT_EQ(reply.text, "<hello>");
  EXPECT_GE(steps, 2);
}

// Two pipes: one is written by a client's command, the other closed by the first one's work.
TEST(ServerWatches, AreCalledWhenTheirFileIsReadableOrAtItsEnd) {
  const TempDir dir;
  Listener listener(dir.File("s"));
  listener.Unlock();
  const UniqueFd stop(eventfd(0, EFD_CLOEXEC));
  int first[2], second[2];
  ASSERT_EQ(pipe2(first, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(second, O_CLOEXEC), 0);
  const UniqueFd firstOut(first[0]), firstIn(first[1]), secondOut(second[0]);
  UniqueFd secondIn(second[1]);
  std::string taken;
  int ends = 0;
  Server server(listener.fd(), [&](std::string_view line) {
    EXPECT_EQ(write(firstIn.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
    return EngineReply{};
  });
  server.AddWatch(firstOut.get(), [&] {
    char bytes[16];
    taken.append(bytes, read(firstOut.get(), bytes, sizeof bytes));
    if (taken == "onetwo") secondIn = UniqueFd();
  });
  server.AddWatch(secondOut.get(), [&] {
    ++ends;
    const uint64_t one = 1;
    EXPECT_EQ(write(stop.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
  });
  std::thread client([&] {
    EngineClient connection(dir.File("s"));
    connection.Run("one");
    connection.Run("two");
  });
  server.Serve(stop.get());
  client.join();
  EXPECT_EQ(taken, "onetwo");
  EXPECT_EQ(ends, 1);
}

TEST_F(ServerTest, AClientThatWaitsIsToldWhenTheServerHangs) {
  std::promise<void> told;
  const RunningServer server(path_, [hangs = told.get_future().share()](std::string_view) {
    hangs.wait();
    return EngineReply{};
  });
  EngineClient client(path_, 100ms);
  EXPECT_THROW(client.Run("x"), HostError);
  told.set_value();
}

}  // namespace
}  // namespace qdt::host
