#include "host/layout/value_text.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>

#include "host/layout/digits.h"

namespace qdt::host {
namespace {

constexpr char kHex[] = "0123456789abcdef";

size_t WriteNumber(WideValue value, bool isSigned, char *out) {
  auto number = static_cast<uint64_t>(value);
  char *at = out;
  if (isSigned && static_cast<int64_t>(number) < 0) {
    *at++ = '-';
    number = 0 - number;
  }
  return static_cast<size_t>(PutDecimal(at, number) - out);
}

size_t WriteIpv6(WideValue address, char *out) {
  uint8_t bytes[16];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(address >> (8 * (15 - i)));
  inet_ntop(AF_INET6, bytes, out, kValueRoom);
  return std::strlen(out);
}

size_t WriteMac(uint64_t mac, char *out) {
  uint8_t bytes[6];
  for (int i = 0; i < 6; ++i) bytes[i] = static_cast<uint8_t>(mac >> (8 * (5 - i)));
  return static_cast<size_t>(PutMac(out, bytes) - out);
}

bool AllZero(const uint8_t *from, const uint8_t *end) {
  for (; from != end; ++from) {
    if (*from != 0) return false;
  }
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

char *digits::PutLong(char *at, uint64_t value) {
  constexpr uint64_t kEightDigits = 100000000;
  if (value < kEightDigits) return PutFour(PutUpToFour(at, value / 10000), value % 10000);
  at = PutDecimal(at, value / kEightDigits);
  const uint64_t low = value % kEightDigits;
  return PutFour(PutFour(at, low / 10000), low % 10000);
}

size_t CharacterAt(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t first = byte(0);
  if (first < 0x80) return first >= 0x20 && first != 0x7f && first != '\\' ? 1 : 0;
  const size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < size) return 0;
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  // Overlong forms, surrogates, what lies beyond Unicode, and the control characters of Latin 1.
  const uint8_t second = byte(1);
  if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
      (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f) ||
      (first == 0xc2 && second < 0xa0)) {
    return 0;
  }
  return size;
}

size_t WriteValue(const FieldRef &field, WideValue value, char *out) {
  switch (FormOf(field.kind)) {
    case ValueForm::kIpv4:
      return static_cast<size_t>(PutIpv4(out, static_cast<uint32_t>(value)) - out);
    case ValueForm::kIpv6:
      return WriteIpv6(value, out);
    case ValueForm::kMac:
      return WriteMac(static_cast<uint64_t>(value), out);
    default:
      return WriteNumber(value, field.kind == FieldKind::kSigned, out);
  }
}

size_t WriteHex(uint64_t value, char *out) {
  out[0] = '0';
  out[1] = 'x';
  return static_cast<size_t>(std::to_chars(out + 2, out + kValueRoom, value, 16).ptr - out);
}

FieldRef NarrowAddressIn(const FieldRef &field, const void *record) {
  const auto *area = static_cast<const uint8_t *>(record) + field.offset;
  const uint8_t *end = area + field.size;
  if (AllZero(area + 4, end)) return {field.offset, 4, FieldKind::kIpv4, 0, 0};
  if (AllZero(area + 6, end)) return {field.offset, 6, FieldKind::kMac, 0, 0};
  return {field.offset, 16, FieldKind::kIpv6, 0, 0};
}

void AppendEscaped(std::string_view text, std::string *out) {
  while (!text.empty()) {
    if (const size_t size = CharacterAt(text); size != 0) {
      out->append(text, 0, size);
      text.remove_prefix(size);
      continue;
    }
    const auto byte = static_cast<uint8_t>(text.front());
    *out += '\\';
    if (byte == '\\') {
      *out += '\\';
    } else {
      *out += 'x';
      *out += kHex[byte >> 4];
      *out += kHex[byte & 15];
    }
    text.remove_prefix(1);
  }
}

bool Unescape(std::string_view text, std::string *bytes) {
  bytes->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      *bytes += text[i];
    } else if (text.substr(i + 1, 1) == "\\") {
      *bytes += '\\';
      ++i;
    } else if (text.substr(i + 1, 1) == "x" && i + 3 < text.size() && HexDigit(text[i + 2]) >= 0 &&
               HexDigit(text[i + 3]) >= 0) {
      *bytes += static_cast<char>(HexDigit(text[i + 2]) << 4 | HexDigit(text[i + 3]));
      i += 3;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace qdt::host
