#include <memory>
#include <string>

#include "tests/fake_platform/fake_platform.h"
#include "tests/unit/frame/scripted_view.h"

// How the frame runs a query: modes, batches, framing lines, messages, and who releases what.
namespace qdt::test {
namespace {

const std::string kLine = "------------------------------";
const std::string kRecord = "  A  :  1\n";

class FrameTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    g_script = {};
  }
  void TearDown() override {
    EXPECT_TRUE(g_script.batches.empty()) << g_script.batches.size() << " batches were never asked for";
    PlatformTest::TearDown();
  }

  // Runs a query in an area of just this room; `result` is what it returned.
  std::string Ask(uint32_t id, const std::string &key1, uint32_t room = QDT_OUTPUT_CAPACITY) {
    const auto area = std::make_unique<char[]>(room);
    std::memset(area.get(), '#', room);
    g_script.answer = area.get();
    g_script.searches.clear();
    g_script.formats.clear();
    result = CliNqeTblSearch(area.get(), room, id, key1.c_str(), 21, 22, 23);
    return room == 0 ? "" : area.get();
  }

  std::string Ask(uint32_t id, const std::string &key1, std::deque<Batch> batches,
                  uint32_t room = QDT_OUTPUT_CAPACITY) {
    g_script.batches = std::move(batches);
    return Ask(id, key1, room);
  }

  std::vector<uint32_t> LoopNums() const {
    std::vector<uint32_t> nums;
    for (const SearchCall &call : g_script.searches) nums.push_back(call.loopNum);
    return nums;
  }
};

using Nums = std::vector<uint32_t>;

TEST_F(FrameTest, KeyQueryIsOneSearchAndOneFormat) {
  for (const int32_t found : {0, 1}) {
    EXPECT_EQ(Ask(kViewId, "10.0.0.1", {{.found = found}}), kLine + "\n" + kRecord + kLine);
    EXPECT_EQ(result, 30);
    EXPECT_EQ(g_script.searches, (std::vector<SearchCall>{{0, "10.0.0.1", 21, 22, 23}}));
    EXPECT_EQ(g_script.formats, (std::vector<FormatCall>{{31, 0x100000 - 31, 16}}));
  }
}

TEST_F(FrameTest, OtherWordsAreKeys) {
  for (const std::string key1 :
       {"0", "", "ALL", "All", "all ", " all", "al", "allx", "NUM5", "nu", "n", "nun5"}) {
    Ask(kViewId, key1, {{}});
    EXPECT_EQ(g_script.searches, (std::vector<SearchCall>{{0, key1, 21, 22, 23}}));
  }
}

TEST_F(FrameTest, AllFetchesBatchesToTheEnd) {
  EXPECT_EQ(Ask(kViewId, "all",
                {{.found = 1, .length = 800, .text = "one\n"},
                 {.found = 1, .length = 800, .text = "two\n"},
                 {.found = 0, .length = 48, .text = "three\n"}}),
            kLine + "\none\ntwo\nthree\n" + kLine);
  EXPECT_EQ(result, 30);
  EXPECT_EQ(g_script.searches, (std::vector<SearchCall>(3, {50, "all", 21, 22, 23})));
  EXPECT_EQ(
      g_script.formats,
      (std::vector<FormatCall>{{31, 0x100000 - 31, 800}, {35, 0x100000 - 35, 800}, {39, 0x100000 - 39, 48}}));
}

TEST_F(FrameTest, AllHasNoLimitOnBatches) {
  std::deque<Batch> batches(1000, Batch{.found = 1, .text = "x\n"});
  batches.push_back({.found = 0, .text = "y\n"});
  std::string records;
  for (int i = 0; i < 1000; ++i) records += "x\n";
  EXPECT_EQ(Ask(kViewId, "all", batches), kLine + "\n" + records + "y\n" + kLine);
  EXPECT_EQ(LoopNums(), Nums(1001, 50));
}

