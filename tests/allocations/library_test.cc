#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <sstream>
#include <vector>

#include "host/agent/handlers.h"
#include "host/base/words.h"
#include "host/library/entry_points.h"
#include "host/library/services.h"
#include "host/library/table_query.h"
#include "host/omcc/model.h"
#include "platform/memory.h"
#include "qdt/oma.h"
#include "qdt/tables.h"
#include "tests/allocations/failing.h"
#include "tests/views_data/view_map.h"
#include "tests/views_data/view_stage.h"

// Each allocation of each view, command and handler fails once. What there is is taken from the library's own
// registries, so that what is new is in it by itself.
namespace qdt::host {
namespace {

// An arena in which each view finds the entries that it is asked for, and an engine that answers all lines.
class Lab {
 public:
  Lab() {
    std::mt19937_64 chance(1);
    for (const MapView &view : Maps()) {
      for (const MapCase &wanted : view.cases) {
        stage_.Take(Shown::Of(view.table), wanted.key);
        stage_.FillEntry(ViewStage::Fill::kFields, &chance);
      }
    }
    SetEngineChannel([](std::string_view line) {
      return EngineReply{kReplyOk, "said to " + std::string(line), {}};
    });
  }
  ~Lab() { SetEngineChannel(nullptr); }

  std::string Ask(uint32_t view, const std::vector<std::string> &words) const {
    return stage_.Text(view, words);
  }

  static Lab &Get() {
    static Lab lab;
    return lab;
  }

