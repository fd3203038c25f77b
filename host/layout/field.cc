#include "host/layout/field.h"

#include <arpa/inet.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstring>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

static_assert(std::endian::native == std::endian::little, "records are little-endian");

constexpr FieldType kTypes[] = {
    {"u8", FieldKind::kUnsigned, 1},
    {"u16", FieldKind::kUnsigned, 2},
    {"u32", FieldKind::kUnsigned, 4},
    {"u64", FieldKind::kUnsigned, 8},
    {"i8", FieldKind::kSigned, 1},
    {"i16", FieldKind::kSigned, 2},
    {"i32", FieldKind::kSigned, 4},
    {"i64", FieldKind::kSigned, 8},
    {"ipv4", FieldKind::kIpv4, 4},
    {"ipv4_net", FieldKind::kIpv4Net, 4},
    {"ipv6", FieldKind::kIpv6, 16},
    {"ipv6_words", FieldKind::kIpv6Words, 16},
    {"mac", FieldKind::kMac, 6},
    {"text", FieldKind::kText, 0},
    {"ref", FieldKind::kReference, 8},
    {"address", FieldKind::kAddress, 16},
    {"uptime_ago", FieldKind::kUptimeAgo, 4},
    {"time_ago", FieldKind::kTimeAgo, 4},
};

WideValue Mask(uint32_t bits) { return bits >= 128 ? ~WideValue{0} : (WideValue{1} << bits) - 1; }

// Whether the bytes of the value stand with the most significant one first.
bool IsNetworkOrder(FieldKind kind) {
  return kind == FieldKind::kIpv4Net || kind == FieldKind::kIpv6 || kind == FieldKind::kMac;
}

// Words of 1 to 8 bytes.
void CopyWord(void *to, const void *from, uint32_t size) {
  // A copy of a known size is one load and one store; nearly all fields have these sizes.
  switch (size) {
    case 1:
      std::memcpy(to, from, 1);
      break;
    case 2:
      std::memcpy(to, from, 2);
      break;
    case 4:
      std::memcpy(to, from, 4);
      break;
    case 8:
      std::memcpy(to, from, 8);
      break;
    default:
      std::memcpy(to, from, size);
  }
}

template <typename Word>
uint64_t LoadAs(const uint8_t *bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

// Each size as one load of its own: a word put together in memory would be waited for.
uint64_t LoadWord(const uint8_t *bytes, uint32_t size) {
  switch (size) {
    case 1:
      return *bytes;
    case 2:
      return LoadAs<uint16_t>(bytes);
    case 4:
      return LoadAs<uint32_t>(bytes);
    case 6:
      return LoadAs<uint32_t>(bytes) | LoadAs<uint16_t>(bytes + 4) << 32;
    case 8:
      return LoadAs<uint64_t>(bytes);
    default: {
      uint64_t word = 0;
      std::memcpy(&word, bytes, size);
      return word;
    }
  }
}

void StoreWord(uint8_t *bytes, uint32_t size, uint64_t word) { CopyWord(bytes, &word, size); }

// The same value with its bytes, or its four words, in the other order.
WideValue OtherOrder(FieldKind kind, uint32_t size, WideValue value) {
  if (size <= sizeof(uint64_t)) return __builtin_bswap64(static_cast<uint64_t>(value)) >> (64 - 8 * size);
  auto low = static_cast<uint64_t>(value);
  auto high = static_cast<uint64_t>(value >> 64);
  const bool words = kind == FieldKind::kIpv6Words;
  low = words ? std::rotl(low, 32) : __builtin_bswap64(low);
  high = words ? std::rotl(high, 32) : __builtin_bswap64(high);
  return WideValue{low} << 64 | high;
}

bool IsTurned(FieldKind kind) { return IsNetworkOrder(kind) || kind == FieldKind::kIpv6Words; }

// Stored bytes to number and back, the whole word or area of the field.
WideValue Load(const FieldRef &field, const uint8_t *bytes) {
  WideValue value = LoadWord(bytes, std::min<uint32_t>(field.size, sizeof(uint64_t)));
  if (field.size > sizeof(uint64_t)) value |= WideValue{LoadWord(bytes + 8, field.size - 8)} << 64;
  return IsTurned(field.kind) ? OtherOrder(field.kind, field.size, value) : value;
}

void Store(const FieldRef &field, uint8_t *bytes, WideValue value) {
  if (IsTurned(field.kind)) value = OtherOrder(field.kind, field.size, value);
  StoreWord(bytes, std::min<uint32_t>(field.size, sizeof(uint64_t)), static_cast<uint64_t>(value));
  if (field.size > sizeof(uint64_t)) StoreWord(bytes + 8, field.size - 8, static_cast<uint64_t>(value >> 64));
}

template <typename Word>
bool StoreWhole(uint8_t *place, const uint8_t *bytes, size_t size) {
  if (size != sizeof(Word) || reinterpret_cast<uintptr_t>(place) % sizeof(Word) != 0) return false;
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  std::atomic_ref<Word>(*reinterpret_cast<Word *>(place)).store(word, std::memory_order_relaxed);
  return true;
}

WideValue SignExtend(WideValue value, uint32_t bits) {
  const bool negative = (value >> (bits - 1) & 1) != 0;
  return negative ? value | ~Mask(bits) : value;
}

std::optional<WideValue> ParseNumber(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  // As the library reads the numbers of a query.
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.size() > 1 && text.starts_with('0')) {
    base = 8;
  }
  uint64_t number = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error == std::errc::result_out_of_range && stop == end) return ~WideValue{0} >> 1;  // fits no field
  if (error != std::errc() || stop != end) return std::nullopt;
  return negative ? WideValue{0} - number : WideValue{number};
}

