#include "host/answers/documents.h"

namespace qdt::host {

std::vector<const RegionLayout *> RegionsOf(const RecordSource &source) {
  std::vector<const RegionLayout *> regions;
  for (const RegionLayout &region : source.layout().regions()) {
    uint32_t size = 0;
    if (source.arena().FindRegion(region.spec.name, &size) != nullptr && size == region.spec.size)
      regions.push_back(&region);
  }
  return regions;
}

// {"regions": [{"name": "IPP_SESSION_AGING_TIME", "size": 6, "about": "..."}], "count": 7}
void WriteRegionsDocument(TextOut *out, std::span<const RegionLayout *const> regions) {
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "regions");
  json.StartArray();
  for (const RegionLayout *region : regions) {
    json.StartObject();
    JsonKey(&json, "name");
    JsonText(&json, region->spec.name);
    JsonKey(&json, "size");
    json.Uint(region->spec.size);
    JsonKey(&json, "about");
    JsonEscaped(&json, region->about);
    json.EndObject();
  }
  JsonEndCounted(&json, out, regions.size());
}

}  // namespace qdt::host
