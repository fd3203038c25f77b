#include "host/arena/arena.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

#include "host/arena/arena_layout.h"
#include "host/arena/table_layout.h"
#include "host/base/mix.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

using Access = Arena::Access;

class ArenaTest : public HostTest {
 protected:
  // Overwrites bytes of the file at the path.
  void Poke(uint64_t offset, const void *bytes, size_t size) const {
    const int fd = open(path_.c_str(), O_RDWR);
    ASSERT_EQ(pwrite(fd, bytes, size, static_cast<off_t>(offset)), static_cast<ssize_t>(size));
    close(fd);
  }
  uint8_t Peek(uint64_t offset) const {
    uint8_t byte = 0;
    const int fd = open(path_.c_str(), O_RDONLY);
    EXPECT_EQ(pread(fd, &byte, 1, static_cast<off_t>(offset)), 1);
    close(fd);
    return byte;
  }
  ArenaHeader ReadHeader() const {
    ArenaHeader header = {};
    const int fd = open(path_.c_str(), O_RDONLY);
    EXPECT_EQ(pread(fd, &header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
    close(fd);
    return header;
  }
  // Puts a snapshot of a small engine at the path; no engine runs then.
  void LeaveSnapshot() {
    Start();
    Add(kUniqueTable, 1, 11);
    const std::string copy = Snapshot();
    Stop();
    std::filesystem::rename(copy, path_);
  }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(dir_))
      names.push_back(entry.path().filename());
    return names;
  }
  // The one file there, which is an arena that is being built; empty when there is something else.
  std::string Build() const {
    const std::vector<std::string> files = Files();
    const bool is = files.size() == 1 && std::regex_match(files[0], std::regex("arena\\.[0-9a-f]{16}\\.new"));
    return is ? files[0] : "";
  }
  static std::string OneLine(const std::string &said) {
    return said.find('\n') == std::string::npos ? said : "several lines: " + said;
  }
};

TEST_F(ArenaTest, NobodySeesTheArenaBeforeItIsPublished) {
  {
    const auto arena = Arena::Create(path_, TestPlan());
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_EQ(Build().substr(0, 6), "arena.");
  }
  EXPECT_EQ(Files(), std::vector<std::string>{});
}

TEST_F(ArenaTest, PublishedArenaCarriesItsEngine) {
  Start();
  EXPECT_EQ(Files(), std::vector<std::string>{"arena"});
  EXPECT_EQ(engine_->path(), path_);
  EXPECT_EQ(engine_->enginePid(), static_cast<uint32_t>(getpid()));
  EXPECT_EQ(engine_->socketPath(), "/tmp/nqed.sock");
  EXPECT_TRUE(engine_->EngineAlive());
  EXPECT_TRUE(engine_->Writable());
  EXPECT_EQ(Attach(Access::kLive), "attached");
}

TEST_F(ArenaTest, RetiredArenaIsGone) {
  Start();
  engine_->Retire();
  EXPECT_FALSE(engine_->EngineAlive());
  EXPECT_EQ(Files(), std::vector<std::string>{});
  EXPECT_EQ(Attach(Access::kLive), "error: no engine runs: there is no arena at " + path_ +
                                       " (start nqed, or name its arena with --arena)");
}

TEST_F(ArenaTest, RetireLeavesAnotherFileAtThePathAlone) {
  Start();
  std::filesystem::remove(path_);
  std::ofstream(path_) << "mine";
  engine_->Retire();
  EXPECT_EQ(Files(), std::vector<std::string>{"arena"});
}

TEST_F(ArenaTest, WhatADeadEngineLeftIsASnapshotOnly) {
  Start();
  const std::string expected =
      "error: the engine is gone: the arena at " + path_ +
      " was left by a process that has ended (start nqed; to look into what it left use "
      "--snapshot " +
      path_ + ")";
  Stop();
  EXPECT_EQ(Attach(Access::kLive), expected);
  EXPECT_EQ(Attach(Access::kSnapshot), "attached");
}

