#ifndef HOST_INSPECT_KEY_LOOKUP_H_
#define HOST_INSPECT_KEY_LOOKUP_H_

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "host/record/record_json.h"

namespace qdt::host {

// A key of a table that is put together from values found elsewhere.
class LookupKey {
 public:
  // All fields 0, but for those that always hold one value.
  explicit LookupKey(const TableLayout &table);
  // Of an entry.
  LookupKey(const TableLayout &table, const uint8_t *key);

  // Sets the free fields in the order of the layout, each to the value of the place in its turn: fields of a
  // key or a record, of the same form.
  struct Said {
    FieldRef ref;
    bool inKey = false;
  };
  void Set(const RecordBytes &record, std::span<const Said> said);
  // Sets the only free field of a table whose entries have numbers.
  void SetNumber(WideValue number);
  void SetField(std::string_view field, WideValue value);

  const TableLayout &table() const { return *table_; }
  const uint8_t *bytes() const { return bytes_; }
  // Whether all values are 0.
  bool IsZero() const;
  // Whether another key of the table has the same values, whatever stands between them.
  bool Equals(const uint8_t *key) const;
  // Whether the table holds an entry of this key. The record is not looked at.
  bool Exists(const RecordSource &source) const;
  // "nhp/5"
  std::string Text() const;

 private:
  const TableLayout *table_;
  uint8_t bytes_[tbm::kMaxKeySize] = {};
};

// Whether the keys have the same values.
bool SameKey(const TableLayout &table, const uint8_t *a, const uint8_t *b);

// Finds the route to the address with the longest prefix, which then is the reader's entry; false when there
// is none. The reader is of a table of routes.
bool FindRoute(EntryReader *routes, WideValue vpn, WideValue address);

}  // namespace qdt::host

#endif  // HOST_INSPECT_KEY_LOOKUP_H_
