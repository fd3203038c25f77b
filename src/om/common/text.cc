#include "src/om/common/text.h"

#include <cstdio>
#include <cstring>

#include "src/om/common/address.h"
#include "src/om/common/digits.h"

namespace qdt {
namespace {

using format::Kind;
using format::Piece;
using format::Program;

// Copies a short run of characters, and touches nothing else: two copies that overlap are as quick as one,
// and quicker than a call.
template <size_t kSize>
[[gnu::always_inline]] inline void CopyEnds(char *to, const char *from, size_t length) {
  char first[kSize], last[kSize];
  std::memcpy(first, from, kSize);
  std::memcpy(last, from + length - kSize, kSize);
  std::memcpy(to, first, kSize);
  std::memcpy(to + length - kSize, last, kSize);
}

[[gnu::always_inline]] inline void CopyText(char *to, const char *from, size_t length) {
  if (length >= 16) {
    for (; length > 32; length -= 16, to += 16, from += 16) std::memcpy(to, from, 16);
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

char *Pad(char *at, char fill, size_t count) {
  constexpr std::string_view kBlanks = "                                ";
  if (fill == ' ' && count <= kBlanks.size()) {
    CopyText(at, kBlanks.data(), count);
  } else {
    std::memset(at, fill, count);
  }
  return at + count;
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

// Flags and small counts are most of what records hold.
[[gnu::always_inline]] inline char *PutNumber(char *at, uint64_t value) {
  if (value < 10) [[likely]] {
    *at = static_cast<char>('0' + value);
    return at + 1;
  }
  return value <= UINT32_MAX ? PutUnsigned(at, static_cast<uint32_t>(value)) : PutUnsigned64(at, value);
}

[[gnu::always_inline]] inline char *PutSigned(char *at, uint64_t value) {
  if (static_cast<int64_t>(value) < 0) {
    *at++ = '-';
    value = -value;
  }
  return PutNumber(at, value);
}

std::string_view TextOf(Kind kind, uint64_t value) {
  if (kind == Kind::kView) return *reinterpret_cast<const std::string_view *>(value);
  const auto *const text = reinterpret_cast<const char *>(value);
  return text == nullptr ? std::string_view() : text;
}

// What is no text, without what pads it.
[[gnu::noinline]] char *PutOther(char *at, Kind kind, uint64_t value) {
  switch (kind) {
    case Kind::kLabelled:
    case Kind::kUnsigned:
    case Kind::kPaddedUnsigned:
      return PutNumber(at, value);
    case Kind::kSigned:
    case Kind::kPaddedSigned:
      return PutSigned(at, value);
    case Kind::kPaddedHexadecimal:
    case Kind::kHexadecimal:
      return PutHexadecimal(at, value);
    case Kind::kByte:
      return value > 0xFF ? PutHexadecimal(at, value) : PutByte(at, static_cast<uint8_t>(value));
    case Kind::kWord:
      return PutWord(at, static_cast<uint32_t>(value));
    case Kind::kMac:
      return PutMac(at, reinterpret_cast<const uint8_t *>(value));
    case Kind::kIpv4:
      return PutIpv4(at, static_cast<uint32_t>(value));
    case Kind::kIpv6:
      return PutIpv6(at, reinterpret_cast<const uint8_t *>(value));
    case Kind::kIpv6Words:
      return PutIpv6(at, reinterpret_cast<const uint32_t *>(value));
    default:
      *at = static_cast<char>(value);  // a character
      return at + 1;
  }
}

// What a piece makes of its value, of which `width` stands before it where that is an argument. `buffer` may
// hold the body.
Field MakeField(const Piece &piece, const uint64_t *values, char *buffer) {
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
  if (kind == Kind::kText || kind == Kind::kView) {
    field.body = TextOf(kind, *values);
  } else {
    const char *const end = kind == Kind::kFixed
                                ? PutFixed(buffer, std::bit_cast<double>(*values), piece.Precision())
                                : PutOther(buffer, kind, *values);
    field.body = {buffer, static_cast<size_t>(end - buffer)};
  }
  if (field.body.size() < static_cast<size_t>(width)) {
    field.padding = static_cast<size_t>(width) - field.body.size();
  }
  return field;
}

// How many values a piece takes.
size_t Takes(const Piece &piece) {
  return piece.kind == Kind::kNone ? 0 : piece.Has(Piece::kWidthIsArgument) ? 2 : 1;
}

// The values of a program of which this piece's are known.
const uint64_t *FirstValue(const Program &program, const Piece *piece, const uint64_t *value) {
  while (piece != program.First()) value -= Takes(*--piece);
  return value;
}

char *PutField(char *at, const Field &field) {
  std::string_view body = field.body;
  if (field.zeros && !body.empty() && body.front() == '-') {
    *at++ = '-';
    body.remove_prefix(1);
  }
  if (!field.left) at = Pad(at, field.zeros ? '0' : ' ', field.padding);
  CopyText(at, body.data(), body.size());
  at += body.size();
  return field.left ? Pad(at, ' ', field.padding) : at;
}

// Fills a number up to its piece's width, where it stands; its new end. What stands to its right is written
// there anew: digits that were stored just now are not to be had in one piece yet.
[[gnu::noinline]] char *PadNumber(char *begin, char *end, const Piece &piece, uint64_t value) {
  const auto size = static_cast<size_t>(end - begin);
  if (size >= piece.width) return end;
  const size_t padding = piece.width - size;
  if (piece.Has(Piece::kLeft)) return Pad(end, ' ', padding);
  const bool zeros = piece.Has(Piece::kZero);
  end = PutOther(begin + padding, piece.kind, value);
  if (zeros && begin[padding] == '-') {
    begin[padding] = '0';
    *begin++ = '-';
    Pad(begin, '0', padding - 1);
  } else {
    Pad(begin, zeros ? '0' : ' ', padding);
  }
  return end;
}

// A value that is no text, and whose longest the format tells.
[[gnu::always_inline]] inline char *PutKnown(char *at, const Piece &piece, uint64_t value) {
  if (piece.kind <= Kind::kUnsigned) return PutNumber(at, value);
  if (piece.kind == Kind::kSigned) return PutSigned(at, value);
  char *const end = PutOther(at, piece.kind, value);
  return piece.kind >= Kind::kPaddedUnsigned ? PadNumber(at, end, piece, value) : end;
}

// Writes a padded value at `at` and returns its end; null when it would reach beyond `limit`, which may lie
// before `at`.
[[gnu::noinline]] char *PutPadded(char *at, const char *limit, const Piece &piece, const uint64_t *values) {
  char buffer[kLongestBody];
  const Field field = MakeField(piece, values, buffer);
  return static_cast<ptrdiff_t>(field.size()) > limit - at ? nullptr : PutField(at, field);
}

// The same for a text that is not padded.
char *PutText(char *at, const char *limit, std::string_view text) {
  if (static_cast<ptrdiff_t>(text.size()) > limit - at) return nullptr;
  CopyText(at, text.data(), text.size());
  return at + text.size();
}

}  // namespace

// Most literals without a value are one piece.
bool Text::RunText(const Program &program) {
  if (program.pieces != 1 || Room() <= program.bound) [[unlikely]]
    return Run(program, nullptr);
  const Piece &piece = *program.First();
  CopyText(at_, program.Literals(), piece.length);
  return End(piece, at_ + piece.length);
}

// Nothing is written to the value on the stack, which therefore wants no guard.
__attribute__((noinline, no_stack_protector)) bool Text::RunOne(const Program &program, uint64_t value) {
  const Piece &piece = *program.First();
  if (program.pieces != 1 || Room() <= program.bound) return Run(program, &value);
  if (piece.kind > Kind::kLastOfKnownLength) return RunRest(program, &piece, program.Literals(), &value, at_);
  CopyText(at_, program.Literals(), piece.length);
  return End(piece, PutKnown(at_ + piece.length, piece, value));
}

bool Text::RunLabelledLine(const Program &program, uint64_t value) {
  if (Room() <= program.bound) [[unlikely]]
    return RunOne(program, value);
  const Piece *const piece = program.First();
  const size_t length = piece->length;
  char *const at = at_;
  CopyEnds<16>(at, reinterpret_cast<const char *>(piece + 1), length);
  return EndLine(PutNumber(at + length, value));
}

bool Text::RunLine(const Program &program, uint64_t value) {
  if (Room() <= program.bound) [[unlikely]]
    return RunOne(program, value);
  const Piece *const piece = program.First();
  const size_t length = piece->length;
  const bool isSigned = piece->kind == Kind::kSigned;
  char *const at = at_;
  CopyText(at, reinterpret_cast<const char *>(piece + 1), length);
  return EndLine(isSigned ? PutSigned(at + length, value) : PutNumber(at + length, value));
}

// Numbers and addresses, whose room was seen to at the start. Anything else goes on in RunRest.
bool Text::Run(const Program &program, const uint64_t *values) {
  if (Room() <= program.bound) [[unlikely]]
    return RunChecked(program, values);
  const char *literal = program.Literals();
  char *at = at_;
  for (const Piece *next = program.First();; ++next) {
    const Piece &piece = *next;
    const size_t length = piece.length;
    const Kind kind = piece.kind;
    if (kind == Kind::kLabelled) [[likely]] {
      CopyEnds<16>(at, literal, length);
      literal += length;
      at = PutNumber(at + length, *values++);
      continue;
    }
    if (kind > Kind::kLastOfKnownLength) return RunRest(program, next, literal, values, at);
    CopyText(at, literal, length);
    literal += length;
    at += length;
    if (kind != Kind::kNone) at = PutKnown(at, piece, *values++);
    if (piece.Has(Piece::kLast)) return End(piece, at);
  }
}

// Goes on at a piece with a text or a width; what is printed before it stands at the text's end. All of where
// it stands is handed over in registers: by way of memory it took as long as the rest.
bool Text::RunRest(const Program &program, const Piece *next, const char *literal, const uint64_t *value,
                   char *at) {
  // Up to here texts and widths that are arguments may reach: what is behind is for the rest.
  const char *const limit = end_ - 1 - program.bound;
  for (;; ++next) {
    const Piece &piece = *next;
    CopyText(at, literal, piece.length);
    literal += piece.length;
    at += piece.length;
    if (piece.kind == Kind::kText || piece.kind == Kind::kView) {
      at = PutText(at, limit, TextOf(piece.kind, *value));
    } else if (piece.kind > Kind::kLastOfKnownLength) {
      at = PutPadded(at, limit, piece, value);
    } else if (piece.kind != Kind::kNone) {
      at = PutKnown(at, piece, *value);
    }
    if (at == nullptr) return RunChecked(program, FirstValue(program, next, value));
    if (piece.Has(Piece::kLast)) return End(piece, at);
    value += Takes(piece);
  }
}

// Ends the text at `at`, behind the value of a program's last piece.
bool Text::End(const Piece &last, char *at) {
  if (last.Has(Piece::kNewline)) *at++ = '\n';
  *at = '\0';
  at_ = at;
  return true;
}

bool Text::EndLine(char *at) {
  std::memcpy(at, "\n", 2);  // the NUL as well
  at_ = at + 1;
  return true;
}

// Looks at the room before each step.
bool Text::RunChecked(const Program &program, const uint64_t *values) {
  if (failed_) return false;
  char *at = at_;
  const char *literal = program.Literals();
  for (const Piece *piece = program.First();; ++piece) {
    if (static_cast<size_t>(end_ - at) <= piece->length) break;
    CopyText(at, literal, piece->length);
    literal += piece->length;
    at += piece->length;
    if (piece->kind != Kind::kNone) {
      at = PutPadded(at, end_ - 1, *piece, values);
      if (at == nullptr) break;
      values += Takes(*piece);
    }
    if (!piece->Has(Piece::kLast)) continue;
    if (piece->Has(Piece::kNewline) && end_ - at <= 1) break;
    return End(*piece, at);
  }
  *at_ = '\0';
  Close();
  return false;
}

}  // namespace qdt
