#ifndef TOOLS_NQECLI_OUTPUT_ANSWER_TEXT_H_
#define TOOLS_NQECLI_OUTPUT_ANSWER_TEXT_H_

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "host/base/fd.h"

namespace qdt::nqecli {

// What a process has written, of any length: it stands in a file without a name and is read piece by piece.
class AnswerText {
 public:
  // Throws HostError when there is no room for another one.
  AnswerText();

  // Where the process writes.
  int fd() const { return file_.get(); }

  // Up to room.size() bytes from `offset` on, none at the end. Throws HostError, as all that follows does.
  std::string_view Read(uint64_t offset, std::span<char> room) const;
  void ForEachPiece(const std::function<void(std::string_view)> &visit) const;
  // All lines, without their newlines.
  void ForEachLine(const std::function<void(std::string_view)> &visit) const;
  std::string All() const;
  // Whether it is one JSON document and nothing else.
  bool IsJson() const;

 private:
  host::UniqueFd file_;
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_OUTPUT_ANSWER_TEXT_H_