TEST_F(ArenaTest, ClientOutlivesAKilledEngine) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t engine = fork();
  if (engine == 0) {
    const auto arena = Arena::Create(path_, TestPlan());
    arena->Publish();
    if (write(ready[1], "x", 1) != 1) _exit(1);
    pause();
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  const auto client = Arena::Attach(path_, Access::kLive);
  EXPECT_TRUE(client->EngineAlive());
  kill(engine, SIGKILL);
  waitpid(engine, nullptr, 0);
  EXPECT_FALSE(client->EngineAlive());
}

TEST_F(ArenaTest, SnapshotIsIndependent) {
  Start();
  Add(kUniqueTable, 1, 11);
  Add(kSessionTable, 1, 12);
  const std::string copy = Snapshot();
  const uint32_t key = 1;
  EXPECT_EQ(writer_->Remove(kUniqueTable, &key), 0);
  Stop();
  ASSERT_EQ(chmod(copy.c_str(), 0400), 0);
  const auto before = std::filesystem::last_write_time(copy);
  EXPECT_EQ(InChild(nullptr,
                    [&]() -> std::string {
                      const auto arena = Arena::Attach(copy, Access::kSnapshot);
                      Arena::SetCurrent(arena.get());
                      if (arena->EngineAlive()) return "engine alive";
                      void *entry;
                      if (TbmTblSearch(0, kUniqueTable, &key, &entry) != 0) return "entry lost";
                      if (static_cast<Record *>(entry)->id != 11) return "entry changed";
                      if (TbmTblSearch(0, kSessionTable, &key, &entry) != 0) return "session lost";
                      static_cast<Record *>(entry)->id = 99;  // stays in this process
                      std::memset(arena->FindRegion("PKT_TRACE_CTX_PTR", nullptr), 1, 224);
                      return "good";
                    }),
            "good");
  EXPECT_EQ(std::filesystem::last_write_time(copy), before);
  path_ = copy;
  EXPECT_EQ(Attach(Access::kLive).substr(0, 25), "error: the engine is gone");
}

TEST_F(ArenaTest, SnapshotKeepsHoles) {
  Start();
  Add(kUniqueTable, 1, 11);
  struct stat copy;
  ASSERT_EQ(stat(Snapshot().c_str(), &copy), 0);
  EXPECT_EQ(static_cast<uint64_t>(copy.st_size), engine_->header()->totalSize);
  EXPECT_LT(copy.st_blocks * 512, 400000);
}

TEST_F(ArenaTest, EmptyTablesTakeNoStorage) {
  ArenaPlan plan = TestPlan();
  for (TableSpec &spec : plan.tables) {
    if (spec.dataSize != 0) continue;
    spec.keySize = 8;
    spec.dataSize = 1024;
    spec.recordSize = 1024;
    spec.capacity = 8192;
  }
  Start(plan);
  for (uint32_t id = 0; id < kTableCount; ++id) {
    const char key[20] = {};
    const char record[1024] = {};
    EXPECT_EQ(writer_->Insert(id, key, record, nullptr), 0);
  }
  struct stat info;
  ASSERT_EQ(stat(path_.c_str(), &info), 0);
  EXPECT_GT(info.st_size, 800 << 20);
  EXPECT_LT(info.st_blocks * 512, 12 << 20);
  EXPECT_LT(engine_->StorageBytes(), 12u << 20);
}

TEST_F(ArenaTest, TruncatedFilesAreRefused) {
  LeaveSnapshot();
  const uint64_t whole = ReadHeader().totalSize;
  ASSERT_EQ(Attach(), "attached");
  const std::string instead = " bytes instead of " + std::to_string(whole) + " (name another file)";
  // The first part page by page, the rest, which reads alike, in larger steps; sizes around the header as
  // well.
  std::vector<uint64_t> sizes = {0, 1, 7, 8, 100, sizeof(ArenaHeader) - 1, sizeof(ArenaHeader), whole - 1};
  for (uint64_t size = 4096; size < whole; size += 4096) sizes.push_back(size);
  std::sort(sizes.begin(), sizes.end(), std::greater<>());
  for (const uint64_t size : sizes) {
    ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(size)), 0);
    const std::string said = OneLine(ErrorOf([&] { Arena::Attach(path_, Access::kSnapshot); }));
    const std::string place = "the arena at " + path_;
    if (size < 8) {
      ASSERT_EQ(said, path_ + " is not an arena (name another file)");
    } else if (size < sizeof(ArenaHeader)) {
      ASSERT_EQ(said.substr(0, place.size()), place) << size;
    } else {
      ASSERT_EQ(said, place + " is truncated: " + std::to_string(size) + instead);
    }
  }
}

