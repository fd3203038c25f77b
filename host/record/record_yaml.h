#ifndef HOST_RECORD_RECORD_YAML_H_
#define HOST_RECORD_RECORD_YAML_H_

#include <string>

#include "host/record/record_json.h"

namespace qdt::host {

// Writes records as entries of a scenario, one line each, which load into the same records again: keys, and
// what is not zero.
class YamlWriter {
 public:
  explicit YamlWriter(TextOut *out) : out_(*out) {}

  // {index: 5, next_hop: 192.0.2.1}
  void Record(const RecordBytes &record, const RecordShape &shape);

 private:
  // Fields of a mapping are joined by commas.
  class Map;
  bool IsZero(const RecordBytes &record, const ShapeNode &node, uint32_t base) const;
  void Node(const RecordBytes &record, const ShapeNode &node, uint32_t base, const FieldSet &beside);
  void Element(const RecordBytes &record, const ShapeNode &node, uint32_t base);
  void Value(const RecordBytes &record, const Field &field, const FieldRef &ref, const uint8_t *bytes);
  void ReferenceValue(const Reference &reference, bool named);
  void Key(const TableLayout &table, const uint8_t *key);
  void Quoted(std::string_view text);

  TextOut &out_;
};

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_YAML_H_
