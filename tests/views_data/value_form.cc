#include "tests/views_data/value_form.h"

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "host/base/host_error.h"
#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

constexpr std::string_view kUpper = "upper ";

std::string_view TextOf(const rapidjson::Value *value) {
  return value != nullptr && value->IsString()
             ? std::string_view(value->GetString(), value->GetStringLength())
             : std::string_view();
}

// What stands in the field that JSON leaves out.
std::string Nothing(const Field &field) {
  char text[kValueRoom];
  if (FormOf(field.ref.kind) == ValueForm::kText) return "";
  return {text, WriteValue(field.ref, 0, text)};
}

std::string Plain(const rapidjson::Value *value, const Field &field) {
  if (value == nullptr) return Nothing(field);
  if (value->IsString()) {
    std::string bytes(TextOf(value));
    if (FormOf(field.ref.kind) == ValueForm::kText && !Unescape(TextOf(value), &bytes))
      throw HostError("a text that is not escaped: " + std::string(TextOf(value)));
    return bytes;
  }
  if (value->IsInt64() && value->GetInt64() < 0) return std::to_string(value->GetInt64());
  return std::to_string(NumberOf(value));
}

std::array<uint8_t, 16> Ipv6Of(const rapidjson::Value *value) {
  std::array<uint8_t, 16> bytes{};
  if (value != nullptr && inet_pton(AF_INET6, std::string(TextOf(value)).c_str(), bytes.data()) != 1)
    throw HostError("no IPv6 address: " + std::string(TextOf(value)));
  return bytes;
}

// Sixteen bytes, each by `conversion`, two between colons.
std::string Ipv6Bytes(const rapidjson::Value *value, const char *conversion) {
  std::string text;
  const auto bytes = Ipv6Of(value);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % 2 == 0) text += ':';
    text += NumberForm(bytes[i], conversion);
  }
  return text;
}

// "word2 0x%x", of four words; "high2 %u" its upper half.
std::string Ipv6Word(const rapidjson::Value *value, const std::string &how) {
  const size_t first = static_cast<size_t>(how.at(4) - '0') * 4;
  const auto bytes = Ipv6Of(value);
  uint32_t word = 0;
  for (size_t i = first; i < first + 4; ++i) word = word << 8 | bytes.at(i);
  return NumberForm(how.starts_with("high") ? word >> 16 : word, how.substr(6));
}

std::string Bits(uint64_t number) {
  std::string text;
  for (int bit = 31; bit >= 0; --bit) {
    text += (number >> bit & 1) != 0 ? '1' : '0';
    if (bit % 8 == 0 && bit > 0) text += ' ';
  }
  return text;
}

std::string MacWords(std::string text) {
  if (text.empty()) text = "00:00:00:00:00:00";
  std::erase(text, ':');
  return text.substr(0, 4) + "-" + text.substr(4, 4) + "-" + text.substr(8);
}

// "0=none 1=up *=%u".
std::string Named(uint64_t number, const std::string &how) {
  std::istringstream names(how);
  for (std::string name; names >> name;) {
    const size_t equal = name.find('=');
    if (name.substr(0, equal) != "*" && name.substr(0, equal) != std::to_string(number)) continue;
    const std::string text = name.substr(equal + 1);
    return text.find('%') == text.npos ? text : NumberForm(number, text);
  }
  return "";
}

}  // namespace

uint64_t NumberOf(const rapidjson::Value *value) {
  if (value == nullptr || value->IsNull()) return 0;
  if (value->IsBool()) return value->GetBool() ? 1 : 0;
  if (value->IsUint64()) return value->GetUint64();
  if (value->IsInt64()) return static_cast<uint64_t>(value->GetInt64());
  in_addr address = {};
  if (inet_pton(AF_INET, std::string(TextOf(value)).c_str(), &address) == 1) return ntohl(address.s_addr);
  throw HostError("no number");
}

std::string NumberForm(uint64_t number, const std::string &how) {
  const char kind = how.empty() ? 'u' : how.back();
  const bool isLong = how.find('l') != how.npos;
  // printf takes the conversion with its own length; the number is cut to it first.
  std::string conversion = how.empty() ? "%u" : how;
  std::erase_if(conversion, [](char c) { return c == 'l' || c == 'h'; });
  conversion.insert(conversion.size() - 1, "ll");
  if (how.find("hh") != how.npos) number = static_cast<uint8_t>(number);
  if (how.find('h') != how.npos) number = static_cast<uint16_t>(number);
  if (kind == 'd' && !isLong) number = static_cast<uint64_t>(int64_t{static_cast<int32_t>(number)});
  if (kind != 'd' && !isLong) number = static_cast<uint32_t>(number);
  char text[64];
  // The map's conversions are the tests' own; nothing else can come here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text, sizeof(text), conversion.c_str(), static_cast<unsigned long long>(number));
#pragma GCC diagnostic pop
  return text;
}

std::string ValueAs(const rapidjson::Value *value, const Field &field, const std::string &how) {
  if (how.empty() || how == "text") return Plain(value, field);
  if (how.starts_with('%') || how.starts_with("0x%")) return NumberForm(NumberOf(value), how);
  if (how.find('=') != how.npos) return Named(NumberOf(value), how);
  if (how.starts_with(kUpper)) return NumberForm(NumberOf(value) >> 32, how.substr(kUpper.size()));
  if (how == "bits") return Bits(NumberOf(value));
  if (how == "ip") {
    FieldRef ref = field.ref;
    ref.kind = FieldKind::kIpv4;
    return ValueText(ref, NumberOf(value));
  }
  if (how.starts_with("word") || how.starts_with("high")) return Ipv6Word(value, how);
  if (how == "ipv6-full") return Ipv6Bytes(value, "%02x");
  if (how == "ipv6-bytes") return Ipv6Bytes(value, "%u");
  if (how == "mac-words") return MacWords(std::string(TextOf(value)));
  throw HostError("no way to write a value: " + how);
}

}  // namespace qdt::host
