#ifndef HOST_LAYOUT_LAYOUT_READER_H_
#define HOST_LAYOUT_LAYOUT_READER_H_

#include <array>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout_store.h"
#include "host/layout/yaml_tree.h"

namespace qdt::host {

// Reads layout files into a Layout. Throws HostError as ReadLayouts tells.
class LayoutReader {
 public:
  LayoutReader();

  void ReadFile(const YamlTree &tree);

  // What only the whole set tells: every id is there, every reference leads to a table that can be referred
  // to. The reader is of no use afterwards.
  Layout Finish();

 private:
  // Where a reference field was met, until all tables are known.
  struct Reference {
    std::string file;
    uint32_t line;
    std::string where;
    std::string_view target;
  };

  void ReadTable(const YamlNode &name, const YamlNode &node);
  void ReadRegion(const YamlNode &name, const YamlNode &node);
  void ReadView(const YamlNode &name, const YamlNode &node);
  void ReadSection(const YamlNode &section, const YamlNode &entries);
  uint32_t ReadNumber(const YamlNode &node, std::string_view property, uint32_t least, uint32_t most);
  uint32_t ReadNumberOr(uint32_t otherwise, const YamlNode &node, std::string_view property, uint32_t most);
  Lookup ReadLookup(const YamlNode &node);
  void CheckProperties(const YamlNode &node, std::initializer_list<std::string_view> known);
  void CheckName(const YamlNode &name, const std::string &where) const;
  void CheckIsFree(const YamlNode &name, const TableLayout &table) const;
  static void CheckArenaHoldsAll(const Layout &layout);
  void CheckReferences() const;
  const TableLayout *FindTable(std::string_view shortName) const;
  std::string_view Place(const YamlNode &node);
  std::string_view ReadAbout(const YamlNode &node);
  void ReadShape(const YamlNode &node, TableSpec *spec);
  void ReadClientWritable(const YamlNode &name, TableLayout *table);
  void CheckKey(const TableLayout &table);
  void CheckRecordWide(const FieldSet &fields, const FieldSet &key);
  void CheckMeanings(const FieldSet &fields);
  void ReadPointer(const YamlNode &node, Field *field);
  struct FieldValues {
    std::string_view field;
    std::vector<uint32_t> values;
  };
  FieldValues ReadValues(const YamlNode &node, const char *property, const char *form);
  void ReadVariant(const YamlNode &node, Field *field);
  void JoinToOwner(TableLayout *table);
  std::span<const std::string_view> ReadViewKeys(const YamlNode &node, const ViewLayout &view);
  void CheckViewKeys() const;

  FieldSet ReadFields(const YamlNode *node, const std::string &where, uint32_t size,
                      const FieldSet &key = {});
  Field ReadField(const std::string &name, const YamlNode &node, const std::string &where);
  Field ReadStructure(const YamlNode &node, const std::string &where);
  Field ReadLine(const YamlNode &node, const std::string &where);

  [[noreturn]] void Fail(const YamlNode &node, const std::string &where, const std::string &what) const;

  const YamlTree *tree_ = nullptr;
  std::string where_;  // the table or region being read
  std::shared_ptr<LayoutStore> store_ = std::make_shared<LayoutStore>();
  std::vector<TableLayout> tables_;
  std::vector<RegionLayout> regions_;
  std::vector<ViewLayout> views_;
  std::array<uint32_t, kTableCount> lines_{};  // where each table was given; 0 is nowhere
  std::vector<Reference> references_;
};

}  // namespace qdt::host

#endif  // HOST_LAYOUT_LAYOUT_READER_H_
