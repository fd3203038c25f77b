#ifndef SRC_OM_COMMON_TEXT_H_
#define SRC_OM_COMMON_TEXT_H_

#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "qdt/tables.h"
#include "src/om/common/format.h"

namespace qdt {

// What the library's Text is measured against: the same interface and the same formats, each handed to the C
// library's snprintf. The benchmarks compile the library a second time with this header in the other's place.
class Text {
 public:
  Text(char *out, uint32_t room)
      : begin_(out), at_(out), end_(out == nullptr ? out : out + room), failed_(begin_ == end_) {
    if (!failed_) *at_ = '\0';
  }
  Text(const Text &) = delete;
  Text &operator=(const Text &) = delete;

  template <format::Format F, typename... Args>
  bool Print(Args... args) {
    if (failed_) return false;
    const int written =
        std::apply([this](const auto &...each) { return snprintf(at_, Room(), F.text, Value(each)...); },
                   std::tuple_cat(Own(args)...));
    if (written < 0 || static_cast<size_t>(written) >= Room()) {
      *at_ = '\0';
      failed_ = true;
    } else {
      at_ += written;
    }
    return !failed_;
  }

  void Fail(int32_t code = QDT_TBL_FORMAT) {
    failed_ = true;
    code_ = code;
  }

  bool failed() const { return failed_; }
  uint32_t size() const { return static_cast<uint32_t>(at_ - begin_); }
  std::string_view view() const { return {begin_, size()}; }
  size_t Room() const { return static_cast<size_t>(end_ - at_); }
  int32_t Result() const { return failed_ ? code_ : static_cast<int32_t>(size()); }

 private:
  // What snprintf takes in the place of an argument. Text wants a terminator here, and a null text prints
  // nothing; a MAC address is six numbers.
  template <typename T>
  static auto Own(T value) {
    if constexpr (std::is_same_v<T, Mac>) {
      const uint8_t *const mac = value.bytes;
      return std::tuple(mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    } else if constexpr (std::is_same_v<T, Ipv4>) {
      const uint32_t network = htonl(value.address);
      return std::tuple(TextOf(AF_INET, &network));
    } else if constexpr (std::is_same_v<T, Ipv6>) {
      return std::tuple(TextOf(AF_INET6, value.bytes));
    } else if constexpr (std::is_same_v<T, Ipv6Words>) {
      uint32_t network[4];
      for (int i = 0; i < 4; ++i) network[i] = htonl(value.words[i]);
      return std::tuple(TextOf(AF_INET6, network));
    } else if constexpr (std::is_same_v<T, std::string_view>) {
      return std::tuple(std::string(value));
    } else if constexpr (std::is_convertible_v<T, const char *>) {
      return std::tuple(value == nullptr ? "" : static_cast<const char *>(value));
    } else {
      return std::tuple(value);
    }
  }
  template <typename T>
  static T Value(const T &value) {
    return value;
  }
  static const char *Value(const std::string &text) { return text.c_str(); }

  // Addresses as the C library writes them.
  struct Ip {
    char text[INET6_ADDRSTRLEN];
  };
  static const char *Value(const Ip &address) { return address.text; }
  static Ip TextOf(int family, const void *bytes) {
    Ip ip;
    inet_ntop(family, bytes, ip.text, sizeof(ip.text));
    return ip;
  }

  char *begin_;
  char *at_;
  char *end_;
  bool failed_;
  int32_t code_ = QDT_TBL_FORMAT;  // what Result says of a failed text
};

}  // namespace qdt

#endif  // SRC_OM_COMMON_TEXT_H_