TEST_F(FrameTest, NumFetchesThatMany) {
  struct Case {
    const char *key1;
    std::vector<int32_t> found;
    Nums loopNums;
  };
  const Case cases[] = {
      {"num1", {0}, {1}},           {"num1", {1}, {1}},
      {"num49", {1}, {49}},         {"num50", {1}, {50}},
      {"num51", {1, 1}, {50, 1}},   {"num51", {0}, {50}},
      {"num75", {1, 0}, {50, 25}},  {"num99", {1, 1}, {50, 49}},
      {"num100", {1, 1}, {50, 50}}, {"num100", {1, 0}, {50, 50}},
      {"num100", {0}, {50}},        {"num5abc", {1}, {5}},
      {"num5 6", {1}, {5}},         {"num 5", {1}, {5}},
      {"num+5", {1}, {5}},          {"num05", {1}, {5}},
      {"num4294967297", {1}, {1}},  // the low 32 bits count
      {"num-4294967295", {1}, {1}}, {"num4294967396", {1, 1}, {50, 50}},
  };
  for (const Case &c : cases) {
    for (const int32_t found : c.found) g_script.batches.push_back({.found = found, .text = "r\n"});
    std::string records;
    for (size_t i = 0; i < c.found.size(); ++i) records += "r\n";
    EXPECT_EQ(Ask(kViewId, c.key1), kLine + "\n" + records + kLine) << c.key1;
    EXPECT_EQ(LoopNums(), c.loopNums) << c.key1;
    EXPECT_EQ(g_script.searches.front().key1, c.key1);
  }
}

TEST_F(FrameTest, NumOutOfRangeIsRefused) {
  for (const char *key1 : {"num", "num0", "num101", "num102", "num1000", "numx", "number", "num-1", "num-5",
                           "num4294967296", "num4294967397", "num2147483648", "num99999999999999999999",
                           "num-99999999999999999999", "num 0", "num0x10", "numall"}) {
    EXPECT_EQ(Ask(kViewId, key1), "invalid input param") << key1;
    EXPECT_EQ(result, 19) << key1;
    EXPECT_TRUE(g_script.searches.empty()) << key1;
  }
}

TEST_F(FrameTest, NumCopiesItsDigits) {
  Ask(kViewId, "num25", {{}});
  ASSERT_GE(platform.allocations.size(), 1u);
  EXPECT_EQ(platform.allocations[0].path, "src/om/nqe_cli/nqe_cli_tbl_query");
  EXPECT_EQ(platform.allocations[0].size, 3u);
  EXPECT_GT(platform.allocations[0].line, 0u);
}

TEST_F(FrameTest, NumWithoutMemoryIsRefused) {
  platform.FailAllocation(0);
  EXPECT_EQ(Ask(kViewId, "num5"), "invalid input param");
  EXPECT_TRUE(g_script.searches.empty());
}

TEST_F(FrameTest, TablesWalkedByKeyAreAlwaysWalkedToTheEnd) {
  struct Case {
    const char *key1;
    std::vector<int32_t> found;
    Nums loopNums;
  };
  const Case cases[] = {
      {"0", {0}, {50}},
      {"10.0.0.1", {1, 1, 0}, {50, 50, 50}},
      {"all", {1, 0}, {50, 50}},
      {"num5", {1, 1, 0}, {5, 50, 50}},
      {"num5", {0}, {5}},
      {"num50", {1, 0}, {50, 50}},
      {"num70", {1, 1, 1, 0}, {50, 20, 50, 50}},
      {"num100", {1, 1, 1, 0}, {50, 50, 50, 50}},
  };
  for (const Case &c : cases) {
    for (const int32_t found : c.found) g_script.batches.push_back({.found = found, .text = "r\n"});
    Ask(kWalkedByKeyId, c.key1);
    EXPECT_EQ(LoopNums(), c.loopNums) << c.key1;
    for (const SearchCall &call : g_script.searches) {
      EXPECT_EQ(call, (SearchCall{call.loopNum, c.key1, 21, 22, 23}));
    }
  }
  EXPECT_EQ(Ask(kWalkedByKeyId, "num0"), "invalid input param");
  EXPECT_EQ(Ask(kWalkedByKeyId, "num101"), "invalid input param");
}

TEST_F(FrameTest, RowsThatAreNotWholeAreInvalid) {
  for (const uint32_t id : {kNoViewId, kNoSearchId, kNoFormatId, 89u, 90u, 0x80000000u, 0xFFFFFFFFu}) {
    for (const char *key1 : {"0", "all", "num5"}) {
      EXPECT_EQ(Ask(id, key1), "invalid input param") << id;
      EXPECT_EQ(result, 19);
      EXPECT_TRUE(g_script.searches.empty());
    }
  }
  EXPECT_EQ(Ask(88, "0", {{}}), kLine + "\n" + kRecord + kLine);
}

