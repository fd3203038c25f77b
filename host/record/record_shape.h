#ifndef HOST_RECORD_RECORD_SHAPE_H_
#define HOST_RECORD_RECORD_SHAPE_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {

// A field that is to be shown, of a structure with those of its fields that are.
struct ShapeNode {
  const Field *field = nullptr;
  bool inKey = false;
  const Field *twin = nullptr;      // of a key's field: the record's field of the same name
  std::optional<uint32_t> element;  // the one element of an array that is shown
  std::string name;                 // "counters", with its element "counters[2]"
  std::vector<ShapeNode> inner;

  bool IsStructure() const { return !field->fields.empty(); }
  bool IsArray() const { return field->count != 0 && !element; }
};

// What is shown of the records of a table, or of a region: fields of the key first, then the record's, in the
// order of the layout or in that in which they were asked for. A value that stands in both is shown once.
struct RecordShape {
  std::vector<ShapeNode> nodes;

  static RecordShape Whole(const TableLayout &table);
  static RecordShape Whole(const RegionLayout &region);
  static RecordShape Whole(const FieldSet &fields);  // of records without a key
  // `paths` are joined by commas: "index,counters[0].in_bytes,positive". Throws HostError for what the table
  // does not have, with the name that was meant.
  static RecordShape Select(const TableLayout &table, std::string_view paths);
  // The same, the whole record where none are named.
  static RecordShape Chosen(const TableLayout &table, std::string_view paths);
  static RecordShape Chosen(const RegionLayout &region, std::string_view paths);
};

// A single value of a record, or an element's of an array.
struct Leaf {
  FieldRef ref;  // its place in the key or in the record
  const Field *field = nullptr;
  const Field *part =
      nullptr;  // the structure of the record, not of all records, in which it stands; or null
  bool inKey = false;
  std::string path;      // "counters[2].in_bytes"
  FieldSet beside;       // the fields of the structure in which it stands
  uint32_t base = 0;     // where that begins
  uint32_t element = 0;  // of its own array
  FieldRef counter;      // what counts the array in which it stands; of size 0 when nothing does
  uint32_t counted = 0;  // which element of that array it is, or is part of

  // Whether the array has as many elements in use. `bytes` are the key or record.
  bool IsInUse(const uint8_t *bytes) const;
};

// What in `beside`, a structure that begins at `base`, counts the elements of an array; of size 0 when
// nothing does.
FieldRef CounterOf(const FieldSet &beside, std::string_view array, uint32_t base);

// All values of the nodes, arrays element by element.
std::vector<Leaf> LeavesOf(const std::vector<ShapeNode> &nodes);
std::vector<Leaf> LeavesOf(const TableLayout &table);
std::vector<Leaf> LeavesOf(const RegionLayout &region);
// Those of fields that `wanted`, which is asked of single values and arrays of them, accepts.
using WantedField = std::function<bool(const Field &)>;
std::vector<Leaf> LeavesOf(const TableLayout &table, const WantedField &wanted);
std::vector<Leaf> LeavesOf(const RegionLayout &region, const WantedField &wanted);
// Those at a path of Select's form; an array that is named without an element is all of its elements.
std::vector<Leaf> LeavesAt(const TableLayout &table, std::string_view path);

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_SHAPE_H_
