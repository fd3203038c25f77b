#include <limits>

#include "host/layout/layout_reader.h"
#include "qdt/tables.h"

// The section "views" of layout files. A layout may lack what a view shows: its engine has no such table
// then.
namespace qdt::host {

void LayoutReader::ReadView(const YamlNode &name, const YamlNode &node) {
  CheckProperties(node, {"id", "table", "region", "about", "record_size", "fields"});
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
  views_.push_back(view);
}

}  // namespace qdt::host
