#ifndef SRC_OM_COMMON_FORMAT_H_
#define SRC_OM_COMMON_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

// printf formats, parsed and checked against their arguments while compiling. What understands a format
// stands here and leaves a program of a few bytes; text.cc runs programs.
namespace qdt {

// The six bytes of a MAC address, for the six conversions "%02x:%02x:%02x:%02x:%02x:%02x", which take it as
// one argument. Points to the bytes.
struct Mac {
  const uint8_t *bytes;
  explicit Mac(const uint8_t (&address)[6]) : bytes(address) {}
};

// Addresses for %s, as they lie in records: a host-order word, 16 bytes in network order, four host-order
// words. The latter two are pointed to.
struct Ipv4 {
  uint32_t address;
};
struct Ipv6 {
  const uint8_t *bytes;
};
struct Ipv6Words {
  const uint32_t *words;
};
inline Ipv4 Address(uint32_t address) { return {address}; }
inline Ipv6 Address(const uint8_t (&bytes)[16]) { return {bytes}; }
inline Ipv6Words Address(const uint32_t (&words)[4]) { return {words}; }

namespace format {

// Ends the compilation where a constant expression comes to call it: it is defined nowhere.
void Refuse(const char *why);

// A format as a template argument.
template <size_t N>
struct Format {
  char text[N]{};
  static constexpr size_t kLength = N - 1;

  consteval Format(const char (&literal)[N]) {  // NOLINT(google-explicit-constructor): literals are the point
    for (size_t i = 0; i < N; ++i) text[i] = literal[i];
  }
};

// How a value is printed. Values are handed over as 64 bits: numbers extended by their own sign, texts as the
// address of their characters (kText) or of a std::string_view (kView), doubles as their bits.
enum class Kind : uint8_t {
  kNone,  // no value: the literal goes on in the next piece, or ends the program
  // kUnsigned behind a literal of 16 to 32 characters: most of what views print. Of several pieces never the
  // last, so that a run of these has nothing else to ask for.
  kLabelled,
  kUnsigned,
  kSigned,
  kHexadecimal,
  kByte,  // two hexadecimal digits at least
  kWord,  // eight
  kMac,
  kCharacter,
  kIpv4,
  kIpv6,
  kIpv6Words,
  kPaddedUnsigned,  // these three to a width that the format names
  kPaddedSigned,
  kPaddedHexadecimal,
  kLastOfKnownLength = kPaddedHexadecimal,  // up to here the format says how long a value can be
  kFixed,
  kText,
  kView,
  kFirstPadded,  // from here on: padded to a width; the kind is what is left
};

constexpr Kind Padded(Kind kind) {
  return static_cast<Kind>(static_cast<uint8_t>(kind) + static_cast<uint8_t>(Kind::kFirstPadded));
}
constexpr Kind Unpadded(Kind kind) {
  return static_cast<Kind>(static_cast<uint8_t>(kind) - static_cast<uint8_t>(Kind::kFirstPadded));
}

// One run of literal text and how the value behind it is printed. The characters of the literal follow.
struct Piece {
  enum Flag : uint8_t {
    kLeft = 1,
    kZero = 2,
    kWidthIsArgument = 4,
    kNewline = 8,  // behind the value; the piece is the last
    kLast = 16,
    kPrecision = 32,  // its lowest bit
  };
  static constexpr uint8_t kMaxPrecision = 7;

  uint8_t length;  // of the literal
  Kind kind;
  uint8_t width;
  uint8_t flags;

  constexpr bool Has(int flag) const { return (flags & flag) != 0; }
  int Precision() const { return flags / kPrecision; }
};

// What every program begins with; its pieces follow, then their literals, one behind the other: where the
// next piece stands is known before this one has been looked at. A program holds no address, so that the
// loader has nothing to do.
struct Program {
  uint16_t bound;  // characters that are printed at most, apart from texts and widths that are arguments
  uint16_t pieces;

