#include "host/base/numbers.h"

#include <charconv>
#include <string>

#include "host/base/host_error.h"

namespace qdt::host {

std::optional<uint64_t> ReadNumber(std::string_view text) {
  uint64_t number = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

uint64_t NumberWithin(std::string_view name, std::string_view text, uint64_t least, uint64_t most) {
  const std::optional<uint64_t> number = ReadNumber(text);
  if (number && *number >= least && *number <= most) return *number;
  throw HostError(std::string(name) + " " + Quoted(text) + " is not a number from " + std::to_string(least) +
                  " to " + std::to_string(most));
}

}  // namespace qdt::host
