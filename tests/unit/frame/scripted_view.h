#ifndef TESTS_UNIT_FRAME_SCRIPTED_VIEW_H_
#define TESTS_UNIT_FRAME_SCRIPTED_VIEW_H_

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace qdt::test {

// Ids of the registry's rows here. All rows with a view have the same one, which follows the script.
constexpr uint32_t kViewId = 1;
constexpr uint32_t kWalkedByKeyId = 7;
constexpr uint32_t kNoViewId = 14;
constexpr uint32_t kNoSearchId = 20;
constexpr uint32_t kNoFormatId = 21;
constexpr uint32_t kUnframedId = 47;

// One batch: what the search does and what the format makes of its record.
struct Batch {
  int32_t found = 0;     // the search's result
  uint32_t length = 16;  // of the record
  bool delivers = true;  // a record, even when the search fails
  std::string text = "  A  :  1\n";
  int32_t formatCode = 0;  // the format's result when not 0
};

struct SearchCall {
  uint32_t loopNum;
  std::string key1;
  uint32_t key2, key3, key4;
  bool operator==(const SearchCall &) const = default;
};

struct FormatCall {
  uint32_t offset;  // from the answer's start
  uint32_t room;
  int32_t length;
  bool operator==(const FormatCall &) const = default;
};

// What the view is to do and what it was asked.
struct Script {
  std::deque<Batch> batches;
  const char *answer = nullptr;  // where the answer begins
  std::vector<SearchCall> searches;
  std::vector<FormatCall> formats;
  void *record = nullptr;   // the last one delivered
  std::string pendingText;  // of the batch that was searched last
  int32_t pendingCode = 0;
};

extern Script g_script;

}  // namespace qdt::test

#endif  // TESTS_UNIT_FRAME_SCRIPTED_VIEW_H_