// What a text is not that is no number: people write bits in the words of other files, and numbers with the
// zeros of a list.
std::string WantedNumber(const FieldRef &field, std::string_view text) {
  constexpr std::string_view kYes[] = {"yes", "Yes", "YES", "on", "On", "ON", "True", "TRUE", "y", "Y"};
  constexpr std::string_view kNo[] = {"no", "No", "NO", "off", "Off", "OFF", "False", "FALSE", "n", "N"};
  if (field.Width() == 1) {
    if (std::ranges::find(kYes, text) != std::end(kYes)) return "a bit (write true)";
    if (std::ranges::find(kNo, text) != std::end(kNo)) return "a bit (write false)";
    return "a bit (true, false, 1 or 0)";
  }
  if (text.starts_with('0') && text.find_first_not_of("0123456789") == text.npos)
    return "a number (a leading 0 makes it octal; leave it out)";
  return "a number (decimal or 0x...)";
}

std::optional<WideValue> ParseIp(int family, std::string_view text, uint32_t size) {
  uint8_t bytes[16];
  if (inet_pton(family, std::string(text).c_str(), bytes) != 1) return std::nullopt;
  WideValue value = 0;
  for (uint32_t i = 0; i < size; ++i) value = value << 8 | bytes[i];
  return value;
}

// Six bytes of one or two hexadecimal digits, joined by ':' or '-'.
std::optional<WideValue> ParseMac(std::string_view text) {
  WideValue value = 0;
  const char *at = text.data();
  const char *end = at + text.size();
  for (int i = 0; i < 6; ++i) {
    if (i > 0 && (at == end || (*at != ':' && *at != '-'))) return std::nullopt;
    if (i > 0) ++at;
    uint8_t byte = 0;
    const auto [stop, error] = std::from_chars(at, at + std::min<ptrdiff_t>(2, end - at), byte, 16);
    if (error != std::errc()) return std::nullopt;
    at = stop;
    value = value << 8 | byte;
  }
  if (at != end) return std::nullopt;
  return value;
}

}  // namespace

WideValue FieldRef::Read(const void *record) const {
  const auto *bytes = static_cast<const uint8_t *>(record) + offset;
  if (size > sizeof(uint64_t) || IsTurned(kind)) return Load(*this, bytes);
  // Nearly all fields are these, and everything that shows data reads them.
  uint64_t word = LoadWord(bytes, size);
  if (bits != 0) word = word >> shift & (~uint64_t{0} >> (64 - bits));
  return kind == FieldKind::kSigned ? SignExtend(word, Width()) : WideValue{word};
}

void FieldRef::Write(void *record, WideValue value) const {
  uint8_t *bytes = static_cast<uint8_t *>(record) + offset;
  if (bits != 0) {
    const WideValue mask = Mask(bits) << shift;
    value = (Load(*this, bytes) & ~mask) | (value << shift & mask);
  }
  Store(*this, bytes, value);
}

void FieldRef::WriteShared(void *record, WideValue value) const {
  auto *place = static_cast<uint8_t *>(record) + offset;
  uint8_t word[16];
  std::memcpy(word, place, size);
  At(-offset).Write(word, value);
  if (!StoreWhole<uint16_t>(place, word, size) && !StoreWhole<uint32_t>(place, word, size) &&
      !StoreWhole<uint64_t>(place, word, size)) {
    std::memcpy(place, word, size);
  }
}

