#ifndef HOST_INSPECT_FIND_H_
#define HOST_INSPECT_FIND_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "host/record/record_json.h"

namespace qdt::host {

// A value that is looked for wherever fields hold values of its kind.
class SearchValue {
 public:
  enum class Kind : uint8_t { kIpv4, kIpv6, kMac, kInterface, kText };

  // The kind is told by the form: an IPv4 or IPv6 address or prefix, a MAC address, a number for an interface
  // index, and everything else is a text, in which * stands for any characters. Throws HostError for a text
  // that no field can hold.
  explicit SearchValue(std::string_view text);

  Kind kind() const { return kind_; }
  std::string_view KindName() const;
  // Of addresses and interface indexes; of a prefix its first address.
  WideValue value() const { return value_; }
  // Whether it is one IPv4, IPv6 or MAC address.
  bool IsAddress() const;

  // Whether values of the field are of the kind. The keys of the tables of interfaces are, too.
  bool IsFor(const Field &field) const;
  // Whether a value of such a field is what is looked for; `bytes` are the key or record.
  bool Matches(const RecordSource &source, const Field &field, const FieldRef &ref,
               const uint8_t *bytes) const;

 private:
  bool MatchesAddress(const FieldRef &ref, const uint8_t *bytes, ValueForm form) const;
  bool MatchesInterface(const RecordSource &source, const Field &field, const FieldRef &ref,
                        const uint8_t *bytes) const;

  Kind kind_ = Kind::kText;
  WideValue value_ = 0;
  WideValue mask_ = ~WideValue{0};  // the bits of value_ that count
  std::string text_;
  bool isPattern_ = false;
};

// A field that holds the value. Good until the next one.
struct Match {
  const TableLayout *table = nullptr;  // one of the two
  const RegionLayout *region = nullptr;
  const uint8_t *key = nullptr;  // of the table's entry
  std::string_view path;
  const RecordBytes &record;
  const Field &field;
  const FieldRef &ref;
  const uint8_t *bytes;  // those that `ref` counts in
};
// Returns false to have no more.
using TakeMatch = std::function<bool(const Match &)>;

// Looks for the value in every table, in the order of their ids, and then in every region. A value in both
// the key and the record is found once. An address of all zeros stands for none, and is found only when it
// is what is looked for. Throws HostError as EntryReader does.
void FindValue(const RecordSource &source, const SearchValue &value, const TakeMatch &take);

}  // namespace qdt::host

#endif  // HOST_INSPECT_FIND_H_
