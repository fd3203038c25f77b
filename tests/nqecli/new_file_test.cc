#include "tools/nqecli/output/new_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "host/base/host_error.h"

namespace qdt::nqecli {
namespace {

class NewFileTest : public ::testing::TestWithParam<NewFile::Way> {
 protected:
  NewFileTest() {
    std::string name = "/tmp/new_file_test.XXXXXX";
    dir_ = mkdtemp(name.data());
    file_ = dir_ / "copy";
  }
  ~NewFileTest() override { std::filesystem::remove_all(dir_); }

  size_t Files() const {
    return std::distance(std::filesystem::directory_iterator(dir_), std::filesystem::directory_iterator());
  }
  // A process that is killed while it writes the file.
  void KillAWriter() const {
    const pid_t child = fork();
    if (child == 0) {
      NewFile copy(file_, GetParam());
      if (write(copy.fd(), "half", 4) == 4) kill(getpid(), SIGKILL);
      _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
  }

  std::filesystem::path dir_;
  std::filesystem::path file_;
};

INSTANTIATE_TEST_SUITE_P(Ways, NewFileTest,
                         testing::Values(NewFile::Way::kNamelessIfPossible, NewFile::Way::kNamed));

TEST_P(NewFileTest, HasItsNameOnceItIsKept) {
  {
    NewFile copy(file_, GetParam());
    ASSERT_EQ(write(copy.fd(), "whole", 5), 5);
    EXPECT_FALSE(std::filesystem::exists(file_));
    copy.Keep();
  }
  EXPECT_EQ(Files(), 1u);
  std::ifstream kept(file_);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "whole");
  EXPECT_EQ(std::filesystem::status(file_).permissions() & std::filesystem::perms::others_all,
            std::filesystem::perms::none);
}

TEST_P(NewFileTest, LeavesNothingUnlessItIsKept) {
  { const NewFile copy(file_, GetParam()); }
  EXPECT_EQ(Files(), 0u);
}

TEST_P(NewFileTest, OfAKilledWriterGoesWithTheNext) {
  KillAWriter();
  EXPECT_EQ(Files(), GetParam() == NewFile::Way::kNamed ? 1u : 0u);
  {
    NewFile copy(file_);
    copy.Keep();
  }
  EXPECT_EQ(Files(), 1u);
  EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_P(NewFileTest, OfALivingWriterStays) {
  NewFile first(file_, NewFile::Way::kNamed);
  { const NewFile second(file_, GetParam()); }
  EXPECT_EQ(Files(), 1u);
  first.Keep();
  EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_P(NewFileTest, TakesNobodysPlace) {
  NewFile copy(file_, GetParam());
  std::ofstream(file_) << "older";
  EXPECT_THROW(copy.Keep(), host::HostError);
  EXPECT_THROW(NewFile(file_, GetParam()), host::HostError);
  std::ifstream kept(file_);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "older");
}

TEST_P(NewFileTest, FollowsNothingThatIsPlanted) {
  const std::filesystem::path victim = dir_ / "victim";
  std::ofstream(victim) << "somebody else's";
  const std::string names = file_.string() + ".tmp";
  std::filesystem::create_symlink(victim, names + std::to_string(getpid()));
  std::filesystem::create_symlink(dir_ / "nowhere", names + "1");
  ASSERT_EQ(mkfifo((names + "2").c_str(), 0600), 0);
  std::filesystem::create_directory(names + "3");
  if (geteuid() == 0) {
    std::ofstream(names + "4") << "another user's";
    ASSERT_EQ(chown((names + "4").c_str(), 65534, 65534), 0);
  }
  const size_t before = Files();
  NewFile(file_, GetParam()).Keep();
  EXPECT_EQ(Files(), before + 1);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file_)));
  std::ifstream kept(victim);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "somebody else's");
}

}  // namespace
}  // namespace qdt::nqecli
