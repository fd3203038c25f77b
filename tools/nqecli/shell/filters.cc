#include "tools/nqecli/shell/filters.h"

#include <regex.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/words.h"
#include "host/layout/value_text.h"
#include "host/library/entry_points.h"
#include "host/record/record_json.h"
#include "host/record/text_out.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;

class Pattern {
 public:
  explicit Pattern(const std::string &text) {
    if (const int code = regcomp(&regex_, text.c_str(), REG_EXTENDED | REG_NOSUB); code != 0) {
      char why[128];
      regerror(code, &regex_, why, sizeof(why));
      throw HostError(Quoted(text) + " is no pattern: " + why);
    }
  }
  ~Pattern() { regfree(&regex_); }
  Pattern(const Pattern &) = delete;
  Pattern &operator=(const Pattern &) = delete;

  bool Fits(std::string_view line) const {
    if (line.ends_with('\n')) line.remove_suffix(1);
    return regexec(&regex_, std::string(line).c_str(), 0, nullptr, 0) == 0;
  }

 private:
  regex_t regex_;
};

// Lines that fit, or those that do not.
class Choose : public LineFilter {
 public:
  Choose(const std::string &pattern, bool fitting) : pattern_(pattern), fitting_(fitting) {}
  void Line(std::string_view line, const LineSink &next) override {
    if (pattern_.Fits(line) == fitting_) next(line);
  }

 private:
  const Pattern pattern_;
  const bool fitting_;
};

// From the first line that fits.
class Begin : public LineFilter {
 public:
  explicit Begin(const std::string &pattern) : pattern_(pattern) {}
  void Line(std::string_view line, const LineSink &next) override {
    begun_ = begun_ || pattern_.Fits(line);
    if (begun_) next(line);
  }

 private:
  const Pattern pattern_;
  bool begun_ = false;
};

class Count : public LineFilter {
 public:
  void Line(std::string_view, const LineSink &) override { ++count_; }
  void End(const LineSink &next) override { next(std::to_string(count_) + "\n"); }

 private:
  uint64_t count_ = 0;
};

class Head : public LineFilter {
 public:
  explicit Head(uint64_t count) : left_(count) {}
  void Line(std::string_view line, const LineSink &next) override {
    if (left_ == 0) throw OutputClosed();
    --left_;
    next(line);
  }

 private:
  uint64_t left_;
};

// Of a command whose answer is text alone.
class AsDocument : public LineFilter {
 public:
  void Line(std::string_view line, const LineSink &) override {
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (!std::exchange(isFirst_, false)) lines_ += '\n';
    host::AppendEscaped(line, &lines_);
  }
  void End(const LineSink &next) override {
    host::StringOut out;
    host::JsonWriter json(out);
    json.StartObject();
    host::JsonKey(&json, "answer");
    isFirst_ ? static_cast<void>(json.Null()) : host::JsonText(&json, lines_);
    json.EndObject();
    out.Put('\n');
    next(out.Take());
  }

 private:
  std::string lines_;
  bool isFirst_ = true;
};

uint64_t ReadCount(const std::string &text) {
  uint64_t count = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error == std::errc() && stop == text.data() + text.size()) return count;
  throw HostError("| head " + Quoted(text) + " is not a number of lines");
}

// The parts of the line between '|' outside of quotes.
std::vector<std::string_view> SplitAtBars(std::string_view line) {
  std::vector<std::string_view> parts;
  char quote = 0;
  size_t from = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '|') {
      parts.push_back(line.substr(from, i - from));
      from = i + 1;
    }
  }
  parts.push_back(line.substr(from));
  return parts;
}

}  // namespace

const std::vector<FilterWord> kFilterWords = {
    {"include", " PATTERN", "lines that the pattern fits"},
    {"exclude", " PATTERN", "lines that the pattern does not fit"},
    {"begin", " PATTERN", "from the first line that the pattern fits"},
    {"count", "", "how many lines there are"},
    {"head", " [N]", "the first 10 lines, or N"},
    {"json", "", "the answer as JSON, before all other filters", true},
};

ShellLine ReadShellLine(std::string_view line) {
  ShellLine read;
  const std::vector<std::string_view> parts = SplitAtBars(line);
  read.words = host::SplitWords(parts.front());
  for (size_t i = 1; i < parts.size(); ++i) {
    std::vector<std::string> words = host::SplitWords(parts[i]);
    if (words.empty() || read.words.empty())
      throw HostError("there is nothing on one side of | (quote it where it is meant as it is)");
    if (words == std::vector<std::string>{"json"}) {
      if (i != 1) throw HostError("| json comes first: what it writes can be filtered");
      const auto isCommand = [](const std::string &word) {
        return word == "help" || FindCommand(word) != nullptr || host::FindEntryPoint(word) != nullptr;
      };
      const auto command = std::ranges::find_if(read.words, isCommand);
      if (command != read.words.end() && HasJson(*command)) {
        read.words.push_back("--json");
        continue;
      }
    }
    read.filters.push_back(std::move(words));
  }
  return read;
}

std::unique_ptr<LineFilter> MakeFilter(const std::vector<std::string> &words) {
  const std::string &name = words.front();
  const bool takesPattern = name == "include" || name == "exclude" || name == "begin";
  if (takesPattern && words.size() != 2)
    throw HostError("| " + name + " takes one pattern (quote one with blanks)");
  if (name == "include" || name == "exclude") return std::make_unique<Choose>(words[1], name == "include");
  if (name == "begin") return std::make_unique<Begin>(words[1]);
  if (name == "count" && words.size() == 1) return std::make_unique<Count>();
  if (name == "json" && words.size() == 1) return std::make_unique<AsDocument>();
  if (name == "head" && words.size() <= 2)
    return std::make_unique<Head>(words.size() == 2 ? ReadCount(words[1]) : 10);
  if (name == "count" || name == "head" || name == "json")
    throw HostError("| " + name + " does not take these words");
  host::NearName near(name);
  std::string_view nearest;
  for (const FilterWord &word : kFilterWords) {
    if (near.Offer(word.name)) nearest = word.name;
  }
  throw HostError("| " + Quoted(name) + " is no filter" +
                  host::DidYouMean(nearest, "include, exclude, begin, count, head, json"));
}

}  // namespace qdt::nqecli
