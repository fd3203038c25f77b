#ifndef HOST_RECORD_PLAIN_VALUE_H_
#define HOST_RECORD_PLAIN_VALUE_H_

#include <cstdint>
#include <cstring>
#include <optional>

#include "host/layout/digits.h"
#include "host/layout/value_text.h"

namespace qdt::host {

// A value whose text is made of its bytes alone and nowhere needs to be escaped, as that of nearly all
// fields: how its bytes are loaded and written is found out once, and done for every record.
class PlainValue {
 public:
  // How many characters Put may write, of which it leaves some behind the end that it returns.
  static constexpr size_t kRoom = kValueRoom;

  // Nothing for texts, references, times, areas for addresses of any kind, and a sign alone. `bits` says
  // whether single bits are "true" and "false", else they are 1 and 0.
  enum class Bits : uint8_t { kNumbers, kWords };
  static std::optional<PlainValue> Of(const FieldRef &ref, Bits bits) {
    if (ref.kind == FieldKind::kText || ref.kind == FieldKind::kReference ||
        ref.kind == FieldKind::kAddress || IsTimeAgo(ref.kind) ||
        (ref.Width() == 1 && ref.kind != FieldKind::kUnsigned)) {
      return std::nullopt;
    }
    return PlainValue(ref, bits);
  }

  // Whether it is a number or a bit, which JSON has without quotes.
  bool IsNumber() const { return FormOf(ref_.kind) == ValueForm::kNumber; }

  // Writes the value of a key or record.
  [[gnu::always_inline]] char *Put(const uint8_t *bytes, char *at) const {
    const uint8_t *from = bytes + offset_;
    switch (way_) {
      case Way::kBit: {
        const uint32_t bit = *from >> shift_ & 1;
        std::memcpy(at, kWords[bit], sizeof(kWords[bit]));
        return at + 5 - bit;
      }
      case Way::kByte:
        return PutDecimal(at, *from >> shift_ & mask_);
      case Way::kTwoBytes:
        return PutDecimal(at, Load<uint16_t>(from) >> shift_ & mask_);
      case Way::kFourBytes:
        return PutDecimal(at, Load<uint32_t>(from) >> shift_ & mask_);
      case Way::kEightBytes:
        return PutDecimal(at, Load<uint64_t>(from) >> shift_ & mask_);
      case Way::kMac:
        return PutMac(at, from);
      case Way::kIpv4:
        return PutIpv4(at, Load<uint32_t>(from));
      case Way::kIpv4Net:
        return PutIpv4(at, __builtin_bswap32(Load<uint32_t>(from)));
      case Way::kOther:
        break;
    }
    return PutOther(bytes, at);
  }

 private:
  static constexpr char kWords[2][8] = {{'f', 'a', 'l', 's', 'e'}, {'t', 'r', 'u', 'e'}};

  enum class Way : uint8_t { kBit, kByte, kTwoBytes, kFourBytes, kEightBytes, kMac, kIpv4, kIpv4Net, kOther };

  PlainValue(const FieldRef &ref, Bits bits);
  char *PutOther(const uint8_t *bytes, char *at) const;

  template <typename Word>
  static Word Load(const uint8_t *from) {
    Word word;
    std::memcpy(&word, from, sizeof(word));
    return word;
  }

  Way way_ = Way::kOther;
  uint8_t shift_ = 0;
  uint32_t offset_;
  uint64_t mask_ = ~uint64_t{0};
  FieldRef ref_;
};

}  // namespace qdt::host

#endif  // HOST_RECORD_PLAIN_VALUE_H_