TEST_F(ArenaTest, FilesThatAreTooLongAreRefused) {
  LeaveSnapshot();
  const std::string whole = std::to_string(ReadHeader().totalSize);
  const std::string longer = std::to_string(ReadHeader().totalSize + 1);
  ASSERT_EQ(truncate(path_.c_str(), std::stol(longer)), 0);
  EXPECT_EQ(Attach(), "error: the arena at " + path_ + " is too long: " + longer + " bytes instead of " +
                          whole + " (name another file)");
}

// Who asks an engine can have it make another file.
TEST_F(ArenaTest, AnEnginesFileThatIsDamagedIsForTheEngineToWrite) {
  Start();
  const uint64_t wild = 0x4141414141414141;
  Poke(ReadHeader().infoOffset + sizeof(TbmGlobalInfo) + offsetof(TbmTableDesc, name), &wild, sizeof(wild));
  EXPECT_EQ(ErrorOf([&] { Arena::Look(path_, Access::kLive); }),
            "the arena at " + path_ + " has damaged table descriptors (let nqed write it again)");
}

TEST_F(ArenaTest, EveryFlippedHeaderByteIsRefused) {
  LeaveSnapshot();
  for (size_t i = 0; i < sizeof(ArenaHeader); ++i) {
    const uint8_t good = Peek(i);
    for (const uint8_t flip : {0x01, 0x80, 0xff}) {
      const uint8_t bad = good ^ flip;
      Poke(i, &bad, 1);
      const std::string said = OneLine(ErrorOf([&] { Arena::Attach(path_, Access::kSnapshot); }));
      ASSERT_NE(said.find(path_), std::string::npos) << "byte " << i << ": " << said;
    }
    Poke(i, &good, 1);
  }
  EXPECT_EQ(Attach(), "attached");
}

// Root may map memory there, and what leads nowhere would lead into the arena.
TEST_F(ArenaTest, NoArenaStandsAtAddressZero) {
  LeaveSnapshot();
  ArenaHeader header = ReadHeader();
  const uint32_t state = header.state;
  header.base = 0;
  header.headerSum = 0;
  header.state = 0;
  header.headerSum = MixBytes(&header, sizeof(header));
  header.state = state;
  Poke(0, &header, sizeof(header));
  EXPECT_EQ(Attach(), "error: the arena at " + path_ + " has a damaged header (name another file)");
}

TEST_F(ArenaTest, EveryFlippedDirectoryByteIsRefused) {
  LeaveSnapshot();
  const ArenaHeader header = ReadHeader();
  for (uint64_t i = 0; i < header.directorySize; ++i) {
    const uint8_t good = Peek(header.directoryOffset + i);
    const uint8_t bad = good ^ 0x10;
    Poke(header.directoryOffset + i, &bad, 1);
    ASSERT_EQ(ErrorOf([&] { Arena::Attach(path_, Access::kSnapshot); }),
              "the arena at " + path_ + " has a damaged table directory (name another file)");
    Poke(header.directoryOffset + i, &good, 1);
  }
}

TEST_F(ArenaTest, DamagedDescriptorsAreRefused) {
  LeaveSnapshot();
  const uint64_t name = ReadHeader().infoOffset + sizeof(TbmGlobalInfo) + offsetof(TbmTableDesc, name);
  const uint64_t wild = 0x4141414141414141;
  Poke(name, &wild, sizeof(wild));
  EXPECT_EQ(Attach(), "error: the arena at " + path_ + " has damaged table descriptors (name another file)");
}

