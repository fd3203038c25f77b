#include "host/layout/field_line.h"

#include <charconv>
#include <iterator>
#include <limits>
#include <vector>

#include "host/base/host_error.h"
#include "host/base/near_name.h"

namespace qdt::host {
namespace {

// Reads a field line word by word; the first mistake stays.
class FieldLineParser {
 public:
  FieldLineParser(std::string_view line, LayoutStore *store, Field *field) : store_(*store), field_(*field) {
    constexpr std::string_view kMeaning = " -- ";
    if (const size_t meaning = line.find(kMeaning); meaning != line.npos) {
      field_.about = Kept(line.substr(meaning + kMeaning.size()));
      line = line.substr(0, meaning);
    }
    while (!line.empty()) {
      const size_t start = line.find_first_not_of(' ');
      if (start == std::string_view::npos) break;
      const size_t end = std::min(line.find(' ', start), line.size());
      words_.push_back(line.substr(start, end - start));
      line.remove_prefix(end);
    }
  }

  bool Parse(std::string *problem) {
    field_.ref.offset = Number("the offset in bytes");
    ParseType();
    while (problem_.empty() && next_ < words_.size()) ParseOption(Word());
    *problem = problem_;
    return problem_.empty();
  }

 private:
  std::string_view Kept(std::string_view word) { return store_.Keep(std::string(word)); }

  std::string_view Word() { return next_ < words_.size() ? words_[next_++] : std::string_view(); }

  void Wrong(const std::string &what) {
    if (problem_.empty()) problem_ = what;
  }

  static bool ToNumber(std::string_view word, uint32_t *number) {
    const char *end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, *number);
    return error == std::errc() && stop == end && *number <= std::numeric_limits<uint16_t>::max();
  }

  uint32_t Number(const char *meaning) {
    const std::string_view word = Word();
    uint32_t number = 0;
    if (!ToNumber(word, &number)) {
      Wrong(Quoted(word) + " stands where " + meaning + " belongs (a number below 65536)");
    }
    return number;
  }

  void ParseType() {
    const std::string_view word = Word();
    NearName near(word);
    std::string_view nearest;
    for (const FieldType &type : FieldTypes()) {
      if (near.Offer(type.name)) nearest = type.name;
      if (type.name != word) continue;
      field_.ref.kind = type.kind;
      field_.ref.size = type.size;
      if (type.kind == FieldKind::kText) field_.ref.size = static_cast<uint16_t>(Number("the text's length"));
      if (type.kind == FieldKind::kText && field_.ref.size == 0)
        Wrong("a text of no length (write text LENGTH)");
      if (type.kind == FieldKind::kReference) ParseTargets(Word());
      field_.elementSize = field_.stride = field_.ref.size;
      return;
    }
    Wrong(Quoted(word) + " is not a kind of field" +
          DidYouMean(nearest,
                     "u8 to u64, i8 to i64, ipv4, ipv4_net, ipv6, ipv6_words, mac, address, uptime_ago, "
                     "time_ago, text or ref"));
  }

  // WORD[SEPARATOR WORD ...]
  std::span<const std::string_view> Words(std::string_view list, char separator) {
    std::vector<std::string_view> words;
    while (!list.empty()) {
      const size_t end = std::min(list.find(separator), list.size());
      words.push_back(Kept(list.substr(0, end)));
      list.remove_prefix(std::min(end + 1, list.size()));
    }
    return store_.Keep(std::move(words));
  }

  void ParseTargets(std::string_view tables) {
    field_.targets = Words(tables, '|');
    if (field_.targets.empty()) Wrong("a reference to no table (write ref TABLE or ref TABLE|TABLE)");
  }

  bool IsNumber() const {
    return field_.ref.kind == FieldKind::kUnsigned || field_.ref.kind == FieldKind::kSigned;
  }