TEST_F(FrameTest, UnframedTable) {
  EXPECT_EQ(Ask(kUnframedId, "all", {{.found = 1, .text = "one\n\n"}, {.text = "two\n\n"}}),
            "one\n\ntwo\n\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(g_script.formats[0], (FormatCall{0, 0x100000, 16}));
  EXPECT_EQ(Ask(kUnframedId, "0", {{.text = ""}}), "");
  EXPECT_EQ(result, 0);
}

TEST_F(FrameTest, EndLineTakesTheSecondOfTwoNewlines) {
  struct Case {
    const char *text;
    const char *shown;
  };
  const Case cases[] = {
      {"a\n\n", "a\n"},   {"a\n\n\n", "a\n\n"}, {"a\n", "a\n"}, {"a", "a"},
      {"a\n b", "a\n b"}, {"\n", ""},           {"\n\n", "\n"}, {"", ""},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(Ask(kViewId, "0", {{.text = c.text}}), kLine + "\n" + c.shown + kLine);
    EXPECT_EQ(result, 30);
  }
}

// Texts of 10 characters: the start line ends at 31, the record at 41, and the end line would end at 71.
TEST_F(FrameTest, EveryRoom) {
  for (uint32_t room = 0; room < 120; ++room) {
    platform.log.clear();
    g_script.batches = {{}};
    const std::string answer = Ask(kViewId, "0", room);
    if (room <= 22) {  // not even the message fits
      EXPECT_EQ(answer, "") << room;
      EXPECT_EQ(result, 0) << room;
      EXPECT_EQ(platform.log, (std::vector<LogLine>{{3, "Sprintf_s msg failed.\n"}})) << room;
    } else if (room <= 41) {
      EXPECT_EQ(answer, "parse data format fail") << room;
      EXPECT_EQ(result, 22) << room;
    } else {
      EXPECT_EQ(answer, kLine + "\n" + kRecord + (room - 41 > 30 ? kLine : "")) << room;
      EXPECT_EQ(result, room - 41 > 30 ? 30 : 0) << room;
    }
    EXPECT_EQ(g_script.searches.size(), room > 31 ? 1u : 0u) << room;
    if (room > 31) {
      EXPECT_EQ(g_script.formats, (std::vector<FormatCall>{{31, room - 31, 16}}));
    }
    if (room > 22) {
      EXPECT_TRUE(platform.log.empty()) << room;
    }
    g_script.batches.clear();
  }
}

// The end line would fit in place of the second newline, but the room is measured behind it.
TEST_F(FrameTest, EndLineNeedsItsRoomBehindTheText) {
  const Batch batch{.text = "a\n\n"};
  EXPECT_EQ(Ask(kViewId, "0", {batch}, 34 + 30), kLine + "\na\n\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Ask(kViewId, "0", {batch}, 34 + 31), kLine + "\na\n" + kLine);
  EXPECT_EQ(result, 30);
}

TEST_F(FrameTest, AnswerThatFillsUpIsReplaced) {
  EXPECT_EQ(Ask(kViewId, "all", {{.found = 1}, {.found = 1}, {.found = 1}}, 31 + 25),
            "parse data format fail");
  EXPECT_EQ(result, 22);
}

// More than the room cannot have been written.
TEST_F(FrameTest, AFormatsResultBeyondTheRoomIsAFailure) {
  for (const int32_t code : {69, 70, 1000, INT32_MAX}) {
    EXPECT_EQ(Ask(kViewId, "0", {{.formatCode = code}}, 100), "parse data format fail") << code;
    EXPECT_EQ(Ask(kViewId, "all", {{.found = 1}, {.found = 1, .formatCode = code}}, 110),
              "parse data format fail")
        << code;
    EXPECT_EQ(platform.liveAllocations(), 0u);
  }
}

TEST_F(FrameTest, EveryCodeHasItsMessage) {
  struct Case {
    int32_t code;
    const char *message;
  };
  const Case cases[] = {
      {-1, "search fail"},
      {-2, "search param wrong"},
      {-3, "memory operation error"},
      {-4, "search result is empty"},
      {-5, "table already exist"},
      {-6, "search is not supported"},
      {-7, "search result not found"},
      {-8, "table is full"},
      {-9, "search continue"},
      {-10, "stop this search"},
      {-11, "the search continues,a node is deleted"},
      {-12, "stop the search,a node is deleted"},
      {-113, "search return error protocal"},
      {-114, "search duplicate"},
      {-115, "search internal error"},
      {-116, "search not ready"},
      {-117, "nqecli malloc fail"},
      {-118, "format raw data fail"},
      {-119, "datasize empty or invalid"},
      {-120, "parse data format fail"},
      {-121, "invalid input param"},
      {-13, "Invalid error code"},
      {-112, "Invalid error code"},
      {-122, "Invalid error code"},
      {-100000, "Invalid error code"},
      {INT32_MIN, "Invalid error code"},
      {2, "Invalid error code"},
      {7, "Invalid error code"},
      {INT32_MAX, "Invalid error code"},
  };
  for (const Case &c : cases) {
    for (const bool delivers : {true, false}) {  // a failing search may leave a buffer behind
      EXPECT_EQ(Ask(kViewId, "0", {{.found = c.code, .delivers = delivers}}), c.message) << c.code;
      EXPECT_EQ(result, static_cast<int32_t>(std::strlen(c.message)));
      EXPECT_TRUE(g_script.formats.empty());
      EXPECT_EQ(platform.liveAllocations(), 0u);
    }
    if (c.code < 0) {
      EXPECT_EQ(Ask(kViewId, "0", {{.formatCode = c.code}}), c.message) << c.code;
      EXPECT_EQ(platform.liveAllocations(), 0u);
    }
    EXPECT_EQ(Ask(kViewId, "all", {{.found = 1}, {.found = c.code}}), c.message) << c.code;
  }
}

TEST_F(FrameTest, MessageReplacesWhatHasBeenWritten) {
  EXPECT_EQ(Ask(kViewId, "all", {{.found = 1}, {.found = 1, .formatCode = -118}}), "format raw data fail");
  EXPECT_EQ(result, 20);
}

// The format decides on empty batches, and sees what length the search stated.
TEST_F(FrameTest, EmptyBatchesGoToTheFormat) {
  EXPECT_EQ(Ask(kViewId, "all", {{.length = 0, .formatCode = -119}}), "datasize empty or invalid");
  EXPECT_EQ(g_script.formats, (std::vector<FormatCall>{{31, 0x100000 - 31, 0}}));
  EXPECT_EQ(Ask(kViewId, "all", {{.found = 1}, {.length = 0, .formatCode = -119}}),
            "datasize empty or invalid");
  EXPECT_EQ(g_script.formats.size(), 2u);
  EXPECT_EQ(Ask(kViewId, "0", {{.length = 0, .delivers = false, .text = ""}}), kLine + "\n" + kLine);
  EXPECT_EQ(Ask(kViewId, "0", {{.found = 1, .length = 0, .delivers = false, .formatCode = -119}}),
            "datasize empty or invalid");
}

TEST_F(FrameTest, ReleasesOnlyWhatItWasGiven) {
  Ask(kViewId, "num60", {{.found = 1}, {.found = 1}});
  EXPECT_EQ(platform.allocations.size(), 3u);  // the count's digits and two batches
  EXPECT_EQ(platform.liveAllocations(), 0u);
  Ask(kViewId, "0", {{.delivers = false}});
  EXPECT_EQ(platform.foreignFrees, 0);
}

// The entry point counts the answer, not what the query returned.
TEST_F(FrameTest, EntryPointPassesKeysOn) {
  std::vector<char> area(QDT_OUTPUT_CAPACITY, '#');
  g_script.answer = area.data();
  g_script.batches = {{.text = "a\n\n"}};
  char name[] = "diag", search[] = "search", table[] = "nqpTable", id[] = "0x1", key1[] = "sip:dip",
       key2[] = "010", key3[] = "0xFFFFFFFF", key4[] = "";
  char *words[] = {name, search, table, id, key1, key2, key3, key4};
  OutputBuffer out = {area.data(), 5};
  EXPECT_EQ(VrxDiagCmdRun(&out, 8, words), 63);
  EXPECT_EQ(out.len, 63u);
  EXPECT_EQ(out.buf, kLine + "\na\n" + kLine);
  EXPECT_EQ(g_script.searches, (std::vector<SearchCall>{{0, "sip:dip", 8, 0xFFFFFFFF, 0}}));
  EXPECT_EQ(g_script.formats, (std::vector<FormatCall>{{31, 0x100000 - 31, 16}}));
}

}  // namespace
}  // namespace qdt::test
