#include "host/wire/listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <list>
#include <memory>

#include "host/base/trust.h"
#include "host/wire/client.h"
#include "tests/wire/server_fixture.h"

namespace qdt::host {
namespace {

// What Listener says about `path`, or "" when it listens.
std::string Problem(const std::string &path) {
  try {
    const Listener listener(path);
  } catch (const HostError &error) {
    return error.what();
  }
  return "";
}

bool Exists(const std::string &path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

// The socket file of a process that is gone.
void LeaveStaleSocket(const std::string &path) {
  const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = SocketAddress(path);
  ASSERT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}

TEST(Listener, MakesAndRemovesItsFile) {
  const TempDir dir;
  {
    const Listener listener(dir.File("s"));
    EXPECT_TRUE(Exists(dir.File("s")));
  }
  EXPECT_FALSE(Exists(dir.File("s")));
}

TEST(Listener, IsThereForOwnerAndGroupUnderAnyUmask) {
  const TempDir dir;
  for (const mode_t mask : {0000, 0022, 0077, 0777}) {
    const mode_t before = umask(mask);
    const Listener listener(dir.File("s"));
    umask(before);
    struct stat info;
    ASSERT_EQ(lstat(dir.File("s").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0660u) << std::oct << mask;
  }
}

TEST(Listener, OfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const TempDir dir;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    if (chmod(dir.File("").c_str(), 0777) != 0 || setuid(65534) != 0) _exit(1);
    const Listener listener(dir.File("s"));
    if (write(ready[1], "", 1) == 1) pause();
    _exit(1);
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  // Who listens counts, not whose the file is made out to be.
  ASSERT_EQ(chown(dir.File("s").c_str(), 0, 0), 0);
  std::string said;
  try {
    EngineClient(dir.File("s"));
  } catch (const HostError &error) {
    said = error.what();
  }
  EXPECT_EQ(
      said,
      "the socket " + dir.File("s") +
          " belongs to user nobody, who is neither this user nor root (--trust nobody believes it all the "
          "same)");
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  for (const int fd : ready) close(fd);
}

TEST(Listener, TakesTheDeadEnginesPlace) {
  const TempDir dir;
  LeaveStaleSocket(dir.File("s"));
  ASSERT_TRUE(Exists(dir.File("s")));
  EXPECT_EQ(Problem(dir.File("s")), "");
}

TEST(Listener, LeavesALiveSocketAlone) {
  const TempDir dir;
  Listener first(dir.File("s"));
  first.Unlock();
  EXPECT_EQ(Problem(dir.File("s")), "something listens on " + dir.File("s") + " already (process " +
                                        std::to_string(getpid()) + " of user " + UserName(geteuid()) +
                                        "); stop that engine or name another path with --socket");
  EXPECT_TRUE(Exists(dir.File("s")));
}

TEST(Listener, LeavesOtherFilesAlone) {
  const TempDir dir;
  std::ofstream(dir.File("file")) << "precious";
  EXPECT_EQ(Problem(dir.File("file")),
            dir.File("file") + " is not a socket; name another path with --socket");
  std::string text;
  std::ifstream(dir.File("file")) >> text;
  EXPECT_EQ(text, "precious");
  ASSERT_EQ(symlink("nowhere", dir.File("link").c_str()), 0);
  EXPECT_EQ(Problem(dir.File("link")),
            dir.File("link") + " is not a socket; name another path with --socket");
}

TEST(Listener, RefusesImpossiblePaths) {
  const TempDir dir;
  EXPECT_EQ(Problem(""), "the socket's path is empty");
  EXPECT_EQ(Problem("/" + std::string(107, 'x')),
            "the socket's path has 108 characters, 107 are possible; name a shorter one with --socket");
  EXPECT_EQ(Problem(dir.File("no/s")),
            "cannot open the socket's directory " + dir.File("no") + ": No such file or directory");
}

TEST(Listener, DoesNotRemoveAnothersFile) {
  const TempDir dir;
  {
    const Listener listener(dir.File("s"));
    ASSERT_EQ(unlink(dir.File("s").c_str()), 0);
    std::ofstream(dir.File("s")) << "somebody else's";
  }
  EXPECT_TRUE(Exists(dir.File("s")));
}

TEST(Listener, OneOfManyGetsTheStaleSocket) {
  const TempDir dir;
  for (int round = 0; round < 20; ++round) {
    LeaveStaleSocket(dir.File("s"));
    std::atomic<int> won = 0;
    std::atomic<int> done = 0;
    std::list<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
      threads.emplace_back([&] {
        std::unique_ptr<Listener> listener;
        try {
          listener = std::make_unique<Listener>(dir.File("s"));
          listener->Unlock();
          ++won;
        } catch (const HostError &) {
        }
        for (++done; done < 8;) std::this_thread::yield();
      });
    }
    for (std::thread &thread : threads) thread.join();
    ASSERT_EQ(won, 1) << "round " << round;
  }
}

TEST(EngineClient, SaysThatNobodyListens) {
  const TempDir dir;
  LeaveStaleSocket(dir.File("s"));
  for (const std::string &path : {dir.File("s"), dir.File("none")}) {
    try {
      EngineClient client(path);
      ADD_FAILURE() << "connected to " << path;
    } catch (const HostError &error) {
      EXPECT_EQ(std::string(error.what()).find("no engine listens on " + path), 0u) << error.what();
    }
  }
}

TEST(EngineClient, WaitsForAFullQueueNoLongerThanTold) {
  const TempDir dir;
  const UniqueFd full(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = SocketAddress(dir.File("s"));
  ASSERT_EQ(bind(full.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(listen(full.get(), 0), 0);
  std::list<EngineClient> queued;
  try {
    for (int i = 0; i < 10; ++i) queued.emplace_back(dir.File("s"), std::chrono::milliseconds(100));
    ADD_FAILURE() << "the queue never filled";
  } catch (const HostError &error) {
    EXPECT_EQ(error.what(), "the engine does not accept a connection on " + dir.File("s"));
  }
}

}  // namespace
}  // namespace qdt::host