TEST_F(ArenaTest, DamagedTablesNeverCrashAReader) {
  LeaveSnapshot();
  const ArenaHeader header = ReadHeader();
  // All of the changing state: serials, heads, counts.
  const std::vector<uint8_t> noise(kTableCount * sizeof(tbm::TableState), 0xa5);
  Poke(header.stateOffset, noise.data(), noise.size());
  const std::string said = InChild(nullptr, [&]() -> std::string {
    const auto arena = Arena::Attach(path_, Access::kSnapshot);
    Arena::SetCurrent(arena.get());
    for (uint32_t id = 0; id < kTableCount; ++id) {
      uint64_t key[4] = {};
      char buffer[4096];
      uint32_t bytes = sizeof(buffer);
      void *entry;
      TbmTravContext ctx;
      TbmTblTravContextInit(&ctx);
      TbmTblSearch(0, id, key, &entry);
      TbmTblMatch(0, id, key, &entry);
      TbmTblTravNext(0, id, &ctx, buffer, &bytes);
      TbmTblTravContextInit(&ctx);
      TbmTblTravNextByKey(0, id, key, &ctx, buffer, &bytes);
    }
    return "survived";
  });
  EXPECT_EQ(said, "survived");
}

TEST_F(ArenaTest, OtherVersionsAndByteOrdersAreNamed) {
  LeaveSnapshot();
  const uint32_t version = kArenaVersion + 6;
  Poke(offsetof(ArenaHeader, version), &version, sizeof(version));
  EXPECT_EQ(Attach(),
            "error: the arena at " + path_ +
                " was written by version 12, this program reads version 6 (use tools and engine of one "
                "version)");
  Poke(offsetof(ArenaHeader, byteOrder), &kByteOrderSwapped, sizeof(kByteOrderSwapped));
  EXPECT_EQ(Attach(), "error: the arena at " + path_ +
                          " is in the other byte order (read it on a machine like its engine's)");
}

TEST_F(ArenaTest, WhatIsNoArenaIsRefused) {
  std::ofstream(path_) << std::string(100000, 'x');
  const std::string said = "error: " + path_ + " is not an arena (name another file)";
  EXPECT_EQ(Attach(Access::kLive), said);
  EXPECT_EQ(Attach(Access::kSnapshot), said);
  std::filesystem::remove(path_);
  EXPECT_EQ(Attach(), "error: there is no snapshot at " + path_ + " (write one with nqecli snapshot FILE)");
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(Attach(Access::kLive), said);
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  EXPECT_EQ(Attach(Access::kSnapshot), said);
}

TEST_F(ArenaTest, UnfinishedArenaIsRefused) {
  const auto arena = Arena::Create(path_, TestPlan());
  path_ = dir_ + "/" + Build();
  EXPECT_EQ(ErrorOf([&] { Arena::Attach(path_, Access::kLive); }),
            "the arena at " + path_ + " is not finished (wait until nqed has published it)");
}

TEST_F(ArenaTest, BaseInUseIsToldAndAvoided) {
  Start();
  // This process has the engine's own mapping at that address.
  char address[32];
  std::snprintf(address, sizeof(address), "0x%llx", static_cast<unsigned long long>(engine_->header()->base));
  EXPECT_EQ(ErrorOf([&] { Arena::Attach(path_, Access::kLive); }),
            "cannot map the arena at " + path_ + " at its address " + address +
                ": in use in this process (start the tool again)");
  const auto second = Arena::Create(path_ + "2", TestPlan());
  EXPECT_NE(second->header()->base, engine_->header()->base);
  EXPECT_EQ(second->header()->base, reinterpret_cast<uint64_t>(second->header()));
}

TEST_F(ArenaTest, ForeignFileAtThePathIsLeftAlone) {
  std::ofstream(path_) << "precious";
  const std::string expected =
      path_ + " is not an arena and is left alone (choose another place with --arena)";
  EXPECT_EQ(ErrorOf([&] { Arena::CheckFree(path_); }), expected);
  {
    const auto arena = Arena::Create(path_, TestPlan());
    EXPECT_EQ(ErrorOf([&] { arena->Publish(); }), expected);
  }
  std::string text;
  std::ifstream(path_) >> text;
  EXPECT_EQ(text, "precious");
  EXPECT_EQ(Files(), std::vector<std::string>{"arena"});
}

