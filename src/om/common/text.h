#ifndef SRC_OM_COMMON_TEXT_H_
#define SRC_OM_COMMON_TEXT_H_

#include <bit>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

#include "qdt/tables.h"
#include "src/om/common/format.h"

namespace qdt {

// Text that grows in an area of fixed size which its owner provides. Each Print adds all of its text or
// nothing; the text is NUL-terminated after each. The first Print that does not fit makes the whole text a
// failure, and later ones add nothing, so that a view prints its sections and asks once, at the end.
//
// Print takes its printf format as a template argument: it is checked against the arguments while compiling,
// and becomes a few bytes of data that one function runs. A print costs its caller a call, not a page of
// code.
//
//   Text text(out, room);
//   text.Print<"  BrId         :  %u\n">(bridge.id);
//   return text.Result();
//
// %s takes a C string (null prints nothing), a std::string_view, which need not be NUL-terminated, or the
// Address of a record. The six conversions of a MAC address take one Mac.
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
  [[gnu::always_inline]] bool Print(Args... args) {
    static_assert(format::kCounts<F, Args...>, "the format asks for another number of arguments");
    static_assert(format::TypesFit<F, Args...>(), "an argument's type does not fit its conversion");
    if constexpr (format::kCounts<F, Args...> && format::TypesFit<F, Args...>()) {
      return Pass<F>(std::index_sequence_for<Args...>(), Slot<Args>(args)...);
    }
    return false;
  }

  // For what a view finds wrong with a record after its length has been accepted; `code` becomes the result.
  void Fail(int32_t code = QDT_TBL_FORMAT) {
    Close();
    code_ = code;
  }

  bool failed() const { return failed_; }
  uint32_t size() const { return static_cast<uint32_t>(at_ - begin_); }
  std::string_view view() const { return {begin_, size()}; }

  // Bytes left, the NUL's included; none once the text has failed.
  size_t Room() const { return static_cast<size_t>(end_ - at_); }

  // What a format operation returns.
  int32_t Result() const { return failed_ ? code_ : static_cast<int32_t>(size()); }

 private:
  // Holds an argument and gives the 64 bits by which it is handed over.
  template <typename T>
  struct Slot {
    static constexpr auto kType = format::Describe<T>().type;
    using Kept = std::conditional_t<kType == format::Argument::Type::kView, std::string_view, T>;
    static constexpr format::Kind kTextKind = format::TextKind<T>();

    explicit Slot(const T &value) : kept(value) {}

    // What an integer's conversion cuts off ("%hhu") is cut off here.
    template <format::Taken kTaken>
    [[gnu::always_inline]] uint64_t Value() const {
      using enum format::Argument::Type;
      if constexpr (kType == kInteger) {
        using Cut = std::conditional_t<kTaken.bytes == 1, int8_t,
                                       std::conditional_t<kTaken.bytes == 2, int16_t, int64_t>>;
        if constexpr (kTaken.isSigned) return static_cast<uint64_t>(int64_t{static_cast<Cut>(kept)});
        return uint64_t{static_cast<std::make_unsigned_t<Cut>>(kept)};
      } else if constexpr (kType == kMac) {
        return reinterpret_cast<uintptr_t>(kept.bytes);
      } else if constexpr (kType == kIpv4) {
        return kept.address;
      } else if constexpr (kType == kIpv6) {
        return reinterpret_cast<uintptr_t>(kept.bytes);
      } else if constexpr (kType == kIpv6Words) {
        return reinterpret_cast<uintptr_t>(kept.words);
      } else if constexpr (kType == kText) {
        return reinterpret_cast<uintptr_t>(kept);
      } else if constexpr (kType == kView) {
        return reinterpret_cast<uintptr_t>(&kept);
      } else if constexpr (kType == kDouble) {
        return std::bit_cast<uint64_t>(kept);
      } else {
        return static_cast<uint8_t>(kept);
      }
    }

    const Kept kept;
  };

  template <format::Format F, size_t... I, typename... Slots>
  [[gnu::always_inline]] bool Pass(std::index_sequence<I...>, const Slots &...slots) {
    constexpr auto &kCompiled = format::kProgram<F, Slots::kTextKind...>;
    const format::Program &program = kCompiled.head;
    if constexpr (sizeof...(I) == 0) {
      return RunText(program);
    } else if constexpr (kCompiled.kForm == format::Form::kLabelledLine) {
      return RunLabelledLine(program, slots.template Value<format::kParsed<F>.OfArgument(I)>()...);
    } else if constexpr (kCompiled.kForm == format::Form::kLine) {
      return RunLine(program, slots.template Value<format::kParsed<F>.OfArgument(I)>()...);
    } else if constexpr (sizeof...(I) == 1) {
      return RunOne(program, slots.template Value<format::kParsed<F>.OfArgument(I)>()...);
    } else {
      const uint64_t values[] = {slots.template Value<format::kParsed<F>.OfArgument(I)>()...};
      return Run(program, values);
    }
  }

  // Adds what the program makes of its values, of which there are as many as it has arguments.
  bool Run(const format::Program &program, const uint64_t *values);
  bool RunText(const format::Program &program);
  bool RunOne(const format::Program &program, uint64_t value);
  bool RunLine(const format::Program &program, uint64_t value);
  bool RunLabelledLine(const format::Program &program, uint64_t value);
  // Goes on at a piece: with its literal and value, and where they go.
  bool RunRest(const format::Program &program, const format::Piece *piece, const char *literal,
               const uint64_t *value, char *at);
  bool RunChecked(const format::Program &program, const uint64_t *values);
  bool End(const format::Piece &last, char *at);
  bool EndLine(char *at);

  // No print finds any room from here on.
  void Close() {
    failed_ = true;
    end_ = at_;
  }

  char *begin_;
  char *at_;
  char *end_;
  bool failed_;
  int32_t code_ = QDT_TBL_FORMAT;  // of the failure
};

}  // namespace qdt

#endif  // SRC_OM_COMMON_TEXT_H_
