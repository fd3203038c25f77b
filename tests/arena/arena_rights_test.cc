// Whose an arena is, who may use it, and what others leave where it is built.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/arena/arena.h"
#include "host/arena/arena_file.h"
#include "host/base/trust.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

constexpr uid_t kNobody = 65534;

class ArenaRights : public HostTest {
 protected:
  mode_t ModeOf(const std::string &path) const {
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0);
    return info.st_mode & 07777;
  }
  std::string Planted(const std::string &digits) const { return path_ + "." + digits + ".new"; }
};

TEST_F(ArenaRights, AreThoseOfOwnerAndGroupUnderAnyUmask) {
  for (const mode_t mask : {0000, 0022, 0077, 0777}) {
    const mode_t before = umask(mask);
    Start();
    umask(before);
    EXPECT_EQ(ModeOf(path_), 0660u) << std::oct << mask;
    Stop();
  }
}

TEST_F(ArenaRights, ABuildIsItsOwnersAlone) {
  const mode_t before = umask(0);
  const auto arena = Arena::Create(path_, TestPlan());
  umask(before);
  int files = 0;
  for (const auto &entry : std::filesystem::directory_iterator(dir_)) {
    EXPECT_EQ(ModeOf(entry.path()), 0600u);
    ++files;
  }
  EXPECT_EQ(files, 1);
}

// Files of every kind under names of builds: nothing is followed, nothing stops the engine, and what is no
// arena stays.
TEST_F(ArenaRights, WhatIsPlantedNeitherStopsNorMisleadsAnEngine) {
  const std::string victim = dir_ + "/victim";
  std::ofstream(victim) << "QDTARENA of somebody else's";
  std::filesystem::create_symlink(victim, Planted("1"));
  std::filesystem::create_symlink("nowhere", Planted("2"));
  ASSERT_EQ(mkfifo(Planted("3").c_str(), 0600), 0);
  std::filesystem::create_directory(Planted("4"));
  std::filesystem::create_symlink(Planted("5"), Planted("5"));
  std::filesystem::create_symlink(victim, Planted(std::to_string(getpid())));
  Start();
  EXPECT_EQ(Attach(Arena::Access::kLive), "attached");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path_)));
  std::ifstream kept(victim);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "QDTARENA of somebody else's");
  EXPECT_FALSE(std::filesystem::exists(dir_ + "/nowhere"));
  for (const char *digits : {"1", "2", "3", "4", "5"})
    EXPECT_NE(std::filesystem::symlink_status(Planted(digits)).type(), std::filesystem::file_type::not_found)
        << digits;
}

class ArenaOfAnother : public ArenaRights {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    ArenaRights::SetUp();
    Start();
    GiveAway(path_);
  }
  static void GiveAway(const std::string &path) { ASSERT_EQ(lchown(path.c_str(), kNobody, kNobody), 0); }
};

TEST_F(ArenaOfAnother, IsRefused) {
  const std::string said =
      "error: the arena at " + path_ +
      " belongs to user nobody, who is neither this user nor root (--trust nobody believes "
      "it all the same)";
  EXPECT_EQ(Attach(Arena::Access::kLive), said);
  EXPECT_EQ(InChild(&engine_,
                    [&] {
                      Arena::Look(path_, Arena::Access::kLive);
                      return std::string("looked");
                    }),
            said);
  // A copy is what it is, whoever has made it.
  EXPECT_EQ(Attach(Arena::Access::kSnapshot), "attached");
}

TEST_F(ArenaOfAnother, IsBelievedWhenItsOwnerIsTrusted) {
  for (const char *name : {"nobody", "65534"}) {
    EXPECT_EQ(InChild(&engine_,
                      [&] {
                        TrustUser(name);
                        Arena::Attach(path_, Arena::Access::kLive);
                        return std::string("attached");
                      }),
              "attached");
  }
}

// Its lock could be held for ever, and its header name any process as the one to kill.
TEST_F(ArenaOfAnother, TellsAnEngineNothing) {
  EXPECT_EQ(
      InChild(&engine_,
              [&] {
                Arena::CheckFree(path_);
                return std::string("free");
              }),
      "error: " + path_ + " belongs to user nobody and is left alone (choose another place with --arena)");
}

TEST_F(ArenaOfAnother, IsNoAbandonedBuild) {
  std::filesystem::rename(path_, Planted("17"));
  Stop();
  Start();
  EXPECT_TRUE(std::filesystem::exists(Planted("17")));
}

}  // namespace
}  // namespace qdt::host
