#ifndef HOST_RECORD_RECORD_YAML_H_
#define HOST_RECORD_RECORD_YAML_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/record/record_json.h"

namespace qdt::host {

// Writes records as entries of a scenario, one line each, which load into the same records again: keys, and
// what is not zero.
class YamlWriter {
 public:
  // Both outlive the writer.
  YamlWriter(TextOut *out, const RecordShape &shape);

  // {index: 5, next_hop: 192.0.2.1}
  void Record(const RecordBytes &record);

  // Whether a scenario that leaves the record out, as it can with a region, says the same.
  bool IsZero(const RecordBytes &record) const;

  // YAML values written so far, names and braces counted as well.
  uint64_t values() const { return values_; }

 private:
  // Fields of a mapping are joined by commas.
  class Map;
  // A structure that a key selects together with others which stand in the same bytes.
  struct Variant {
    const ShapeNode *node;
    std::vector<uint8_t> bits;  // those that its fields hold, from `at` on
    uint32_t at;
  };

  bool IsZero(const RecordBytes &record, const ShapeNode &node, uint32_t base) const;
  bool IsZeroElement(const RecordBytes &record, const ShapeNode &node, uint32_t base) const;
  static bool SaysAll(const Variant &variant, const Variant &other, const uint8_t *record);
  bool IsSaidByAnother(const RecordBytes &record, const ShapeNode &node) const;
  void Node(const RecordBytes &record, const ShapeNode &node, uint32_t base, const FieldSet &beside);
  void Element(const RecordBytes &record, const ShapeNode &node, uint32_t base);
  void Value(const RecordBytes &record, const Field &field, const FieldRef &ref, const uint8_t *bytes);
  void OwnFields(const RecordBytes &record);
  void ReferenceValue(const Reference &reference, bool named);
  void Key(const TableLayout &table, const uint8_t *key);
  void Hex(uint64_t address);
  void Quoted(std::string_view text);
  void Stale(uint64_t address);

  TextOut &out_;
  const RecordShape &shape_;
  std::vector<Variant> variants_;
  uint64_t values_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_YAML_H_
