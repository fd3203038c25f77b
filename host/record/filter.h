#ifndef HOST_RECORD_FILTER_H_
#define HOST_RECORD_FILTER_H_

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/record_json.h"

namespace qdt::host {

// One condition on records, "FIELD=VALUE" with = != < <= > >=. A value is written as ParseValue reads it.
// Where = and != are asked of them, addresses may be prefixes (192.0.2.0/24, 2001:db8::/32), texts and MAC
// addresses may have * for any characters, and references are nhp/5, stale, none, or an address. Of an array
// that is named without an element any element may fit (for !=: none does).
class Condition {
 public:
  // Throws HostError when the words are no condition on this table.
  Condition(const TableLayout &table, std::string_view words);

  bool Holds(const RecordBytes &record) const;
  // Throws HostError when it asks for a reference to a key that no entry of the layout's table can have.
  void CheckReference(const Layout &layout) const;

  // The field of the key whose one value this asks for, and that value; null for all other conditions.
  const Field *KeyField() const { return exact_ ? leaves_.front().field : nullptr; }
  void WriteKey(uint8_t *key) const;

 private:
  enum class Operator : uint8_t { kEqual, kNotEqual, kLess, kNotGreater, kGreater, kNotLess };
  enum class Reference : uint8_t { kNone, kStale, kAddress, kText };

  std::string_view ReadOperator(std::string_view words);
  void ReadValue(std::string_view text);
  bool ReadPrefix(std::string_view text);
  void ReadReference(std::string_view text);
  bool HoldsFor(const RecordBytes &record, const Leaf &leaf) const;
  bool Equals(const RecordBytes &record, const Leaf &leaf, const FieldRef &ref, const uint8_t *bytes) const;
  bool Compares(const FieldRef &ref, WideValue is) const;
  [[noreturn]] void Fail(const std::string &what) const;

  const TableLayout &table_;
  std::string words_;
  std::vector<Leaf> leaves_;
  Operator operator_ = Operator::kEqual;
  ValueForm form_ = ValueForm::kNumber;
  WideValue value_ = 0;
  WideValue mask_ = ~WideValue{0};  // the bits of value_ that count
  bool isPattern_ = false;          // text_ has a *
  std::string text_;                // of texts the bytes, of patterns and references what their text must be
  std::optional<FieldRef> narrow_;  // of an address of several kinds, the kind that was written
  Reference reference_ = Reference::kText;
  bool exact_ = false;
};

// Whether a * in the pattern stands for any characters that make it the text.
bool Matches(std::string_view pattern, std::string_view text);

// The key that the conditions ask for when they name one value for each field of it; else nothing. Entries
// with another key then need not be looked at.
std::optional<std::vector<uint8_t>> WholeKey(const TableLayout &table, std::span<const Condition> conditions);

// The same for the fields in its first `bytes` alone; the rest is 0.
std::optional<std::vector<uint8_t>> BeginOfKey(const TableLayout &table,
                                               std::span<const Condition> conditions, uint32_t bytes);

// An IPv4 or IPv6 address or prefix, as a number with the bits that count.
struct AddressPrefix {
  ValueForm form = ValueForm::kIpv4;
  WideValue value = 0;
  uint32_t length = 0;  // bits
  WideValue Mask() const;
};
// Nothing when the text is no address and no prefix. Bits behind the prefix are dropped.
std::optional<AddressPrefix> ParsePrefix(std::string_view text);

}  // namespace qdt::host

#endif  // HOST_RECORD_FILTER_H_
