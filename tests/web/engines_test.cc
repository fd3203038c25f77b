#include "host/web/engines.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "host/base/host_error.h"
#include "host/web/lost_pages.h"
#include "host/web/server.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

using Named = WebEngines::Named;

std::vector<std::string> NamesOf(std::vector<Named> paths) {
  std::vector<std::string> names;
  WebEngines engines(paths);
  for (WebEngine &engine : engines.all()) names.push_back(engine.name());
  return names;
}

TEST(WebEnginesTest, AreNamedByAsMuchOfThePathAsTellsThemApart) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(NamesOf({{"/run/nqe/arena"}}), (Names{"arena"}));
  EXPECT_EQ(NamesOf({{"/run/a/arena"}, {"/run/b/arena"}, {"/x/monday.snapshot", true}}),
            (Names{"a/arena", "b/arena", "monday.snapshot"}));
  EXPECT_EQ(NamesOf({{"arena"}, {"/run/arena"}}), (Names{"arena", "run/arena"}));
  EXPECT_THROW(NamesOf({{"/a"}, {"/a", true}}), HostError);
}

TEST(WebEnginesTest, AreFoundByName) {
  const Named paths[] = {{"/none/one"}, {"/none/two", true}};
  WebEngines engines(paths);
  EXPECT_EQ(engines.Find("").name(), "one");
  EXPECT_EQ(engines.Find("two").name(), "two");
  EXPECT_THROW(engines.Find("three"), WebProblem);
  // Files have any names; documents tell them escaped.
  const Named odd[] = {{"/none/a\x1b[31m\\b"}};
  EXPECT_EQ(WebEngines(odd).Find("a\\x1b[31m\\\\b").name(), "a\x1b[31m\\b");
  EXPECT_EQ(WebEngines(odd).Find("a\x1b[31m\\b").name(), "a\x1b[31m\\b");
}

TEST(WebEngineTest, TellsWhyItCannotBeRead) {
  WebEngine missing("a", "/no/such/arena", false);
  EXPECT_EQ(missing.Look().state, EngineState::kMissing);
  WebEngine none("b", "/etc/passwd", true);
  EXPECT_EQ(none.Look().state, EngineState::kDamaged);
  EXPECT_EQ(none.Look().message, "/etc/passwd is not an arena (name another file)");
  try {
    missing.Borrow();
    FAIL();
  } catch (const WebProblem &problem) {
    EXPECT_EQ(problem.Answer().status, 503u);
    EXPECT_NE(problem.Answer().body.find(R"("type":"urn:qdt:problem:engine-missing")"), std::string::npos);
  }
}

TEST(SurviveTest, LeavesAFileThatIsCutShort) {
  WatchLostPages();
  const TempDir directory;
  const std::string path = directory.path() + "/file";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(ftruncate(fd, 8192), 0);
  const auto *bytes = static_cast<const volatile char *>(mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fd, 0));
  EXPECT_TRUE(Survive([&] { EXPECT_EQ(bytes[4096], 0); }));
  ASSERT_EQ(ftruncate(fd, 0), 0);
  bool behind = false;
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(Survive([&] {
      if (bytes[4096] == 0) behind = true;
    }));
  }
  EXPECT_FALSE(behind);
  EXPECT_THROW(Survive([] { throw HostError("x"); }), HostError);
  munmap(const_cast<char *>(bytes), 8192);
  close(fd);
}

TEST(WebAddressTest, IsANumberWithAPort) {
  EXPECT_EQ(ReadWebAddress("127.0.0.1:80").Text(), "127.0.0.1:80");
  EXPECT_EQ(ReadWebAddress("[::1]:80").Text(), "[::1]:80");
  EXPECT_TRUE(ReadWebAddress("127.1.2.3:80").IsLoopback());
  EXPECT_TRUE(ReadWebAddress("[::1]:80").IsLoopback());
  EXPECT_FALSE(ReadWebAddress("0.0.0.0:80").IsLoopback());
  EXPECT_FALSE(ReadWebAddress("[::]:80").IsLoopback());
  for (const char *wrong : {"", "80", ":80", "localhost:80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536",
                            "::1:80", "[127.0.0.1]:80", "127.0.0.1:80x"}) {
    EXPECT_THROW(ReadWebAddress(wrong), HostError) << wrong;
  }
}

}  // namespace
}  // namespace qdt::host
