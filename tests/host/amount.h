#ifndef TESTS_HOST_AMOUNT_H_
#define TESTS_HOST_AMOUNT_H_

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qdt::host {

// How much a test does: what the environment's variable says, or `otherwise`. A test that did nothing, or
// once what somebody took for "1e9" times, would pass: a value that is no number ends the program.
inline uint64_t Amount(const char *name, uint64_t otherwise) {
  const char *value = std::getenv(name);
  if (value == nullptr) return otherwise;
  uint64_t amount = 0;
  const char *end = value + std::strlen(value);
  const auto [stop, error] = std::from_chars(value, end, amount);
  if (error == std::errc() && stop == end && amount != 0) return amount;
  std::fprintf(stderr, "%s: \"%s\" is not a number, 1 at least\n", name, value);
  std::exit(2);
}

}  // namespace qdt::host

#endif  // TESTS_HOST_AMOUNT_H_
