#ifndef TOOLS_NQECLI_COMPLETION_H_
#define TOOLS_NQECLI_COMPLETION_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/nqecli/attach.h"

namespace qdt::nqecli {

// A word that may follow, and what it means; a word that ends with '=', ',' or '/' is followed by more of it.
struct Candidate {
  std::string word;
  std::string about;
};

// What may stand in place of `current` behind the words of a command line: those that begin with it, each
// once, in the order in which people want to see them. Keys are those that the place's arena holds now; where
// no engine runs there are none.
std::vector<Candidate> Complete(const Place &place, std::span<const std::string> before,
                                const std::string &current);

// "nqecli complete WORD...": the candidates for the last word, a line each with a tab before the meaning. For
// the completion files of shells.
std::string CompletionLines(const Place &place, std::span<char *const> words);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_COMPLETION_H_