  const Piece *First() const { return reinterpret_cast<const Piece *>(this + 1); }
  const char *Literals() const { return reinterpret_cast<const char *>(First() + pieces); }
};

// What most programs are, for which there is a quicker way: one decimal number and a line's end.
enum class Form : uint8_t {
  kOther,
  kLine,
  kLabelledLine,  // behind a literal of 16 to 32 characters
};

// A conversion as it stands in a format.
struct Conversion {
  size_t literal = 0;  // where the literal before it begins in the format
  size_t length = 0;   // the literal's characters
  char type = 0;       // 'u' 'd' 'x' 's' 'c' 'f', 'm' for a MAC address, or 0 where none follows
  uint8_t bytes = 4;   // of an integer
  bool left = false, zero = false, widthIsArgument = false;
  uint8_t width = 0, precision = 0;
};

// What a conversion has to know of its argument.
struct Argument {
  enum class Type : uint8_t {
    kOther,
    kInteger,
    kCharacter,
    kDouble,
    kText,
    kView,
    kIpv4,
    kIpv6,
    kIpv6Words,
    kMac
  } type;
  bool isSigned;
  uint8_t bytes;
};

template <typename T>
consteval Argument Describe() {
  using enum Argument::Type;
  if constexpr (std::is_same_v<T, Mac>) return {kMac, false, 0};
  if constexpr (std::is_same_v<T, Ipv4>) return {kIpv4, false, 0};
  if constexpr (std::is_same_v<T, Ipv6>) return {kIpv6, false, 0};
  if constexpr (std::is_same_v<T, Ipv6Words>) return {kIpv6Words, false, 0};
  if constexpr (std::is_same_v<T, char>) return {kCharacter, false, 1};
  if constexpr (std::is_same_v<T, double>) return {kDouble, false, 8};
  if constexpr (std::is_integral_v<T>) return {kInteger, std::is_signed_v<T>, sizeof(T)};
  if constexpr (std::is_same_v<T, const char *> || std::is_same_v<T, char *>) return {kText, false, 0};
  if constexpr (std::is_convertible_v<T, std::string_view>) return {kView, false, 0};
  return {kOther, false, 0};
}

// Whether the conversion prints such an argument as printf would print it, without a change of sign or width
// that the reader of the call does not see.
constexpr bool Accepts(const Conversion &conversion, const Argument &argument) {
  using enum Argument::Type;
  switch (conversion.type) {
    case 's':
      return argument.type >= kText && argument.type <= kIpv6Words;
    case 'c':
      return argument.type == kCharacter;
    case 'f':
      return argument.type == kDouble;
    case 'm':
      return argument.type == kMac;
    default:
      break;
  }
  const bool isSigned = conversion.type == 'd';
  if (argument.type != kInteger) return false;
  if (conversion.bytes == 8) return argument.bytes == 8 && argument.isSigned == isSigned;
  if (isSigned) return argument.bytes < 4 || (argument.bytes == 4 && argument.isSigned);
  return argument.bytes <= 4 && !argument.isSigned;
}

// Walks a format once; `text[length]` is its NUL.
class Parser {
 public:
  constexpr Parser(const char *text, size_t length) : text_(text), length_(length) {}

  constexpr bool AtEnd() const { return at_ == length_; }

  // The literal that begins here and the conversion that ends it.
  constexpr Conversion Next() {
    constexpr size_t kLongest = UINT8_MAX;
    Conversion next;
    next.literal = at_;
    while (at_ < length_ && text_[at_] != '%' && at_ - next.literal < kLongest) ++at_;
    next.length = at_ - next.literal;
    if (AtEnd() || text_[at_] != '%') return next;
    ++at_;
    if (text_[at_] == '%') {  // "%%": the first of the two belongs to the literal
      if (next.length == kLongest) {
        --at_;
        return next;
      }
      ++next.length;
      ++at_;
      return next;
    }
    if (!IsMac())
      ParseConversion(next);
    else
      next.type = 'm';
    return next;
  }

 private:
  static constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

  // Passes over the rest of a MAC address' conversions, if it is them that stand here.
  constexpr bool IsMac() {
    constexpr std::string_view kRest = "02x:%02x:%02x:%02x:%02x:%02x";
    if (!std::string_view(text_ + at_, length_ - at_).starts_with(kRest)) return false;
    at_ += kRest.size();
    return true;
  }

  constexpr uint8_t ParseNumber() {
    unsigned number = 0;
    while (IsDigit(text_[at_])) number = number * 10 + static_cast<unsigned>(text_[at_++] - '0');
    if (number > UINT8_MAX) Refuse("a width above 255");
    return static_cast<uint8_t>(number);
  }

  constexpr void ParseConversion(Conversion &c) {
    for (;; ++at_) {
      if (text_[at_] == '-') {
        c.left = true;
      } else if (text_[at_] == '0') {
        c.zero = true;
      } else {
        break;
      }
    }
    if (text_[at_] == '*') {
      c.widthIsArgument = true;
      ++at_;
    } else {
      c.width = ParseNumber();
    }
    bool precise = false;
    if (text_[at_] == '.') {
      precise = true;
      ++at_;
      c.precision = ParseNumber();
    }
    if (text_[at_] == 'h') {
      c.bytes = text_[at_ + 1] == 'h' ? 1 : 2;
      at_ += c.bytes == 1 ? 2 : 1;
    } else if (text_[at_] == 'l') {
      c.bytes = 8;
      at_ += text_[at_ + 1] == 'l' ? 2 : 1;
    }
    c.type = text_[at_];
    if (std::string_view("udxscf").find(c.type) == std::string_view::npos) Refuse("unknown conversion");
    if ((c.type == 'f') != precise || c.precision > Piece::kMaxPrecision)
      Refuse("a precision goes with %f, and %f needs one");
    if (c.zero && (c.left || std::string_view("udx").find(c.type) == std::string_view::npos)) {
      Refuse("zeros go before integers that stand at the right");
    }
    ++at_;
  }

