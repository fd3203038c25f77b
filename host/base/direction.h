#ifndef HOST_BASE_DIRECTION_H_
#define HOST_BASE_DIRECTION_H_

#include <cstdint>
#include <string_view>

namespace qdt::host {

// Whether the text's first character turns the direction of what follows, so that a terminal may show it
// elsewhere, or ends a line to who knows Unicode: U+061C, U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069.
inline bool TurnsAround(std::string_view text) {
  if (text.starts_with("\xd8\x9c")) return true;
  if (text.size() < 3 || text[0] != '\xe2') return false;
  const auto second = static_cast<uint8_t>(text[1]), third = static_cast<uint8_t>(text[2]);
  if (second == 0x80) return third == 0x8e || third == 0x8f || (third >= 0xa8 && third <= 0xae);
  return second == 0x81 && third >= 0xa6 && third <= 0xa9;
}

}  // namespace qdt::host

#endif  // HOST_BASE_DIRECTION_H_