TEST_F(ArenaTest, SecondEngineIsRefused) {
  Start();
  const std::string pid = std::to_string(getpid());
  const std::string expected = "an engine runs already on the arena " + path_ + ": process " + pid +
                               " (stop it with kill " + pid + ", or use another --arena)";
  EXPECT_EQ(ErrorOf([&] { Arena::CheckFree(path_); }), expected);
  EXPECT_EQ(InChild(nullptr,
                    [&] {
                      Arena::Create(path_, TestPlan())->Publish();
                      return std::string("published");
                    }),
            "error: " + expected);
  EXPECT_EQ(Files(), std::vector<std::string>{"arena"});
}

TEST_F(ArenaTest, DeadEnginesPlaceIsTaken) {
  Start();
  Add(kUniqueTable, 1, 1);
  const uint64_t first = engine_->header()->identity;
  Stop();
  Arena::CheckFree(path_);
  Start();
  EXPECT_NE(engine_->header()->identity, first);
  const uint32_t key = 1;
  void *entry;
  EXPECT_EQ(TbmTblSearch(0, kUniqueTable, &key, &entry), -7);
  EXPECT_EQ(Attach(Access::kLive), "attached");
}

TEST_F(ArenaTest, OneOfTwoRacingEnginesWins) {
  for (int round = 0; round < 20; ++round) {
    // Every other round there is a dead engine's arena to take over.
    if (round % 2 == 0) std::filesystem::remove(path_);
    int gate[2];
    int ready[2];
    int result[2];
    ASSERT_EQ(pipe(gate), 0);
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(result), 0);
    pid_t engines[4];
    for (pid_t &engine : engines) {
      engine = fork();
      if (engine != 0) continue;
      char byte;
      char said = 'w';
      std::unique_ptr<Arena> arena;
      try {
        arena = Arena::Create(path_, TestPlan());
      } catch (const HostError &) {
        said = 'l';
      }
      if (write(ready[1], "r", 1) != 1 || read(gate[0], &byte, 1) != 1) _exit(1);
      try {
        if (arena != nullptr) arena->Publish();
      } catch (const HostError &) {
        said = 'l';
      }
      if (write(result[1], &said, 1) != 1) _exit(1);
      pause();
    }
    std::string results(4, ' ');
    for (char &one : results) ASSERT_EQ(read(ready[0], &one, 1), 1);
    ASSERT_EQ(write(gate[1], "gggg", 4), 4);
    for (char &one : results) ASSERT_EQ(read(result[0], &one, 1), 1);
    EXPECT_EQ(std::count(results.begin(), results.end(), 'w'), 1) << results;
    EXPECT_EQ(Attach(Access::kLive), "attached");
    for (const pid_t engine : engines) {
      kill(engine, SIGKILL);
      waitpid(engine, nullptr, 0);
    }
    for (const int fd : {gate[0], gate[1], ready[0], ready[1], result[0], result[1]}) close(fd);
  }
}

TEST_F(ArenaTest, AbandonedBuildsAreCleanedUp) {
  const pid_t engine = fork();
  if (engine == 0) {
    const auto arena = Arena::Create(path_, TestPlan());
    kill(getpid(), SIGKILL);
  }
  waitpid(engine, nullptr, 0);
  ASSERT_NE(Build(), "");
  std::ofstream(path_ + ".17.new") << "not an arena";
  std::ofstream(path_ + ".x.new") << "QDTARENA";
  Start();
  std::vector<std::string> files = Files();
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"arena", "arena.17.new", "arena.x.new"}));
}

TEST_F(ArenaTest, UnfinishedBuildOfALivingEngineIsLeftAlone) {
  const auto building = Arena::Create(path_, TestPlan());
  EXPECT_EQ(InChild(nullptr,
                    [&] {
                      Arena::Create(path_, TestPlan())->Publish();
                      return std::string("published");
                    }),
            "published");
  EXPECT_EQ(Files().size(), 2u);
}