  // What the value means; whether the word is one of this kind.
  bool ParseMeaning(std::string_view word) {
    if (word == "counter" || word == "clock") {
      field_.role = word == "counter" ? FieldRole::kCounter : FieldRole::kClock;
      if (!IsNumber() && !IsTimeAgo(field_.ref.kind)) Wrong(Quoted(word) + " is for numbers");
    } else if (word == "unit") {
      field_.unit = Kept(Word());
      if (field_.unit.empty()) Wrong("a unit without a name (write unit bytes)");
    } else if (word == "leads_to" || word == "must_lead_to") {
      field_.leadsTo = Kept(Word());
      field_.mustLead = word == "must_lead_to";
      if (FormOf(field_.ref.kind) == ValueForm::kReference || field_.leadsTo.empty())
        Wrong(Quoted(word) + " names the table of a number that is its key");
    } else if (word == "agrees_with") {
      field_.agreesWith = Words(Word(), ',');
      if (field_.ref.kind != FieldKind::kReference || field_.agreesWith.empty())
        Wrong("agrees_with names the fields that say which entry a reference leads to");
    } else if (word == "counts") {
      field_.counts = Kept(Word());
      if (!IsNumber() || field_.counts.empty())
        Wrong("counts names the array whose elements a number counts");
    } else {
      return false;
    }
    return true;
  }

  void ParseOption(std::string_view word) {
    if (ParseMeaning(word)) return;
    if (word == "bit") {
      const uint32_t bit = Number("the number of the bit");
      SetBits(bit, bit);
    } else if (word == "bits") {
      const std::string_view range = Word();
      const size_t dash = range.find('-');
      uint32_t first = 0;
      uint32_t last = 0;
      if (dash == std::string_view::npos || !ToNumber(range.substr(0, dash), &first) ||
          !ToNumber(range.substr(dash + 1), &last)) {
        Wrong(Quoted(range) + " is not a range of bits (write bits FIRST-LAST)");
      }
      SetBits(first, last);
    } else if (word == "x") {
      field_.count = Number("the number of elements");
      if (field_.count == 0) Wrong("an array of no elements (write x COUNT)");
    } else if (word == "every" && field_.count != 0) {
      field_.stride = Number("the bytes from one element to the next");
      if (field_.stride < field_.elementSize) Wrong("elements that overlap (every at least their size)");
    } else if (word == "cleared_by") {
      field_.clearedBy = Kept(Word());
      if (field_.clearedBy != kClearedByCpcar)
        Wrong(Quoted(field_.clearedBy) + " clears nothing (cpcar does)");
    } else if (word == "=" && field_.count == 0 && field_.ref.kind != FieldKind::kText) {
      std::string problem;
      field_.constant = ParseValue(field_.ref, Word(), &problem);
      if (!field_.constant) Wrong(problem);
    } else {
      Wrong(
          Quoted(word) +
          " is out of place (OFFSET TYPE, then bit, bits, x COUNT, every STRIDE, cleared_by, counter, clock, "
          "unit, leads_to, must_lead_to, agrees_with, counts, = VALUE or -- MEANING)");
    }
  }

  void SetBits(uint32_t first, uint32_t last) {
    if (field_.ref.kind != FieldKind::kUnsigned) return Wrong("bits of something else than u8 to u64");
    if (first > last || last >= field_.ref.size * 8u) {
      return Wrong("bits outside their word (0 to " + std::to_string(field_.ref.size * 8 - 1) +
                   ", the lower first)");
    }
    field_.ref.shift = static_cast<uint8_t>(first);
    field_.ref.bits = static_cast<uint8_t>(last - first + 1);
  }

  std::vector<std::string_view> words_;
  size_t next_ = 0;
  LayoutStore &store_;
  Field &field_;
  std::string problem_;
};

}  // namespace

bool ParseFieldLine(std::string_view line, LayoutStore *store, Field *field, std::string *problem) {
  return FieldLineParser(line, store, field).Parse(problem);
}

}  // namespace qdt::host
