#ifndef SRC_OM_NQE_CLI_COMMAND_WORDS_H_
#define SRC_OM_NQE_CLI_COMMAND_WORDS_H_

#include <cstdint>
#include <string_view>

#include "qdt/cli.h"

// What the command entry points share: their words, the choice among their subcommands, an empty answer.
namespace qdt {

inline void EmptyAnswer(OutputBuffer *out) {
  out->len = 0;
  out->buf[0] = '\0';
}

// Word number `position` of a command, its own name being number 0; null when it has no such word.
inline const char *WordAt(int32_t wordCount, char *const *words, int32_t position) {
  return position < wordCount ? words[position] : nullptr;
}

// The row whose `name` is the word; null when there is none.
template <typename Row, size_t N>
const Row *FindByName(const Row (&rows)[N], std::string_view word) {
  for (const Row &row : rows) {
    if (word == row.name) return &row;
  }
  return nullptr;
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_COMMAND_WORDS_H_
