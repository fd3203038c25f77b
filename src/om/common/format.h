#ifndef SRC_OM_COMMON_FORMAT_H_
#define SRC_OM_COMMON_FORMAT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

// printf formats, parsed and checked against their arguments while compiling. What understands a format
// stands here; what writes text by it is in text.h.
namespace qdt::format {

// A format as a template argument.
template <size_t N>
struct Format {
  char text[N]{};
  static constexpr size_t kLength = N - 1;

  consteval Format(const char (&literal)[N]) {  // NOLINT(google-explicit-constructor): literals are the point
    for (size_t i = 0; i < N; ++i) text[i] = literal[i];
  }
};

enum class Size : uint8_t { kChar, kShort, kInt, kLong };

// One run of literal text and the conversion that follows it.
struct Piece {
  uint32_t literal = 0;  // where the literal begins in the format
  uint32_t length = 0;   // its characters
  char type = 0;         // 'u' 'd' 'x' 's' 'c' 'f', or 0 when no conversion follows
  Size size = Size::kInt;
  bool left = false;
  bool zero = false;
  bool widthIsArgument = false;
  uint16_t width = 0;
  uint8_t precision = 0;
  uint8_t argument = 0;  // index of the value, behind its width if that is an argument
};

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Walks a format once; `text[length]` is its NUL.
class Parser {
 public:
  consteval Parser(const char *text, size_t length) : text_(text), length_(length) {}

  consteval bool AtEnd() const { return at_ == length_; }

  consteval Piece Next() {
    Piece piece;
    piece.literal = at_;
    while (at_ < length_ && text_[at_] != '%') ++at_;
    piece.length = at_ - piece.literal;
    if (AtEnd()) return piece;
    ++at_;
    if (text_[at_] == '%') {  // "%%": the first of the two belongs to the literal
      ++piece.length;
      ++at_;
      return piece;
    }
    ParseConversion(piece);
    return piece;
  }

  consteval uint8_t arguments() const { return arguments_; }

 private:
  consteval void ParseConversion(Piece &piece) {
    for (;; ++at_) {
      if (text_[at_] == '-') {
        piece.left = true;
      } else if (text_[at_] == '0') {
        piece.zero = true;
      } else {
        break;
      }
    }
    if (text_[at_] == '*') {
      piece.widthIsArgument = true;
      ++arguments_;
      ++at_;
    } else {
      while (IsDigit(text_[at_])) piece.width = piece.width * 10 + (text_[at_++] - '0');
    }
    bool precise = false;
    if (text_[at_] == '.') {
      precise = true;
      ++at_;
      while (IsDigit(text_[at_])) piece.precision = piece.precision * 10 + (text_[at_++] - '0');
    }
    if (text_[at_] == 'h') {
      piece.size = text_[at_ + 1] == 'h' ? Size::kChar : Size::kShort;
      at_ += piece.size == Size::kChar ? 2 : 1;
    } else if (text_[at_] == 'l') {
      piece.size = Size::kLong;
      at_ += text_[at_ + 1] == 'l' ? 2 : 1;
    }
    piece.type = text_[at_];
    if (std::string_view("udxscf").find(piece.type) == std::string_view::npos) throw "unknown conversion";
    if ((piece.type == 'f') != precise) throw "a precision goes with %f, and %f needs one";
    if (piece.zero && (piece.left || std::string_view("udx").find(piece.type) == std::string_view::npos)) {
      throw "zeros go before integers that stand at the right";
    }
    piece.argument = arguments_++;
    ++at_;
  }

  const char *text_;
  size_t length_;
  uint32_t at_ = 0;
  uint8_t arguments_ = 0;
};

template <Format F>
consteval size_t CountPieces() {
  Parser parser(F.text, F.kLength);
  size_t count = 0;
  for (; !parser.AtEnd(); ++count) parser.Next();
  return count;
}

template <Format F>
consteval size_t CountArguments() {
  Parser parser(F.text, F.kLength);
  while (!parser.AtEnd()) parser.Next();
  return parser.arguments();
}

template <Format F>
consteval std::array<Piece, CountPieces<F>()> ParsePieces() {
  Parser parser(F.text, F.kLength);
  std::array<Piece, CountPieces<F>()> pieces{};
  for (Piece &piece : pieces) piece = parser.Next();
  return pieces;
}

// The parsed form of format F.
template <Format F>
struct Plan {
  static constexpr size_t kPieces = CountPieces<F>();
  static constexpr size_t kArguments = CountArguments<F>();
  static constexpr std::array<Piece, kPieces> kTable = ParsePieces<F>();
};

// Most characters that a conversion's digits and sign take; what a text takes is known at run time only.
constexpr size_t MaxBody(const Piece &piece) {
  constexpr size_t kUnsigned[] = {3, 5, 10, 20};
  constexpr size_t kSigned[] = {4, 6, 11, 20};
  constexpr size_t kHexadecimal[] = {2, 4, 8, 16};
  constexpr size_t kDoubleDigits = 309;
  const auto size = static_cast<size_t>(piece.size);
  switch (piece.type) {
    case 'u':
      return kUnsigned[size];
    case 'd':
      return kSigned[size];
    case 'x':
      return kHexadecimal[size];
    case 'c':
      return 1;
    case 'f':
      return kDoubleDigits + 2 + piece.precision;
    default:
      return 0;
  }
}

constexpr size_t MaxField(const Piece &piece) {
  return MaxBody(piece) > piece.width ? MaxBody(piece) : piece.width;
}

// Whether the conversion prints a value of type T as printf would print it, without a change of sign or width
// that the reader of the call does not see.
template <typename T>
constexpr bool Accepts(const Piece &piece) {
  if (piece.type == 's') return std::is_convertible_v<T, std::string_view>;
  if (piece.type == 'c') return std::is_same_v<T, char>;
  if (piece.type == 'f') return std::is_same_v<T, double>;
  if (!std::is_integral_v<T> || std::is_same_v<T, char>) return false;
  if (piece.size == Size::kLong) return sizeof(T) == 8 && std::is_signed_v<T> == (piece.type == 'd');
  if (piece.type == 'd') return sizeof(T) < 4 || (sizeof(T) == 4 && std::is_signed_v<T>);
  return sizeof(T) <= 4 && std::is_unsigned_v<T>;
}

}  // namespace qdt::format

#endif  // SRC_OM_COMMON_FORMAT_H_
