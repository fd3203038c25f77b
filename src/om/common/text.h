#ifndef SRC_OM_COMMON_TEXT_H_
#define SRC_OM_COMMON_TEXT_H_

#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <utility>

#include "qdt/tables.h"
#include "src/om/common/digits.h"
#include "src/om/common/format.h"

namespace qdt {

// Text that grows in an area of fixed size which its owner provides. Each Print adds all of its text or
// nothing; the text is NUL-terminated after each. The first Print that does not fit makes the whole text a
// failure, and later ones add nothing, so that a view prints its sections and asks once, at the end.
//
// Print takes its printf format as a template argument: it is parsed while compiling, checked against the
// arguments, and costs no parsing when it runs.
//
//   Text text(out, room);
//   text.Print<"  BrId         :  %u\n">(bridge.id);
//   return text.Result();
//
// %s takes a C string (null prints nothing) or a std::string_view, which need not be NUL-terminated.
class Text {
 public:
  // `room` counts the terminating NUL.
  Text(char *out, uint32_t room)
      : begin_(out), at_(out), end_(out == nullptr ? out : out + room), failed_(begin_ == end_) {
    if (!failed_) *at_ = '\0';
  }
  Text(const Text &) = delete;
  Text &operator=(const Text &) = delete;

  template <format::Format F, typename... Args>
  bool Print(Args... args) {
    using Plan = format::Plan<F>;
    static_assert(sizeof...(Args) == Plan::kArguments, "the format asks for another number of arguments");
    static_assert(CheckTypes<F, Args...>(), "an argument's type does not fit its conversion");
    if (failed_) return false;
    const std::tuple<Args...> arguments(args...);
    if (kBound<F> + RunTimeBound<F>(arguments) < Room()) {
      PrintPieces<F, false>(arguments);
    } else if (char *const start = at_; !PrintPieces<F, true>(arguments)) {
      at_ = start;
      failed_ = true;
    }
    *at_ = '\0';
    return !failed_;
  }

  // For what a view finds wrong with a record after its length has been accepted; `code` becomes the result.
  void Fail(int32_t code = QDT_TBL_FORMAT) {
    failed_ = true;
    code_ = code;
  }

  bool failed() const { return failed_; }
  uint32_t size() const { return static_cast<uint32_t>(at_ - begin_); }
  std::string_view view() const { return {begin_, size()}; }

  // Bytes left, the NUL's included.
  size_t Room() const { return static_cast<size_t>(end_ - at_); }

  // What a format operation returns.
  int32_t Result() const { return failed_ ? code_ : static_cast<int32_t>(size()); }

 private:
  // Characters that the format takes at most, apart from texts and widths that are arguments.
  template <format::Format F>
  static constexpr size_t kBound = [] {
    size_t bound = 0;
    for (const format::Piece &piece : format::Plan<F>::kTable)
      bound += piece.length + format::MaxField(piece);
    return bound;
  }();

  template <format::Format F, typename... Args>
  static consteval bool CheckTypes() {
    // Without this, indexing the argument types would fail first, with a worse message.
    if constexpr (sizeof...(Args) == format::Plan<F>::kArguments) {
      return CheckPieces<F, Args...>(std::make_index_sequence<format::Plan<F>::kPieces>());
    }
    return true;
  }

  template <format::Format F, typename... Args, size_t... I>
  static consteval bool CheckPieces(std::index_sequence<I...>) {
    return (CheckPiece<F, I, Args...>() && ...);
  }

  template <format::Format F, size_t I, typename... Args>
  static consteval bool CheckPiece() {
    constexpr format::Piece kPiece = format::Plan<F>::kTable[I];
    if constexpr (kPiece.type == 0) {
      return true;
    } else if constexpr (kPiece.widthIsArgument) {
      return std::is_same_v<std::tuple_element_t<kPiece.argument - 1, std::tuple<Args...>>, int> &&
             format::Accepts<std::tuple_element_t<kPiece.argument, std::tuple<Args...>>>(kPiece);
    } else {
      return format::Accepts<std::tuple_element_t<kPiece.argument, std::tuple<Args...>>>(kPiece);
    }
  }

  static std::string_view AsView(std::string_view text) { return text; }
  static std::string_view AsView(const char *text) { return text == nullptr ? "" : text; }

  template <format::Format F, typename Tuple>
  static size_t RunTimeBound(const Tuple &arguments) {
    return [&]<size_t... I>(std::index_sequence<I...>) {
      return (size_t{0} + ... + PieceBound<F, I>(arguments));
    }
    (std::make_index_sequence<format::Plan<F>::kPieces>());
  }

  template <format::Format F, size_t I, typename Tuple>
  static size_t PieceBound(const Tuple &arguments) {
    constexpr format::Piece kPiece = format::Plan<F>::kTable[I];
    size_t bound = 0;
    if constexpr (kPiece.type == 's') bound += AsView(std::get<kPiece.argument>(arguments)).size();
    if constexpr (kPiece.widthIsArgument) bound += Width<kPiece>(arguments).first;
    return bound;
  }

