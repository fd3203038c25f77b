#ifndef HOST_LAYOUT_VALUE_TEXT_H_
#define HOST_LAYOUT_VALUE_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "host/layout/field.h"

namespace qdt::host {

// Room for the text of any value that is no text itself.
constexpr size_t kValueRoom = 48;

// Writes the value as people write it (ParseValue reads it) to `out`, which has kValueRoom bytes, without a
// NUL; returns its length. Not for texts and references.
size_t WriteValue(const FieldRef &field, WideValue value, char *out);

// A reference's address and other raw ones: "0x7f0000001000".
size_t WriteHex(uint64_t value, char *out);

// What an area of kAddress holds is told by what stands behind the shorter kinds: as an IPv4, MAC or IPv6
// address.
FieldRef NarrowAddressIn(const FieldRef &field, const void *record);

// Appends a text of an engine as printable UTF-8 of one line: a backslash is doubled, control characters and
// bytes that are no UTF-8 become "\x1b". The same everywhere, so that what is shown can be typed.
void AppendEscaped(std::string_view text, std::string *out);

// Bytes of the UTF-8 character that the text, which is not empty, begins with, when it is one that a terminal
// can be given and no backslash; else 0.
size_t CharacterAt(std::string_view text);

// The bytes that an escaped text stands for; false when a backslash stands before something else.
bool Unescape(std::string_view text, std::string *bytes);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_VALUE_TEXT_H_
