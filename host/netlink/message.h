#ifndef HOST_NETLINK_MESSAGE_H_
#define HOST_NETLINK_MESSAGE_H_

#include <linux/netlink.h>
#include <netlink/attr.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace qdt::host {

// A message of the kernel's, and its attributes. Lengths are the kernel's word, which is checked against the
// bytes that are there: what is cut reads as missing.

using Bytes = std::span<const uint8_t>;

inline Bytes Payload(const nlattr *attribute) {
  if (attribute == nullptr) return {};
  return {static_cast<const uint8_t *>(nla_data(attribute)), static_cast<size_t>(nla_len(attribute))};
}

// A number of the type's size in the kernel's byte order, or `otherwise` where the attribute is missing or
// shorter.
template <typename T>
T Number(const nlattr *attribute, T otherwise = 0) {
  const Bytes bytes = Payload(attribute);
  if (bytes.size() < sizeof(T)) return otherwise;
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

// The text of the attribute, up to its NUL.
inline std::string_view Text(const nlattr *attribute) {
  const Bytes bytes = Payload(attribute);
  const auto *text = reinterpret_cast<const char *>(bytes.data());
  return {text, bytes.empty() ? 0 : strnlen(text, bytes.size())};
}

// Attributes by type, those up to kMost.
template <int kMost>
class Attributes {
 public:
  explicit Attributes(Bytes bytes) {
    // It only reads, and returns an error where a length lies: what stood before that is good.
    auto *first = reinterpret_cast<nlattr *>(const_cast<uint8_t *>(bytes.data()));
    nla_parse(table_, kMost, first, static_cast<int>(bytes.size()), nullptr);
  }
  explicit Attributes(const nlattr *nest) : Attributes(Payload(nest)) {}

  const nlattr *operator[](int type) const { return table_[type]; }
  bool Has(int type) const { return table_[type] != nullptr; }

 private:
  nlattr *table_[kMost + 1] = {};
};

// Calls `visit` with each attribute of a list, of whatever types.
template <typename Visit>
void ForEachAttribute(Bytes bytes, Visit visit) {
  const auto *attribute = reinterpret_cast<const nlattr *>(bytes.data());
  auto left = static_cast<int>(bytes.size());
  for (; nla_ok(attribute, left); attribute = nla_next(attribute, &left)) visit(attribute);
}

struct Message {
  uint16_t type = 0;
  uint16_t flags = 0;
  const nlmsghdr *header = nullptr;
  Bytes payload;

  // What stands first in it, or null when the message is shorter.
  template <typename T>
  const T *Head() const {
    return payload.size() < sizeof(T) ? nullptr : reinterpret_cast<const T *>(payload.data());
  }
  // What follows that.
  template <typename T>
  Bytes Rest() const {
    return payload.size() < NLMSG_ALIGN(sizeof(T)) ? Bytes() : payload.subspan(NLMSG_ALIGN(sizeof(T)));
  }
};

// Who tells something: a dump, which may be older than what notifications have told since it began.
enum class Told : uint8_t { kByDump, kByNotification };

}  // namespace qdt::host

#endif  // HOST_NETLINK_MESSAGE_H_
