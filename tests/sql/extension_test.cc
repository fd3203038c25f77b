#include <fstream>

#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

// A program that has SQLite and knows nothing of engines.
class ExtensionTest : public testing::Test {
 protected:
  ExtensionTest() {
    EXPECT_EQ(sqlite3_open(":memory:", &plain_.handle), SQLITE_OK);
    EXPECT_EQ(sqlite3_enable_load_extension(plain_.handle, 1), SQLITE_OK);
    char *message = nullptr;
    EXPECT_EQ(sqlite3_load_extension(plain_.handle, QDT_SQL_EXTENSION, nullptr, &message), SQLITE_OK)
        << message;
    sqlite3_free(message);
  }
  std::string Ask(const std::string &statement) { return plain_.Ask(statement); }
  std::string Attach(const std::string &path) { return Ask("SELECT nqe_attach('" + path + "')"); }

  struct Plain : Database {
    Plain() { sqlite3_close(std::exchange(handle, nullptr)); }
  } plain_;
  TempDir dir_;
};

TEST_F(ExtensionTest, ShowsWhatIsAttached) {
  EXPECT_EQ(Ask("SELECT * FROM fib"),
            "error: no arena is attached (SELECT nqe_attach('PATH'), or nqe_attach('PATH', 'frozen'))");
  EXPECT_EQ(Attach(CampusSnapshot()), "1\n");
  EXPECT_EQ(Ask("SELECT count(*), count(next_hop) FROM fib"), "13|12\n");
  EXPECT_EQ(Ask("SELECT prefix FROM fib WHERE match = '192.0.2.9'"), "26\n");
  EXPECT_EQ(Ask("SELECT mac('0200.5e00.5301')"), "02:00:5e:00:53:01\n");
}

TEST_F(ExtensionTest, AttachedAgainIsThereOnce) {
  EXPECT_EQ(Attach(CampusSnapshot()), "1\n");
  EXPECT_EQ(Attach(CampusSnapshot()), "1\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM fib"), "13\n");
}

TEST_F(ExtensionTest, TwoAreToldApartByAHiddenColumn) {
  const std::string other = dir_.File("other");
  SaveText("arp: [{vpn: 0, next_hop: 192.0.2.99}]", other);
  EXPECT_EQ(Attach(CampusSnapshot()), "1\n");
  EXPECT_EQ(Attach(other), "2\n");
  EXPECT_EQ(Ask("SELECT count(*), count(DISTINCT _arena) FROM arp"), "45|2\n");
  EXPECT_EQ(Ask("SELECT next_hop FROM arp WHERE _arena = '" + other + "'"), "192.0.2.99\n");
}

// While a statement walks.
TEST_F(ExtensionTest, AttachingWithinAStatement) {
  for (const char *name : {"a", "b", "c", "d"}) {
    SaveText("arp: [{vpn: 0, next_hop: 192.0.2.1}, {vpn: 0, next_hop: 192.0.2.2}]", dir_.File(name));
  }
  Attach(dir_.File("a"));
  Attach(dir_.File("b"));
  const std::string answer = Ask("SELECT nqe_attach('" + dir_.path() +
                                 "/' || substr('cdab', row_number() OVER (), 1)) "
                                 "FROM arp");
  EXPECT_EQ(answer, "3\n4\n4\n4\n");
  EXPECT_EQ(Ask("SELECT count(*) FROM arp"), "8\n");
}

TEST_F(ExtensionTest, WrongWords) {
  EXPECT_EQ(Attach(dir_.File("none")),
            "error: there is no snapshot at " + dir_.File("none") + " (write one with nqecli snapshot FILE)");
  std::ofstream(dir_.File("text")) << "no arena at all";
  const std::string text = Attach(dir_.File("text"));
  EXPECT_TRUE(text.starts_with("error: ") && text.find(dir_.File("text")) != std::string::npos) << text;
  EXPECT_EQ(Ask("SELECT nqe_attach('x', 'thawed')"),
            "error: nqe_attach: \"thawed\" is not a way to look (write 'live' or 'frozen')");
  EXPECT_TRUE(Ask("SELECT nqe_attach(NULL)").starts_with("error: "));
  EXPECT_TRUE(Ask("SELECT nqe_attach('')").starts_with("error: "));
  EXPECT_TRUE(Ask("SELECT nqe_attach()").starts_with("error: wrong number of arguments"));
}

// What opens files is not for views and triggers of a database that somebody sent.
TEST_F(ExtensionTest, ViewsAttachNothing) {
  EXPECT_EQ(Ask("CREATE VIEW v AS SELECT nqe_attach('x') AS a"), "");
  EXPECT_EQ(Ask("SELECT * FROM v"), "error: unsafe use of nqe_attach()");
}

}  // namespace
}  // namespace qdt::host