  // The field's width and whether its value stands at the left.
  template <format::Piece P, typename Tuple>
  static std::pair<size_t, bool> Width([[maybe_unused]] const Tuple &arguments) {
    if constexpr (P.widthIsArgument) {
      const int64_t width = std::get<P.argument - 1>(arguments);
      return {static_cast<size_t>(width < 0 ? -width : width), P.left || width < 0};
    } else {
      return {P.width, P.left};
    }
  }

  // With kChecked every step looks at the room and false means that it was too small; without, the caller has
  // seen to it that all fits.
  template <format::Format F, bool kChecked, typename Tuple>
  bool PrintPieces(const Tuple &arguments) {
    return [&]<size_t... I>(std::index_sequence<I...>) {
      return (PrintPiece<F, kChecked, I>(arguments) && ...);
    }
    (std::make_index_sequence<format::Plan<F>::kPieces>());
  }

  template <format::Format F, bool kChecked, size_t I, typename Tuple>
  bool PrintPiece(const Tuple &arguments) {
    constexpr format::Piece kPiece = format::Plan<F>::kTable[I];
    static constexpr format::Format kFormat = F;
    if constexpr (kPiece.length != 0) {
      if (kChecked && Room() <= kPiece.length) return false;
      std::memcpy(at_, kFormat.text + kPiece.literal, kPiece.length);
      at_ += kPiece.length;
    }
    if constexpr (kPiece.type == 0) {
      return true;
    } else {
      return PrintField<kPiece, kChecked>(std::get<kPiece.argument>(arguments), arguments);
    }
  }

  template <format::Piece P, bool kChecked, typename T, typename Tuple>
  bool PrintField(const T &value, const Tuple &arguments) {
    if constexpr (P.type == 's') {
      return PrintPadded<P, kChecked>(AsView(value), arguments);
    } else if constexpr (P.type == 'x' && P.zero && P.width == 2 && sizeof(T) == 1 && !kChecked) {
      constexpr char kDigits[] = "0123456789abcdef";  // the bytes of MAC addresses
      *at_++ = kDigits[value >> 4];
      *at_++ = kDigits[value & 0xF];
      return true;
    } else if constexpr (P.width == 0 && !P.widthIsArgument && !kChecked) {
      at_ = PutNumber<P>(at_, value);
      return true;
    } else {
      char body[format::MaxBody(P)];
      const char *const end = PutNumber<P>(body, value);
      return PrintPadded<P, kChecked>(std::string_view(body, end - body), arguments);
    }
  }

  template <format::Piece P, typename T>
  static char *PutNumber(char *at, T value) {
    using format::Size;
    if constexpr (P.type == 'c') {
      *at = value;
      return at + 1;
    } else if constexpr (P.type == 'f') {
      return PutFixed(at, value, P.precision);
    } else if constexpr (P.size == Size::kChar) {
      return PutInteger<P>(at, static_cast<std::conditional_t<P.type == 'd', int8_t, uint8_t>>(value));
    } else if constexpr (P.size == Size::kShort) {
      return PutInteger<P>(at, static_cast<std::conditional_t<P.type == 'd', int16_t, uint16_t>>(value));
    } else {
      return PutInteger<P>(at, value);
    }
  }

  template <format::Piece P, typename T>
  static char *PutInteger(char *at, T value) {
    if constexpr (P.type == 'x') {
      return PutHexadecimal(at, value);
    } else {
      using Wide = std::conditional_t<std::is_signed_v<T>, int64_t, uint64_t>;
      auto magnitude = static_cast<uint64_t>(Wide{value});
      if constexpr (std::is_signed_v<T>) {
        if (value < 0) {
          *at++ = '-';
          magnitude = -magnitude;
        }
      }
      if (magnitude < 10) {  // flags and small counts, most of what records hold
        *at = static_cast<char>('0' + magnitude);
        return at + 1;
      }
      if constexpr (sizeof(T) <= 4) return PutUnsigned(at, static_cast<uint32_t>(magnitude));
      return PutUnsigned64(at, magnitude);
    }
  }

  template <format::Piece P, bool kChecked, typename Tuple>
  bool PrintPadded(std::string_view body, const Tuple &arguments) {
    const auto [width, left] = Width<P>(arguments);
    const size_t padding = body.size() < width ? width - body.size() : 0;
    if (kChecked && Room() <= body.size() + padding) return false;
    const bool zeros = P.zero && !left;  // a width that is an argument may turn out negative
    if (zeros && !body.empty() && body.front() == '-') {
      *at_++ = '-';
      body.remove_prefix(1);
    }
    if (!left) Pad(zeros ? '0' : ' ', padding);
    at_ += body.copy(at_, body.size());  // an empty view may point nowhere, which memcpy must not see
    if (left) Pad(' ', padding);
    return true;
  }

  void Pad(char fill, size_t count) {
    std::memset(at_, fill, count);
    at_ += count;
  }

  char *begin_;
  char *at_;
  char *end_;
  bool failed_;
  int32_t code_ = QDT_TBL_FORMAT;  // of the failure
};

}  // namespace qdt

#endif  // SRC_OM_COMMON_TEXT_H_
