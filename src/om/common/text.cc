#include "src/om/common/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "src/om/common/address.h"
#include "src/om/common/digits.h"

namespace qdt {
namespace {

using format::Kind;
using format::Piece;
using format::Program;

constexpr char kDigits[] = "0123456789abcdef";

// Copies a short run of characters, and touches nothing else: two copies that overlap are as quick as one,
// and quicker than a call.
template <size_t kSize>
void CopyEnds(char *to, const char *from, size_t length) {
  char first[kSize], last[kSize];
  std::memcpy(first, from, kSize);
  std::memcpy(last, from + length - kSize, kSize);
  std::memcpy(to, first, kSize);
  std::memcpy(to + length - kSize, last, kSize);
}

void CopyLiteral(char *to, const char *from, size_t length) {
  if (length > 32) {
    std::memcpy(to, from, length);
  } else if (length >= 16) {
    CopyEnds<16>(to, from, length);
  } else if (length >= 8) {
    CopyEnds<8>(to, from, length);
  } else if (length >= 4) {
    CopyEnds<4>(to, from, length);
  } else if (length != 0) {
    to[0] = from[0];
    to[length / 2] = from[length / 2];
    to[length - 1] = from[length - 1];
  }
}

// A value and how it is padded.
struct Field {
  std::string_view body;
  size_t padding;
  bool left;
  bool zeros;

