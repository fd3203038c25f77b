#include <algorithm>
#include <limits>

#include "host/layout/layout_reader.h"
#include "qdt/tables.h"

// The section "views" of layout files. A layout may lack what a view shows: its engine has no such table
// then.
namespace qdt::host {

void LayoutReader::ReadView(const YamlNode &name, const YamlNode &node) {
  CheckProperties(node, {"id", "table", "region", "about", "record_size", "fields", "keys"});
  CheckName(name, "");
  ViewLayout view;
  view.name = store_->Keep(name.text);
  view.about = ReadAbout(node);
  view.place = Place(name);
  view.id = ReadNumber(node, "id", 0, QDT_DIAG_TABLE_COUNT - 1);
  for (const ViewLayout &other : views_) {
    if (other.id == view.id || other.name == view.name)
      Fail(name, "", "stands at " + std::string(other.place) + " already (remove one)");
  }
  const YamlNode *table = node.Get("table");
  const YamlNode *region = node.Get("region");
  const YamlNode *fields = node.Get("fields");
  if ((table != nullptr) + (region != nullptr) + (fields != nullptr) != 1)
    Fail(name, "", "what does it show? (give one of table, region, and record_size with fields)");
  if (table != nullptr) view.table = store_->Keep(table->text);
  if (region != nullptr) view.region = store_->Keep(region->text);
  if (fields != nullptr) {
    view.recordSize = ReadNumber(node, "record_size", 1, std::numeric_limits<uint16_t>::max());
    view.fields = ReadFields(fields, "", view.recordSize);
    CheckRecordWide(view.fields, FieldSet());
  } else if (node.Get("record_size") != nullptr) {
    Fail(*node.Get("record_size"), "record_size", "for views with fields of their own only");
  }
  if (node.Get("keys") != nullptr) view.keys = ReadViewKeys(*node.Get("keys"), view);
  views_.push_back(view);
}

std::span<const std::string_view> LayoutReader::ReadViewKeys(const YamlNode &node, const ViewLayout &view) {
  if (view.table.empty()) Fail(node, "keys", "for views of tables only");
  if (!node.IsList() || node.items.empty() || node.items.size() > kViewKeys)
    Fail(node, "keys", "not a list of 1 to " + std::to_string(kViewKeys) + " keys");
  std::vector<std::string_view> keys;
  for (const YamlNode *key : node.items) {
    if (!key->IsScalar()) Fail(*key, "keys", "not the name of a field");
    keys.push_back(store_->Keep(key->text));
  }
  return store_->Keep(std::move(keys));
}

// The tables are known by the time of this.
void LayoutReader::CheckViewKeys() const {
  for (const ViewLayout &view : views_) {
    const TableLayout *table = FindTable(view.table);
    if (table == nullptr) continue;
    for (std::string_view key : view.keys) {
      if (key == "all") continue;
      if (key.starts_with('#') || key.starts_with('@')) key.remove_prefix(1);
      while (!key.empty()) {
        const std::string_view name = key.substr(0, key.find(':'));
        if (table->key.Find(name) == nullptr && table->fields.Find(name) == nullptr) {
          throw HostError(std::string(view.place) + ": " + std::string(view.name) +
                          ".keys: " + std::string(table->shortName) + " has no field " + Quoted(name));
        }
        key.remove_prefix(std::min(name.size() + 1, key.size()));
      }
    }
  }
}

}  // namespace qdt::host
