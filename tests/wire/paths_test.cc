#include "host/wire/paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "host/base/host_error.h"
#include "tests/wire/server_fixture.h"

namespace qdt::host {
namespace {

constexpr uid_t kUser = 54321;  // nobody has files of that number here
constexpr char kPrivate[] = "/tmp/nqe-54321";

// Places of a user who is not root. What it makes in /tmp it removes.
class UsersPlaces : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    ASSERT_EQ(chmod(dir_.File("").c_str(), 0755), 0);
    runtime_ = dir_.File("runtime");
    ASSERT_EQ(mkdir(runtime_.c_str(), 0700), 0);
    ASSERT_EQ(chown(runtime_.c_str(), kUser, kUser), 0);
  }
  void TearDown() override { std::filesystem::remove_all(kPrivate); }

  // What `work` says in a process of that user.
  std::string AsUser(const char *runtime, const std::function<std::string()> &work) {
    int pipe_[2];
    EXPECT_EQ(pipe(pipe_), 0);
    const pid_t child = fork();
    if (child == 0) {
      if (setgid(kUser) != 0 || setuid(kUser) != 0) _exit(1);
      runtime == nullptr ? unsetenv("XDG_RUNTIME_DIR") : setenv("XDG_RUNTIME_DIR", runtime, 1);
      umask(0);
      std::string said;
      try {
        said = work();
      } catch (const HostError &error) {
        said = error.what();
      }
      _exit(write(pipe_[1], said.data(), said.size()) == static_cast<ssize_t>(said.size()) ? 0 : 1);
    }
    close(pipe_[1]);
    std::string said(4096, 0);
    const ssize_t size = read(pipe_[0], said.data(), said.size());
    close(pipe_[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    said.resize(size < 0 ? 0 : size);
    return said;
  }
  std::string Make(const char *runtime) {
    return AsUser(runtime, [] {
      MakeDefaultDirectory();
      return std::string("made");
    });
  }
  static mode_t ModeOf(const std::string &path) {
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0);
    return info.st_mode & 07777;
  }

  TempDir dir_;
  std::string runtime_;
};

TEST_F(UsersPlaces, AreInTheRuntimeDirectoryIfItIsTheUsersOwn) {
  EXPECT_EQ(AsUser(runtime_.c_str(), DefaultArena), runtime_ + "/nqe/arena");
  EXPECT_EQ(AsUser(nullptr, DefaultArena), "/tmp/nqe-54321/arena");
  EXPECT_EQ(AsUser("", DefaultArena), "/tmp/nqe-54321/arena");
  EXPECT_EQ(AsUser("run", DefaultArena), "/tmp/nqe-54321/arena");
  EXPECT_EQ(AsUser("/run", DefaultArena), "/tmp/nqe-54321/arena");  // root's
  ASSERT_EQ(chmod(runtime_.c_str(), 0770), 0);
  EXPECT_EQ(AsUser(runtime_.c_str(), DefaultArena), "/tmp/nqe-54321/arena");
}

TEST_F(UsersPlaces, AreMadeForTheUserAlone) {
  EXPECT_EQ(Make(runtime_.c_str()), "made");
  EXPECT_EQ(ModeOf(runtime_ + "/nqe"), 0700u);
  EXPECT_EQ(Make(runtime_.c_str()), "made");
  EXPECT_EQ(Make(nullptr), "made");
  EXPECT_EQ(ModeOf(kPrivate), 0700u);
}

TEST_F(UsersPlaces, OfSomebodyElseAreRefused) {
  ASSERT_EQ(mkdir(kPrivate, 0777), 0);
  EXPECT_EQ(Make(nullptr), "/tmp/nqe-54321 belongs to user root (choose another place with --arena)");
  ASSERT_EQ(chown(kPrivate, kUser, kUser), 0);
  ASSERT_EQ(chmod(kPrivate, 0777), 0);
  EXPECT_EQ(Make(nullptr),
            "/tmp/nqe-54321 can be written by others than its owner (chmod go-w /tmp/nqe-54321)");
  ASSERT_EQ(rmdir(kPrivate), 0);
  ASSERT_EQ(symlink(runtime_.c_str(), kPrivate), 0);
  EXPECT_EQ(Make(nullptr),
            "/tmp/nqe-54321 is no directory that could be used (choose another place with --arena)");
}

TEST(Places, OfRootAreInRun) {
  if (geteuid() != 0) GTEST_SKIP() << "this user is not root";
  EXPECT_EQ(DefaultArena(), "/run/nqe/arena");
}

}  // namespace
}  // namespace qdt::host