bool FieldRef::Fits(WideValue value) const {
  if (kind == FieldKind::kSigned) return SignExtend(value & Mask(Width()), Width()) == value;
  return (value & ~Mask(Width())) == 0;
}

int64_t FieldRef::Least() const {
  return kind == FieldKind::kSigned ? static_cast<int64_t>(~Mask(Width() - 1)) : 0;
}

uint64_t FieldRef::Greatest() const {
  const uint32_t width = kind == FieldKind::kSigned ? Width() - 1 : std::min(Width(), 64u);
  return static_cast<uint64_t>(Mask(width));
}

std::string_view FieldRef::GetText(const void *record) const {
  const char *text = static_cast<const char *>(record) + offset;
  return {text, strnlen(text, size)};
}

void FieldRef::SetText(void *record, std::string_view text) const {
  char *field = static_cast<char *>(record) + offset;
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min<size_t>(text.size(), size));
}

const Field *FieldSet::Find(std::string_view name) const {
  const std::span<const uint16_t> order(byName_, size_);
  const auto at = std::ranges::lower_bound(order, name, {}, [this](uint16_t i) { return fields_[i].name; });
  return at != order.end() && fields_[*at].name == name ? &fields_[*at] : nullptr;
}

const Field *FieldSet::Nearest(std::string_view name) const {
  NearName near(name);
  const Field *nearest = nullptr;
  for (const Field &field : all()) {
    if (near.Offer(field.name)) nearest = &field;
  }
  return nearest;
}

std::span<const FieldType> FieldTypes() { return kTypes; }

std::string_view TypeName(const FieldRef &field) {
  for (const FieldType &type : kTypes) {
    if (type.kind == field.kind && (type.size == field.size || type.size == 0)) return type.name;
  }
  return "";
}

std::optional<WideValue> ParseValue(const FieldRef &field, std::string_view text, std::string *problem) {
  std::optional<WideValue> value;
  std::string wanted;
  switch (FormOf(field.kind)) {
    case ValueForm::kIpv4:
      value = ParseIp(AF_INET, text, 4);
      wanted = "an IPv4 address (such as 192.0.2.1)";
      break;
    case ValueForm::kIpv6:
      value = ParseIp(AF_INET6, text, 16);
      wanted = "an IPv6 address (such as 2001:db8::1)";
      break;
    case ValueForm::kMac:
      value = ParseMac(text);
      wanted = "a MAC address (such as 02:00:5e:00:53:01)";
      break;
    default:
      value = ParseNumber(text);
      if (!value) wanted = WantedNumber(field, text);
      if (field.Width() == 1 && (text == "true" || text == "false")) value = text == "true";
      break;
  }
  if (!value) {
    *problem = Quoted(text) + " is not " + wanted;
  } else if (!field.Fits(*value)) {
    *problem = RangeProblem(field, std::string(text.substr(0, 40)));
    value.reset();
  }
  return value;
}

std::optional<uint32_t> ParseCount(std::string_view text) {
  const std::optional<WideValue> number = ParseNumber(text);
  if (!number || *number > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(*number);
}

std::optional<FieldRef> NarrowAddress(const FieldRef &field, std::string_view text) {
  if (ParseIp(AF_INET, text, 4)) return FieldRef{field.offset, 4, FieldKind::kIpv4, 0, 0};
  if (ParseIp(AF_INET6, text, 16)) return FieldRef{field.offset, 16, FieldKind::kIpv6, 0, 0};
  if (ParseMac(text)) return FieldRef{field.offset, 6, FieldKind::kMac, 0, 0};
  return std::nullopt;
}

WideValue StoredValue(const FieldRef &field, WideValue written) {
  if (!IsTimeAgo(field.kind)) return written;
  timespec now = {};
  clock_gettime(field.kind == FieldKind::kUptimeAgo ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
  const auto seconds = static_cast<WideValue>(now.tv_sec);
  return written < seconds ? seconds - written : 0;  // nothing is older than the clock
}

std::string RangeProblem(const FieldRef &field, const std::string &shown) {
  const uint32_t width = field.Width();
  const std::string low = std::to_string(field.Least());
  const std::string high = std::to_string(field.Greatest());
  return shown + " does not fit " + std::to_string(width) + (width == 1 ? " bit (" : " bits (") +
         (FormOf(field.kind) == ValueForm::kNumber ? low + " to " + high : "count less far") + ")";
}

std::string ValueText(const FieldRef &field, WideValue value) {
  char text[kValueRoom];
  return {text, WriteValue(field, value, text)};
}

}  // namespace qdt::host
