#include "host/commands/region_command.h"

#include <cstdint>
#include <optional>

#include "host/base/near_name.h"
#include "host/engine/engine.h"

namespace qdt::host {
namespace {

std::string ListRegions(const Layout &layout) {
  std::string text;
  for (const RegionLayout &region : layout.regions()) {
    if (!region.fields.empty()) text += std::string(region.spec.name) + "\n";
  }
  return text;
}

const RegionLayout &FindRegion(const Layout &layout, const std::string &name) {
  const RegionLayout *region = layout.FindRegion(name);
  if (region == nullptr) {
    throw HostError("no such region " + Quoted(name) +
                    DidYouMean(layout.NearestRegion(name), "\"region\" lists them"));
  }
  if (region->fields.empty()) throw HostError("region " + name + " has no fields yet");
  return *region;
}

std::string ShownValue(const FieldRef &field, const uint8_t *bytes) {
  if (field.kind == FieldKind::kText) return std::string(field.GetText(bytes));
  return ValueText(field, field.Read(bytes));
}

std::string ShowValues(const RegionLayout &region, const uint8_t *bytes) {
  std::string text;
  region.ForEachValue([&](const std::string &path, const FieldRef &field) {
    text += path + ' ' + ShownValue(field, bytes) + '\n';
  });
  return text;
}

FieldRef FindValue(const RegionLayout &region, const std::string &name) {
  std::optional<FieldRef> found;
  NearName near(name);
  std::string nearest;
  region.ForEachValue([&](const std::string &path, const FieldRef &field) {
    if (path == name) found = field;
    if (near.Offer(path)) nearest = path;
  });
  if (found) return *found;
  throw HostError(std::string(region.spec.name) + " has no value " + Quoted(name) +
                  DidYouMean(nearest, "\"region " + std::string(region.spec.name) + "\" lists them"));
}

void SetValue(const FieldRef &field, uint8_t *bytes, const std::string &value) {
  if (field.kind == FieldKind::kText) throw HostError("texts cannot be changed");
  std::string problem;
  const std::optional<WideValue> number = ParseValue(field, value, &problem);
  if (!number) throw HostError(problem);
  field.WriteShared(bytes, *number);
}

}  // namespace

std::string RunRegionCommand(const Engine &engine, std::span<const std::string> words) {
  if (words.empty()) return ListRegions(engine.layout());
  const RegionLayout &region = FindRegion(engine.layout(), words[0]);
  auto *bytes = static_cast<uint8_t *>(engine.arena().FindRegion(region.spec.name, nullptr));
  if (words.size() == 1) return ShowValues(region, bytes);
  const FieldRef field = FindValue(region, words[1]);
  if (words.size() > 3) throw HostError("too many words (region NAME [VALUE'S NAME [NEW VALUE]])");
  if (words.size() == 3) SetValue(field, bytes, words[2]);
  return words[1] + ' ' + ShownValue(field, bytes) + '\n';
}

}  // namespace qdt::host