 private:
  ViewStage stage_;
};

class AllocationsTest : public testing::Test {
 protected:
  void SetUp() override { Lab::Get(); }
  void TearDown() override { Allocations::FailNone(); }
};

// The words of the queries by which the view's map finds its entries, and those that list.
std::vector<std::vector<std::string>> QueriesOf(uint32_t view) {
  std::vector<std::vector<std::string>> queries;
  for (const MapView &map : Maps()) {
    if (map.id != view) continue;
    for (const MapCase &wanted : map.cases) queries.push_back(wanted.query);
  }
  if (queries.empty()) queries.push_back({"0", "0", "0", "0"});
  for (const char *listed : {"all", "num3"}) {
    std::vector<std::string> words = queries[0];
    words[0] = listed;
    queries.push_back(words);
  }
  return queries;
}

constexpr uint32_t kNatPolicyView = 67;

// Some views show what the library or the table manager knows without a record.
bool TakesNoRecord(uint32_t view) {
  constexpr uint32_t kCounted[] = {47, 59};
  return std::ranges::find(kCounted, view) != std::end(kCounted);
}

// A count is read in a buffer of its own, without which it cannot be understood. The lookup of a NAT policy
// takes two, for its line and for the engine's reply, without which nothing is found.
Said ShortView(uint32_t view, const std::vector<std::string> &words, size_t number) {
  const bool counted = words[0].starts_with("num");
  if (counted && number == 0) return {0, CodeMessage(QDT_TBL_INVALID_INPUT)};
  const bool looksUp = view == kNatPolicyView && number - (counted ? 1 : 0) < 2;
  return {0, CodeMessage(looksUp ? QDT_TBL_FAIL : QDT_TBL_NO_MEMORY)};
}

void FailViews() {
  for (uint32_t view = 0; view < QDT_DIAG_TABLE_COUNT; ++view) {
    if (g_nqeTblOps[view].search == nullptr) continue;
    size_t most = 0;
    for (const auto &words : QueriesOf(view)) {
      SCOPED_TRACE("view " + std::to_string(view) + " " + words[0]);
      const size_t taken = FailEach(
          [&] {
            return Said{0, Lab::Get().Ask(view, words)};
          },
          [&](size_t number) { return ShortView(view, words, number); });
      most = std::max(most, taken - (words[0].starts_with("num") ? 1 : 0));
    }
    EXPECT_EQ(most == 0, TakesNoRecord(view)) << "view " << view;
  }
}

Said RunWords(const EntryPoint &family, std::vector<std::string> words) {
  std::vector<char *> pointers;
  for (std::string &word : words) pointers.push_back(word.data());
  const Answer answer = RunEntryPoint(family, pointers);
  return {answer.result, std::string(answer.text)};
}

void FailCommands() {
  for (const EntryPoint &family : EntryPoints()) {
    std::istringstream lines(family.examples);
    for (std::string line; std::getline(lines, line);) {
      SCOPED_TRACE(line);
      FailEach([&] { return RunWords(family, SplitWords(line)); },
               [](size_t) {
                 return Said{-1, CodeMessage(QDT_TBL_NO_MEMORY)};
               });
    }
  }
}

// Values that a parameter's type takes, as the data model's help names it.
std::vector<std::string> ValuesOf(std::string_view type) {
  constexpr std::pair<std::string_view, const char *> kKnown[] = {{"0..", "1"},
                                                                  {"an IP", "10.1.0.7"},
                                                                  {"a MAC", "00e0-fc12-3456"},
                                                                  {"hexadecimal", "0800"},
                                                                  {"TEXT", "all"}};
  for (const auto &[begin, value] : kKnown) {
    if (type.starts_with(begin)) return {value};
  }
  std::vector<std::string> words;
  for (std::istringstream rest{std::string(type)}; std::getline(rest, words.emplace_back(), '|');) {
  }
  words.pop_back();
  return words;
}

// Requests of a handler: with no parameter, with each value of each, and with all parameters.
std::vector<std::vector<Parameter>> RequestsOf(const Model &model, const Handler &handler) {
  std::vector<std::vector<Parameter>> requests(1);
  std::vector<Parameter> all;
  for (const auto &[name, type] : model.ParametersOf(handler.rpc)) {
    for (const std::string &value : ValuesOf(type)) requests.push_back({{name, value}});
    all.push_back(requests.back()[0]);
  }
  requests.push_back(all);
  return requests;
}

// What the handler says to the request, to which a parameter that it must have is added; nothing when there
// can be no such request.
std::optional<Said> Handle(const Model &model, const Handler &handler, std::vector<Parameter> parameters) {
  try {
    const OwnedTree request = model.MakeRequest(handler.rpc, parameters);
    const HandlerAnswer answer = RunHandler(handler, request.get(), handler.ends != nullptr);
    return Said{answer.result, answer.text};
  } catch (const RequestError &error) {
    if (error.kind() != RequestError::Kind::kMissingParameter) return std::nullopt;
    for (const auto &[name, type] : model.ParametersOf(handler.rpc)) {
      if (name != error.parameter()) continue;
      parameters.emplace_back(name, ValuesOf(type)[0]);
      return Handle(model, handler, parameters);
    }
    throw;
  }
}

void FailHandlers() {
  const Model model;
  for (const Handler &handler : Handlers()) {
    SCOPED_TRACE(handler.rpc);
    size_t answered = 0;
    for (const auto &parameters : RequestsOf(model, handler)) {
      if (!Handle(model, handler, parameters)) continue;
      ++answered;
      FailEach([&] { return *Handle(model, handler, parameters); }, [](size_t) { return Said{-1, ""}; });
    }
    EXPECT_NE(answered, 0u) << "no request was made";
  }
}

// The places in the library's sources that take memory; those of the views are where their macros stand.
std::set<std::string> PlacesOfSources() {
  std::set<std::string> places;
  const std::string root = std::string(QDT_SOURCE_DIR) + "/";
  for (const auto &file : std::filesystem::recursive_directory_iterator(root + "src/om")) {
    if (file.path().extension() != ".cc") continue;
    const std::string path = file.path().string().substr(root.size());
    std::ifstream in(file.path());
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
      if (line.find("QDT_HERE") != line.npos)
        places.insert(path.substr(0, path.rfind('.')) + ":" + std::to_string(number));
    }
  }
  return places;
}

TEST_F(AllocationsTest, Views) { FailViews(); }
TEST_F(AllocationsTest, Commands) { FailCommands(); }
TEST_F(AllocationsTest, Handlers) { FailHandlers(); }

// Whatever takes memory has been refused it.
TEST_F(AllocationsTest, EachPlace) {
  FailViews();
  FailCommands();
  FailHandlers();
  const std::set<std::string> places = PlacesOfSources();
  EXPECT_FALSE(places.empty());
  for (const std::string &place : places) EXPECT_TRUE(Allocations::Refused().contains(place)) << place;
}

}  // namespace
}  // namespace qdt::host
