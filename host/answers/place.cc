#include "host/answers/documents.h"

namespace qdt::host {

void WritePlace(JsonWriter *json, const TableLayout *table, const RegionLayout *region, const uint8_t *key) {
  if (region != nullptr) {
    JsonKey(json, "region");
    return JsonText(json, region->spec.name);
  }
  JsonKey(json, "table");
  JsonText(json, table->shortName);
  JsonKey(json, "id");
  json->Uint(table->spec.id);
  if (key == nullptr) return;
  JsonKey(json, "key");
  WriteJsonKey(json, *table, key);
}

}  // namespace qdt::host
