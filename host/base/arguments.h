#ifndef HOST_BASE_ARGUMENTS_H_
#define HOST_BASE_ARGUMENTS_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/base/numbers.h"

namespace qdt::host {

// The words of a tool's command line, taken off one by one. Throws HostError for an option without its value.
class Arguments {
 public:
  explicit Arguments(std::span<char *const> words) : words_(words) {}
  Arguments(int argc, char **argv) : words_(argv + (argc > 0), argv + argc) {}

  bool empty() const { return words_.empty(); }
  std::string_view front() const { return words_.front(); }
  // Whether the next word is an option of any name.
  bool AtOption() const { return !empty() && front().size() > 1 && front().front() == '-'; }

  // Takes the next word when it is `name`.
  bool Take(std::string_view name);
  // Takes "NAME VALUE" or "NAME=VALUE", when the next word says so, and stores the value.
  bool TakeValue(std::string_view name, std::string *value);
  // The same for a number from `least` to `most`. Throws HostError for any other value.
  template <typename Number>
  bool TakeNumber(std::string_view name, uint64_t least, uint64_t most, Number *number) {
    std::string value;
    if (!TakeValue(name, &value)) return false;
    *number = static_cast<Number>(NumberWithin(name, value, least, most));
    return true;
  }

  // All words that are left, null-terminated as main() got them.
  std::span<char *const> rest() const { return words_; }

 private:
  std::span<char *const> words_;
};

// "1.2.0", that of the project.
std::string ProgramVersion();

// "VERSION (how it was built)" for --version: compiler, processor, linkage, sanitizers.
std::string BuildInfo(bool isStatic);

}  // namespace qdt::host

#endif  // HOST_BASE_ARGUMENTS_H_
