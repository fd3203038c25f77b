#ifndef HOST_LAYOUT_LAYOUT_READER_H_
#define HOST_LAYOUT_LAYOUT_READER_H_

#include <array>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"
#include "host/layout/yaml_tree.h"

namespace qdt::host {

// Reads layout files into a Layout. Throws HostError as Layout::FromDirectory tells.
class LayoutReader {
 public:
  LayoutReader();

  void ReadFile(const YamlTree &tree);

  // What only the whole set tells: every id is there, every reference leads to a table that can be referred
  // to.
  Layout Finish();

 private:
  // Where a reference field was met, until all tables are known.
  struct Reference {
    std::string file;
    uint32_t line;
    std::string where;
    std::string target;
  };

  void ReadTable(const YamlNode &name, const YamlNode &node);
  void ReadRegion(const YamlNode &name, const YamlNode &node);
  uint32_t ReadNumber(const YamlNode &node, std::string_view property, uint32_t least, uint32_t most);
  uint32_t ReadNumberOr(uint32_t otherwise, const YamlNode &node, std::string_view property, uint32_t most);
  Lookup ReadLookup(const YamlNode &node);
  void CheckProperties(const YamlNode &node, std::initializer_list<std::string_view> known);
  void CheckName(const YamlNode &name, const std::string &where) const;
  void CheckIsFree(const YamlNode &name, const TableLayout &table) const;
  void CheckArenaHoldsAll() const;
  std::string Place(const YamlNode &node) const;
  void ReadShape(const YamlNode &node, TableSpec *spec);
  void ReadClientWritable(const YamlNode &name, TableLayout *table);
  void CheckKey(const TableLayout &table);
  void CheckRecordWide(const FieldSet &fields, const FieldSet &key);
  void ReadPointer(const YamlNode &node, Field *field);
  void ReadVariant(const YamlNode &node, Field *field);
  void JoinToOwner(TableLayout *table);

  FieldSet ReadFields(const YamlNode *node, const std::string &where, uint32_t size);
  Field ReadField(const std::string &name, const YamlNode &node, const std::string &where);
  Field ReadStructure(const YamlNode &node, const std::string &where);
  Field ReadLine(const YamlNode &node, const std::string &where);

  [[noreturn]] void Fail(const YamlNode &node, const std::string &where, const std::string &what) const;

  const YamlTree *tree_ = nullptr;
  std::string where_;  // the table or region being read
  Layout layout_;
  std::array<uint32_t, kTableCount> lines_{};  // where each table was given; 0 is nowhere
  std::vector<Reference> references_;
};

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_READER_H_