class Unprivileged : public ArenaTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
    ArenaTest::SetUp();
    Start();
  }
  std::string AsNobody(const std::function<std::string()> &work) {
    return InChild(&engine_, [&] { return setgid(65534) == 0 && setuid(65534) == 0 ? work() : "no setuid"; });
  }
};

TEST_F(Unprivileged, NoPermissionIsTold) {
  ASSERT_EQ(chmod(path_.c_str(), 0600), 0);
  EXPECT_EQ(AsNobody([&] {
              Arena::Attach(path_, Access::kLive);
              return std::string("attached");
            }),
            "error: no permission to read the arena at " + path_ + " (ask its owner, or run as that user)");
  EXPECT_EQ(
      AsNobody([&] {
        Arena::Create(path_, TestPlan());
        return std::string("created");
      }),
      "error: cannot create the arena " + path_ + ": Permission denied (choose another place with --arena)");
}

TEST_F(Unprivileged, ReadOnlyClientReadsAndItsWritesReachNobody) {
  ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
  auto *session = static_cast<Record *>(Add(kSessionTable, 1, 1));
  EXPECT_EQ(AsNobody([&]() -> std::string {
              const auto client = Arena::Attach(path_, Access::kLive);
              Arena::SetCurrent(client.get());
              const uint32_t key = 1;
              void *entry;
              if (TbmTblSearch(0, kSessionTable, &key, &entry) != 0) return "no entry";
              static_cast<Record *>(entry)->id = 99;  // must not fault
              return client->Writable() ? "writable" : "read-only";
            }),
            "read-only");
  EXPECT_EQ(session->id, 1u);
}

TEST_F(ArenaTest, MissingDirectoryIsTold) {
  EXPECT_EQ(ErrorOf([&] { Arena::Create(dir_ + "/no/arena", TestPlan()); }),
            "cannot create the arena " + dir_ +
                "/no/arena: No such file or directory (choose another place with --arena)");
}

TEST_F(ArenaTest, FileSizeLimitIsToldAndNoSignal) {
  EXPECT_EQ(InChild(nullptr,
                    [&] {
                      const rlimit limit = {1 << 20, 1 << 20};
                      setrlimit(RLIMIT_FSIZE, &limit);
                      Arena::Create(path_, TestPlan());
                      return std::string("created");
                    }),
            "error: cannot create the arena " + path_ +
                ": File too large (make room, or choose another place with --arena)");
  EXPECT_EQ(Files(), std::vector<std::string>{});
}

class FullDisk : public ArenaTest {
 protected:
  bool Mount(const char *size) {
    return mount("tmpfs", dir_.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) == 0;
  }
  void TearDown() override {
    Stop();
    umount2(dir_.c_str(), MNT_DETACH);
  }
};

TEST_F(FullDisk, CreationFails) {
  if (!Mount("16k")) GTEST_SKIP() << "no permission to mount a file system";
  EXPECT_EQ(ErrorOf([&] { Arena::Create(path_, TestPlan()); }),
            "cannot create the arena " + path_ +
                ": No space left on device (make room, or choose another place with --arena)");
  EXPECT_EQ(Files(), std::vector<std::string>{});
}

TEST_F(FullDisk, InsertionFailsAndEverythingElseGoesOn) {
  if (!Mount("512k")) GTEST_SKIP() << "no permission to mount a file system";
  Start();
  int32_t status = 0;
  uint32_t inserted = 0;
  for (; status == 0 && inserted < 16384; ++inserted) {
    const Record record = Record::Make(inserted);
    status = writer_->Insert(kUniqueTable, &inserted, &record, nullptr);
  }
  EXPECT_EQ(status, -3);
  --inserted;
  EXPECT_GT(inserted, 100u);
  uint32_t count = 0;
  EXPECT_EQ(TbmTblEntryNum(0, kUniqueTable, &count), 0);
  EXPECT_EQ(count, inserted);
  EXPECT_EQ(Walk(kUniqueTable, 100, &status).size(), inserted);
  const uint32_t key = 0;
  EXPECT_EQ(writer_->Remove(kUniqueTable, &key), 0);
}

}  // namespace
}  // namespace qdt::host
