#ifndef HOST_BASE_WORDS_H_
#define HOST_BASE_WORDS_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::host {

// Splits a command line at blanks, tabs and line ends. '...' and "..." keep blanks inside a word (a lone pair
// makes an empty word); there is no escape character. Throws HostError for an open quote or a NUL byte.
std::vector<std::string> SplitWords(std::string_view line);

// The line that SplitWords splits into just these words.
std::string JoinWords(std::span<char *const> words);

}  // namespace qdt::host

#endif  // HOST_BASE_WORDS_H_
