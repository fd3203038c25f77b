#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "src/om/common/digits.h"
#include "src/om/common/text.h"

// Every conversion against the C library's, over the values at which digit counts, signs and widths change,
// and in every room around the text's length.
namespace qdt::test {
namespace {

// 0, 1, every power of ten and its neighbours, every power of two and its neighbours, and the same below 0,
// as far as T goes.
template <typename T>
std::vector<T> EdgeValues() {
  std::vector<T> values = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
  const auto add = [&values](uint64_t value) {
    if (value <= static_cast<uint64_t>(std::numeric_limits<T>::max())) {
      values.push_back(static_cast<T>(value));
      if (std::is_signed_v<T>) values.push_back(static_cast<T>(-static_cast<int64_t>(value)));
    }
  };
  uint64_t power = 1;
  for (int i = 0; i < 20; ++i, power *= 10) {
    for (const uint64_t value : {power - 1, power, power + 1, power * 5}) add(value);
  }
  for (int bit = 0; bit < 64; ++bit) {
    const uint64_t bitPower = uint64_t{1} << bit;
    for (const uint64_t value : {bitPower - 1, bitPower, bitPower + 1}) add(value);
  }
  return values;
}

// Prints one value by F in this room, which is a block of its own.
template <format::Format F, typename... Args>
std::string PrintedIn(uint32_t room, Args... args) {
  const auto area = std::make_unique<char[]>(room);
  Text text(area.get(), room);
  if (!text.Print<F>(args...)) {
    EXPECT_STREQ(area.get(), "");
    return "does not fit";
  }
  return area.get();
}

template <format::Format F, typename... Args>
void ExpectAsTheCLibrary(Args... args) {
  char expected[1000];
  const int length = std::snprintf(expected, sizeof(expected), F.text, args...);
  ASSERT_GT(length, 0);
  const auto fits = static_cast<uint32_t>(length) + 1;
  EXPECT_EQ(PrintedIn<F>(5000, args...), expected);
  EXPECT_EQ(PrintedIn<F>(fits, args...), expected);
  EXPECT_EQ(PrintedIn<F>(fits - 1, args...), "does not fit") << expected;
  EXPECT_EQ(PrintedIn<F>((fits + 1) / 2, args...), "does not fit") << expected;
}

template <format::Format F, typename T>
void ExpectEdgesAsTheCLibrary() {
  for (const T value : EdgeValues<T>()) ExpectAsTheCLibrary<F>(value);
}

TEST(TextConversionTest, Unsigned) {
  ExpectEdgesAsTheCLibrary<"%u", uint8_t>();
  ExpectEdgesAsTheCLibrary<"%u", uint16_t>();
  ExpectEdgesAsTheCLibrary<"%u", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%hu", uint16_t>();
  ExpectEdgesAsTheCLibrary<"%hu", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%hhu", uint8_t>();
  ExpectEdgesAsTheCLibrary<"%hhu", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%lu", unsigned long>();
  ExpectEdgesAsTheCLibrary<"%llu", unsigned long long>();
}

TEST(TextConversionTest, Signed) {
  ExpectEdgesAsTheCLibrary<"%d", uint8_t>();
  ExpectEdgesAsTheCLibrary<"%d", int8_t>();
  ExpectEdgesAsTheCLibrary<"%d", uint16_t>();
  ExpectEdgesAsTheCLibrary<"%d", int16_t>();
  ExpectEdgesAsTheCLibrary<"%d", int32_t>();
  ExpectEdgesAsTheCLibrary<"%hd", int32_t>();
  ExpectEdgesAsTheCLibrary<"%hhd", int32_t>();
  ExpectEdgesAsTheCLibrary<"%ld", long>();
  ExpectEdgesAsTheCLibrary<"%lld", long long>();
}

TEST(TextConversionTest, Hexadecimal) {
  ExpectEdgesAsTheCLibrary<"%x", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%02x", uint8_t>();
  ExpectEdgesAsTheCLibrary<"%02x", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%08x", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%04x", uint16_t>();
  ExpectEdgesAsTheCLibrary<"%04x", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%lx", unsigned long>();
  ExpectEdgesAsTheCLibrary<"%016llx", unsigned long long>();
  ExpectEdgesAsTheCLibrary<"0x%016llx!", unsigned long long>();
  ExpectEdgesAsTheCLibrary<"%-2x", uint8_t>();
}

TEST(TextConversionTest, Widths) {
  ExpectEdgesAsTheCLibrary<"%2d", int32_t>();
  ExpectEdgesAsTheCLibrary<"%5d", int32_t>();
  ExpectEdgesAsTheCLibrary<"%05d", int32_t>();
  ExpectEdgesAsTheCLibrary<"%-5d|", int32_t>();
  ExpectEdgesAsTheCLibrary<"%020ld", long>();
  ExpectEdgesAsTheCLibrary<"%-12u|", uint32_t>();
  ExpectEdgesAsTheCLibrary<"%10hhu", uint8_t>();
}

TEST(TextConversionTest, WidthsThatAreArguments) {
  for (const int width : {0, 1, 2, 9, 10, 11, 40, -1, -9, -10, -11, -40}) {
    ExpectAsTheCLibrary<"<%*s>">(width, "some text!");
    ExpectAsTheCLibrary<"<%-*s>">(width, "some text!");
    ExpectAsTheCLibrary<"<%*s>">(width, "");
    ExpectAsTheCLibrary<"<%*u>">(width, 4000000000u);
    ExpectAsTheCLibrary<"<%-*d>">(width, -77);
    ExpectAsTheCLibrary<"<%0*d>">(width, -77);
    ExpectAsTheCLibrary<"<%*x>">(width, 0xFACEu);
    ExpectAsTheCLibrary<"<%*.3f>">(width, 1.5);
  }
}

TEST(TextConversionTest, Texts) {
  const std::string longText(300, 'q');
  for (const char *text : {"a", "ab", "1234567", "12345678", "123456789", longText.c_str()}) {
    ExpectAsTheCLibrary<"%s">(text);
    ExpectAsTheCLibrary<"%8s">(text);
    ExpectAsTheCLibrary<"%-8s">(text);
    ExpectAsTheCLibrary<"%-8s%-28s|%s\n">(text, text, text);
  }
  ExpectAsTheCLibrary<"%-8s">("");
  for (const char c : {' ', 'a', '~', '%'}) {
    ExpectAsTheCLibrary<"%c">(c);
    ExpectAsTheCLibrary<"%4c">(c);
    ExpectAsTheCLibrary<"%-4c">(c);
  }
}

TEST(TextConversionTest, Doubles) {
  using Limits = std::numeric_limits<double>;
  std::vector<double> values = {0.0,
                                0.0005,
                                0.00049999,
                                0.0015,
                                0.0025,
                                0.5,
                                0.9994999,
                                0.9995,
                                1.0005,
                                1.0 / 3,
                                2.0 / 3,
                                99.9995,
                                999.9995,
                                1e15,
                                1e22,
                                1e23,
                                123456789.987654321,
                                Limits::min(),
                                Limits::denorm_min(),
                                Limits::max(),
                                Limits::epsilon(),
                                Limits::infinity(),
                                Limits::quiet_NaN(),
                                18446744073709551615.0};
  for (double power = 1; power < 1e18; power *= 10) values.insert(values.end(), {power, power - 0.0005});
  for (const double value : values) {
    for (const double signedValue : {value, -value}) {
      ExpectAsTheCLibrary<"%7.3f">(signedValue);
      ExpectAsTheCLibrary<"%10.3f">(signedValue);
      ExpectAsTheCLibrary<"%-10.3f|">(signedValue);
      ExpectAsTheCLibrary<"%.3f">(signedValue);
      ExpectAsTheCLibrary<"%.0f">(signedValue);
    }
  }
}

// What `put` writes of a value, and that nothing behind it is touched.
template <typename T>
std::string Digits(char *(*put)(char *, T), T value) {
  std::string area(40, '#');
  const char *const end = put(area.data(), value);
  const auto length = static_cast<size_t>(end - area.data());
  EXPECT_EQ(area.substr(length), std::string(area.size() - length, '#')) << value;
  return area.substr(0, length);
}

std::string ByPrintf(const char *format, unsigned long long value) {
  char text[40];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

TEST(DigitsTest, AreThoseOfTheCLibrary) {
  for (const uint64_t value : EdgeValues<uint64_t>()) {
    EXPECT_EQ(Digits(PutUnsigned64, value), ByPrintf("%llu", value));
    EXPECT_EQ(Digits(PutHexadecimal, value), ByPrintf("%llx", value));
  }
  for (const uint32_t value : EdgeValues<uint32_t>()) {
    EXPECT_EQ(Digits(PutUnsigned, value), ByPrintf("%llu", value));
    EXPECT_EQ(Digits(PutWord, value), ByPrintf("%08llx", value));
  }
}

}  // namespace
}  // namespace qdt::test
