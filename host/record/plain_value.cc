#include "host/record/plain_value.h"

namespace qdt::host {

PlainValue::PlainValue(const FieldRef &ref, Bits bits) : offset_(ref.offset), ref_(ref) {
  switch (ref.kind) {
    case FieldKind::kMac:
      way_ = Way::kMac;
      return;
    case FieldKind::kIpv4:
      way_ = Way::kIpv4;
      return;
    case FieldKind::kIpv4Net:
      way_ = Way::kIpv4Net;
      return;
    case FieldKind::kUnsigned:
      break;
    default:
      return;
  }
  // Of a word of which some bits count, no more bytes are loaded than they stand in.
  uint32_t size = ref.size;
  if (ref.bits != 0) {
    shift_ = ref.shift;
    mask_ = ~uint64_t{0} >> (64 - ref.bits);
    while (size > 1 && ref.size % 2 == 0) {
      const uint32_t half = size / 2;
      const uint32_t last = shift_ + ref.bits - 1u;
      if (last < half * 8) {
        size = half;
      } else if (shift_ >= half * 8) {
        size = half;
        offset_ += half;
        shift_ = static_cast<uint8_t>(shift_ - half * 8);
      } else {
        break;
      }
    }
  }
  if (size == 1) way_ = ref.Width() == 1 && bits == Bits::kWords ? Way::kBit : Way::kByte;
  if (size == 2) way_ = Way::kTwoBytes;
  if (size == 4) way_ = Way::kFourBytes;
  if (size == 8) way_ = Way::kEightBytes;
}

char *PlainValue::PutOther(const uint8_t *bytes, char *at) const {
  return at + WriteValue(ref_, ref_.Read(bytes), at);
}

}  // namespace qdt::host
