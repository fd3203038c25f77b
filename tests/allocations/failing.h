#ifndef TESTS_ALLOCATIONS_FAILING_H_
#define TESTS_ALLOCATIONS_FAILING_H_

#include <cstddef>
#include <functional>
#include <ostream>
#include <set>
#include <string>

namespace qdt::host {

// The platform's allocator as this program has it: it can be told to fail, and knows what lives.
class Allocations {
 public:
  // The allocation of this number from now on (0 for the next) fails, and with `andAll` all behind it.
  static void Fail(size_t number, bool andAll);
  static void FailNone();
  // How many were asked for since one of these was called last.
  static size_t Asked();
  static size_t Alive();
  // The places that have been refused memory, "src/om/oma/qdt_oma:136".
  static const std::set<std::string> &Refused();
};

// What a command has said: its code and its text.
struct Said {
  int code = 0;
  std::string text;
  bool operator==(const Said &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Said &said);

// Calls `command` with its first allocation failing, its second, and so on until all that it asks for are
// there; then with all from the first one on, from the second one, and so on. Each time it has to say what
// `expected` names for the allocation of this number; nothing may stay allocated, and the call behind it has
// to say what the command says with memory enough. Returns how many allocations that takes.
size_t FailEach(const std::function<Said()> &command, const std::function<Said(size_t number)> &expected);

}  // namespace qdt::host

#endif  // TESTS_ALLOCATIONS_FAILING_H_