  size_t size() const { return body.size() + padding; }
};

// "%.*f", in a buffer that has room for the longest double.
constexpr size_t kLongestBody = 340;

char *PutFixed(char *at, double value, int precision) {
  return at + std::snprintf(at, kLongestBody, "%.*f", precision, value);
}

char *PutSigned(char *at, uint64_t value) {
  if (static_cast<int64_t>(value) < 0) {
    *at++ = '-';
    value = -value;
  }
  return PutUnsigned64(at, value);
}

std::string_view TextOf(Kind kind, uint64_t value) {
  if (kind == Kind::kView) return *reinterpret_cast<const std::string_view *>(value);
  const auto *const text = reinterpret_cast<const char *>(value);
  return text == nullptr ? std::string_view() : text;
}

// Writes what `kind` makes of a value, which is no text, and returns its end.
char *PutValue(char *at, Kind kind, const Piece &piece, uint64_t value) {
  switch (kind) {
    case Kind::kUnsigned:
      return PutUnsigned64(at, value);
    case Kind::kSigned:
      return PutSigned(at, value);
    case Kind::kMac:
      return PutMac(at, reinterpret_cast<const uint8_t *>(value));
    case Kind::kCharacter:
      *at = static_cast<char>(value);
      return at + 1;
    case Kind::kIpv4:
      return PutIpv4(at, static_cast<uint32_t>(value));
    case Kind::kIpv6:
      return PutIpv6(at, reinterpret_cast<const uint8_t *>(value));
    case Kind::kIpv6Words:
      return PutIpv6(at, reinterpret_cast<const uint32_t *>(value));
    case Kind::kFixed:
      return PutFixed(at, std::bit_cast<double>(value), piece.Precision());
    default:
      return PutHexadecimal(at, value);
  }
}

// What a piece that has a value makes of it; `values` is moved past what it takes, `buffer` may hold the
// body.
Field MakeField(const Piece &piece, const uint64_t *&values, char *buffer) {
  Kind kind = piece.kind;
  Field field{{}, 0, piece.Has(Piece::kLeft), piece.Has(Piece::kZero)};
  int64_t width = piece.width;
  if (kind >= Kind::kFirstPadded) kind = format::Unpadded(kind);
  if (piece.Has(Piece::kWidthIsArgument)) {
    width = static_cast<int64_t>(*values++);
    if (width < 0) {
      field.left = true;
      field.zeros = false;
      width = -width;
    }
  }
  const uint64_t value = *values++;
  if (kind == Kind::kText || kind == Kind::kView) {
    field.body = TextOf(kind, value);
  } else {
    field.body = {buffer, static_cast<size_t>(PutValue(buffer, kind, piece, value) - buffer)};
  }
  if (field.body.size() < static_cast<size_t>(width))
    field.padding = static_cast<size_t>(width) - field.body.size();
  return field;
}

char *Pad(char *at, char fill, size_t count) {
  std::memset(at, fill, count);
  return at + count;
}

char *PutField(char *at, const Field &field) {
  std::string_view body = field.body;
  if (field.zeros && !body.empty() && body.front() == '-') {
    *at++ = '-';
    body.remove_prefix(1);
  }
  if (!field.left) at = Pad(at, field.zeros ? '0' : ' ', field.padding);
  at += body.copy(at, body.size());  // an empty view may point nowhere, which memcpy must not see
  return field.left ? Pad(at, ' ', field.padding) : at;
}

}  // namespace

Text::Text(char *out, uint32_t room)
    : begin_(out), at_(out), end_(out == nullptr ? out : out + room), failed_(begin_ == end_) {
  if (!failed_) *at_ = '\0';
}

bool Text::RunWith(const Program &program, uint64_t value) { return Run(program, &value); }

bool Text::RunWithAll(const Program &program, ...) {
  uint64_t values[format::kMostArguments];
  va_list list;
  va_start(list, program);
  for (int i = 0; i < program.arguments; ++i) values[i] = va_arg(list, uint64_t);
  va_end(list);
  return Run(program, values);
}

bool Text::Run(const Program &program, const uint64_t *values) {
  // What is left of the room when all numbers are as long as can be, for texts and widths that are arguments.
  size_t slack = Room();
  if (failed_ || slack <= program.bound) return RunChecked(program, values);
  slack -= program.bound + 1;
  const uint64_t *value = values;
  const char *literal = program.Literals();
  char *at = at_;
  for (const Piece *piece = program.Pieces();; ++piece) {
    const size_t length = piece->literal;
    CopyLiteral(at, literal, length);
    at += length;
    literal += length;
    switch (piece->kind) {
      case Kind::kNone:
        break;
      case Kind::kUnsigned:
        // Flags and small counts are most of what records hold.
        if (*value < 10) {
          *at++ = static_cast<char>('0' + *value++);
        } else {
          at = PutUnsigned64(at, *value++);
        }
        break;
      case Kind::kSigned:
        at = PutSigned(at, *value++);
        break;
      case Kind::kHexadecimal:
        at = PutHexadecimal(at, *value++);
        break;
      case Kind::kWord:
        at = PutWord(at, static_cast<uint32_t>(*value++));
        break;
      case Kind::kMac:
        at = PutMac(at, reinterpret_cast<const uint8_t *>(*value++));
        break;
      case Kind::kIpv4:
        at = PutIpv4(at, static_cast<uint32_t>(*value++));
        break;
      default: {
        char buffer[kLongestBody];
        const Field field = MakeField(*piece, value, buffer);
        if (field.size() > slack) return RunChecked(program, values);
        slack -= field.size();
        at = PutField(at, field);
      }
    }
    if (piece->Has(Piece::kLast)) {
      if (piece->Has(Piece::kNewline)) *at++ = '\n';
      break;
    }
  }
  *at = '\0';
  at_ = at;
  return true;
}

// Looks at the room before each step.
bool Text::RunChecked(const Program &program, const uint64_t *values) {
  if (failed_) return false;
  const char *literal = program.Literals();
  char *at = at_;
  for (const Piece *piece = program.Pieces();; ++piece) {
    if (static_cast<size_t>(end_ - at) <= piece->literal) break;
    CopyLiteral(at, literal, piece->literal);
    at += piece->literal;
    literal += piece->literal;
    if (piece->kind != Kind::kNone) {
      char buffer[kLongestBody];
      const Field field = MakeField(*piece, values, buffer);
      if (static_cast<size_t>(end_ - at) <= field.size()) break;
      at = PutField(at, field);
    }
    if (!piece->Has(Piece::kLast)) continue;
    if (piece->Has(Piece::kNewline)) {
      if (end_ - at <= 1) break;
      *at++ = '\n';
    }
    *at = '\0';
    at_ = at;
    return true;
  }
  *at_ = '\0';
  failed_ = true;
  return false;
}

}  // namespace qdt
