#include "host/base/words.h"

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

std::vector<std::string> SplitWords(std::string_view line) {
  if (line.find('\0') != line.npos) throw HostError("the command line holds a NUL byte");
  std::vector<std::string> words;
  char quote = 0;
  bool inWord = false;
  for (const char c : line) {
    if (quote == 0 && IsBlank(c)) {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (quote == 0 && (c == '\'' || c == '"')) {
      quote = c;
    } else if (c == quote) {
      quote = 0;
    } else {
      words.back().push_back(c);
    }
  }
  if (quote != 0) throw HostError(std::string("the command line ends inside ") + quote + "..." + quote);
  return words;
}

std::string JoinWords(std::span<char *const> words) {
  std::string line;
  for (const std::string_view word : words) {
    if (!line.empty()) line += ' ';
    const bool plain = !word.empty() && word.find_first_of(" \t\n\v\f\r'\"") == word.npos;
    if (plain) {
      line += word;
      continue;
    }
    line += '\'';
    for (const char c : word) line += c == '\'' ? std::string("'\"'\"'") : std::string(1, c);
    line += '\'';
  }
  return line;
}

}  // namespace qdt::host