  const char *text_;
  size_t length_;
  size_t at_ = 0;
};

// How a conversion sees an integer that it is given.
struct Taken {
  uint8_t bytes;
  bool isSigned;
};

// A format taken apart.
template <size_t kMost>
struct Parsed {
  Conversion conversions[kMost];
  size_t count = 0;
  size_t arguments = 0;
  size_t literals = 0;

  // How argument `index` is taken.
  constexpr Taken OfArgument(size_t index) const {
    size_t at = 0;
    while (index >= Takes(conversions[at])) index -= Takes(conversions[at++]);
    const Conversion &c = conversions[at];
    const bool isWidth = c.widthIsArgument && index == 0;
    return isWidth ? Taken{4, true} : Taken{c.bytes, c.type == 'd'};
  }

  static constexpr size_t Takes(const Conversion &c) { return c.type == 0 ? 0 : c.widthIsArgument ? 2 : 1; }
};

template <Format F>
consteval auto Parse() {
  constexpr size_t kMost = [] {
    size_t most = 1 + F.kLength / UINT8_MAX;
    for (const char c : F.text) most += c == '%';
    return most;
  }();
  Parsed<kMost> parsed;
  Parser parser(F.text, F.kLength);
  while (!parser.AtEnd()) {
    const Conversion next = parser.Next();
    parsed.conversions[parsed.count++] = next;
    parsed.arguments += parsed.Takes(next);
    parsed.literals += next.length;
  }
  return parsed;
}

template <Format F>
inline constexpr auto kParsed = Parse<F>();

// Most characters that a conversion takes; what a text takes, or a width that is an argument, is known at run
// time only.
constexpr size_t MaxField(const Conversion &c, Kind text) {
  constexpr size_t kDoubleDigits = 309;
  size_t body = 0;
  switch (c.type) {
    case 'u':
      body = c.bytes == 1 ? 3 : c.bytes == 2 ? 5 : c.bytes == 4 ? 10 : 20;
      break;
    case 'd':
      body = c.bytes == 1 ? 4 : c.bytes == 2 ? 6 : c.bytes == 4 ? 11 : 20;
      break;
    case 'x':
      body = size_t{c.bytes} * 2;
      break;
    case 'c':
      body = 1;
      break;
    case 'f':
      body = kDoubleDigits + 2 + c.precision;
      break;
    case 'm':
      body = 17;
      break;
    case 's':
      body = text == Kind::kIpv4 ? 15 : text == Kind::kIpv6 || text == Kind::kIpv6Words ? 45 : 0;
      break;
    default:
      break;
  }
  return body > c.width ? body : c.width;
}

constexpr Kind KindOf(const Conversion &c, Kind text) {
  const auto plain = [&] {
    switch (c.type) {
      case 'u':
        return Kind::kUnsigned;
      case 'd':
        return Kind::kSigned;
      case 'x':
        return Kind::kHexadecimal;
      case 'c':
        return Kind::kCharacter;
      case 'f':
        return Kind::kFixed;
      case 'm':
        return Kind::kMac;
      case 's':
        return text;
      default:
        return Kind::kNone;
    }
  }();
  if (c.type == 0 || (c.width == 0 && !c.widthIsArgument)) return plain;
  if (plain == Kind::kHexadecimal && c.zero && c.width == 2 && c.bytes == 4) return Kind::kByte;
  if (plain == Kind::kHexadecimal && c.zero && c.width == 8 && c.bytes == 4) return Kind::kWord;
  if (!c.widthIsArgument) {
    if (plain == Kind::kUnsigned) return Kind::kPaddedUnsigned;
    if (plain == Kind::kSigned) return Kind::kPaddedSigned;
    if (plain == Kind::kHexadecimal) return Kind::kPaddedHexadecimal;
  }
  return Padded(plain);
}

// A program in the making. A line's end behind the last value takes no piece.
template <size_t kMost, size_t kLength>
struct Outline {
  Piece pieces[kMost]{};
  char literals[kLength]{};
  size_t count = 0;
  size_t length = 0;  // of the literals
  size_t bound = 0;

  constexpr void Add(const Conversion &c, const char *from, Kind text) {
    const Kind kind = KindOf(c, text);
    const bool isLabelled = kind == Kind::kUnsigned && c.length >= 16 && c.length <= 32;
    pieces[count++] = {static_cast<uint8_t>(c.length), isLabelled ? Kind::kLabelled : kind, c.width,
                       static_cast<uint8_t>((c.left ? Piece::kLeft : 0) | (c.zero ? Piece::kZero : 0) |
                                            (c.widthIsArgument ? Piece::kWidthIsArgument : 0) |
                                            c.precision * Piece::kPrecision)};
    for (size_t i = 0; i < c.length; ++i) literals[length++] = from[c.literal + i];
    bound += c.length + MaxField(c, text);
  }

