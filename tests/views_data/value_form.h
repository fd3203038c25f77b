#ifndef TESTS_VIEWS_DATA_VALUE_FORM_H_
#define TESTS_VIEWS_DATA_VALUE_FORM_H_

#include <rapidjson/document.h>

#include <string>

#include "host/layout/field.h"

namespace qdt::host {

// How views write the value of a field that JSON has as `value` (null: nothing, as of an array's zeros).
//
// `how` is one conversion of printf; or the names of the values, "0=none 1=up *=down", each of which may have
// a conversion in it; or one of the forms below; or empty: the number, the address as JSON has it, or the
// text.
//
//   ip           IPv4 address of a number
//   upper %lu    the upper half of 64 bits
//   bits         32 binary digits, those of each byte apart
//   ipv6-full    2001:0db8:...    all digits
//   text         characters, which may be blanks
//   word2 0x%x   one of the four words of an IPv6 address, word0 to word3
//   high2 %u     its upper half
//   ipv6-bytes   each byte of an IPv6 address as a decimal number, two between colons
//   mac-words    a00b-c10d-e20f
//
// Throws HostError for a how that there is not.
std::string ValueAs(const rapidjson::Value *value, const Field &field, const std::string &how);

// The same of a plain number, with printf's conversions only.
std::string NumberForm(uint64_t number, const std::string &how);

// What the value is as a number; addresses count as IPv4 addresses in host order.
uint64_t NumberOf(const rapidjson::Value *value);

}  // namespace qdt::host

#endif  // TESTS_VIEWS_DATA_VALUE_FORM_H_
