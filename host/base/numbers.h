#ifndef HOST_BASE_NUMBERS_H_
#define HOST_BASE_NUMBERS_H_

#include <cstdint>
#include <optional>
#include <string_view>

namespace qdt::host {

// The number that the whole text is, in decimal digits; nothing for any other text, and from 2^64 on.
std::optional<uint64_t> ReadNumber(std::string_view text);

// The same from `least` to `most`. Throws HostError for anything else: NAME "TEXT" is not a number from LEAST
// to MOST.
uint64_t NumberWithin(std::string_view name, std::string_view text, uint64_t least, uint64_t most);

}  // namespace qdt::host

#endif  // HOST_BASE_NUMBERS_H_