  constexpr void End() {
    Piece &last = pieces[count - 1];
    last.flags |= Piece::kLast;
    if (last.kind == Kind::kLabelled && FormOf() == Form::kOther) last.kind = Kind::kUnsigned;
  }

  constexpr Kind LastKind() const { return pieces[count - 1].kind; }
  constexpr void Flag(uint8_t flag) { pieces[count - 1].flags |= flag; }

  constexpr Form FormOf() const {
    const Kind kind = LastKind();
    if (count != 1 || !pieces[0].Has(Piece::kNewline)) return Form::kOther;
    if (kind == Kind::kLabelled) return Form::kLabelledLine;
    return kind == Kind::kUnsigned || kind == Kind::kSigned ? Form::kLine : Form::kOther;
  }
};

template <Format F, Kind... kTextKinds>
consteval auto MakeOutline() {
  constexpr auto &kFrom = kParsed<F>;
  constexpr Kind kTexts[] = {kTextKinds..., Kind::kNone};
  Outline<kFrom.count + 1, F.kLength + 1> outline;
  size_t argument = 0;
  for (size_t i = 0; i < kFrom.count; ++i) {
    const Conversion &c = kFrom.conversions[i];
    const bool isLineEnd = i + 1 == kFrom.count && c.type == 0 && c.length == 1 && F.text[c.literal] == '\n';
    if (isLineEnd && i > 0 && outline.LastKind() != Kind::kNone) {
      outline.Flag(Piece::kNewline);
      ++outline.bound;
      break;
    }
    argument += c.widthIsArgument;
    outline.Add(c, F.text, kTexts[argument]);
    argument += c.type != 0;
  }
  if (kFrom.count == 0) outline.Add({}, F.text, Kind::kNone);  // a format of nothing is one piece of nothing
  outline.End();
  if (outline.bound > UINT16_MAX) Refuse("a format of more than 65,535 characters");
  return outline;
}

// A program as it lies in memory.
template <size_t kPieces, size_t kLength, Form kIs>
struct Compiled {
  static constexpr Form kForm = kIs;
  Program head;
  Piece pieces[kPieces];
  char literals[kLength];
};

template <Format F, Kind... kTextKinds>
consteval auto Compile() {
  constexpr auto kOutline = MakeOutline<F, kTextKinds...>();
  constexpr size_t kCharacters = kOutline.length + (kOutline.length == 0);
  Compiled<kOutline.count, kCharacters, kOutline.FormOf()> program{
      {static_cast<uint16_t>(kOutline.bound), static_cast<uint16_t>(kOutline.count)}, {}, {}};
  for (size_t i = 0; i < kOutline.count; ++i) program.pieces[i] = kOutline.pieces[i];
  for (size_t i = 0; i < kOutline.length; ++i) program.literals[i] = kOutline.literals[i];
  return program;
}

// Whether the arguments are as many as the format asks for, and whether each fits its conversion.

template <Format F, typename... Args>
inline constexpr bool kCounts = sizeof...(Args) == kParsed<F>.arguments;

template <Format F, typename... Args>
consteval bool TypesFit() {
  if constexpr (kCounts<F, Args...>) {
    constexpr Argument kArguments[sizeof...(Args) + 1] = {Describe<Args>()...};
    constexpr bool kIsInt[sizeof...(Args) + 1] = {std::is_same_v<Args, int>...};
    size_t argument = 0;
    for (size_t i = 0; i < kParsed<F>.count; ++i) {
      const Conversion &c = kParsed<F>.conversions[i];
      if (c.type == 0) continue;
      if (c.widthIsArgument && !kIsInt[argument++]) return false;
      if (!Accepts(c, kArguments[argument++])) return false;
    }
  }
  return true;  // a wrong number is told elsewhere, and better
}

// Programs of a format differ by their arguments only where these are texts: all that is none is alike.
template <typename T>
consteval Kind TextKind() {
  switch (Describe<T>().type) {
    case Argument::Type::kText:
      return Kind::kText;
    case Argument::Type::kView:
      return Kind::kView;
    case Argument::Type::kIpv4:
      return Kind::kIpv4;
    case Argument::Type::kIpv6:
      return Kind::kIpv6;
    case Argument::Type::kIpv6Words:
      return Kind::kIpv6Words;
    default:
      return Kind::kNone;
  }
}

template <Format F, Kind... kTextKinds>
inline constexpr auto kProgram = Compile<F, kTextKinds...>();

}  // namespace format
}  // namespace qdt

#endif  // SRC_OM_COMMON_FORMAT_H_
