#include "host/layout/layout.h"

#include <algorithm>
#include <charconv>

#include "host/base/host_error.h"
#include "host/base/near_name.h"

namespace qdt::host {
namespace {

// Follows one step of a path, "name" or "name[index]", and takes it off the path.
const Field *Step(const FieldSet &fields, std::string_view *path, uint32_t *base) {
  const std::string_view step = path->substr(0, path->find('.'));
  path->remove_prefix(std::min(step.size() + 1, path->size()));
  const size_t bracket = std::min(step.find('['), step.size());
  const Field *field = fields.Find(step.substr(0, bracket));
  if (field == nullptr || (field->count != 0) != (bracket < step.size())) return nullptr;
  if (field->count != 0) {
    uint32_t index = 0;
    const char *end = step.data() + step.size();
    const auto [stop, error] = std::from_chars(step.data() + bracket + 1, end, index);
    if (error != std::errc() || stop + 1 != end || *stop != ']' || index >= field->count) return nullptr;
    *base += index * field->stride;
  }
  return field;
}

FieldRef Resolve(std::string_view owner, const FieldSet &fields, std::string_view path) {
  const std::string whole(path);
  const FieldSet *set = &fields;
  uint32_t base = 0;
  while (const Field *field = Step(*set, &path, &base)) {
    if (path.empty() && field->fields.empty()) return field->ref.At(base);
    if (path.empty() || field->fields.empty()) break;
    base += field->ref.offset;
    set = &field->fields;
  }
  throw HostError(std::string(owner) + "." + whole + ": the layout has no such value");
}

using ValueVisitor = std::function<void(const std::string &path, const FieldRef &)>;

void Visit(const FieldSet &fields, const std::string &prefix, uint32_t base, const ValueVisitor &visit) {
  for (const Field &field : fields.all()) {
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
      std::string path = prefix + std::string(field.name);
      if (field.count != 0) path += "[" + std::to_string(i) + "]";
      const uint32_t at = base + i * field.stride;
      if (field.fields.empty()) {
        visit(path, field.ref.At(at));
      } else {
        Visit(field.fields, path + ".", at + field.ref.offset, visit);
      }
    }
  }
}

}  // namespace

std::vector<FieldRef> TableLayout::ClearedBy(std::string_view word) const {
  std::vector<FieldRef> cleared;
  for (const Field &field : fields.all()) {
    if (field.clearedBy != word) continue;
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i)
      cleared.push_back(field.ref.At(i * field.stride));
  }
  return cleared;
}

FieldRef TableLayout::At(std::string_view path) const { return Resolve(shortName, fields, path); }
FieldRef ViewLayout::At(std::string_view path) const { return Resolve(name, fields, path); }
FieldRef RegionLayout::At(std::string_view path) const { return Resolve(spec.name, fields, path); }

void RegionLayout::ForEachValue(const ValueVisitor &visit) const { Visit(fields, "", 0, visit); }

Layout Layout::WithCapacities(std::span<const std::pair<std::string, uint32_t>> capacities) const {
  struct Kept {
    std::vector<TableLayout> tables;
    std::shared_ptr<const LayoutStore> before;
  };
  const auto kept = std::make_shared<Kept>(Kept{{tables_.begin(), tables_.end()}, store_});
  for (const auto &[name, capacity] : capacities) {
    const TableLayout *table = FindTable(name);
    if (table == nullptr || !table->spec.enabled)
      throw HostError("--capacity " + Quoted(name) +
                      ": there is no such table (\"nqecli tables\" lists them)");
    kept->tables[table->spec.id].spec.capacity = capacity;
  }
  return {kept->tables, regions_, views_, byName_, std::shared_ptr<const LayoutStore>(kept, store_.get())};
}

ArenaPlan Layout::Plan(const std::string &socketPath) const {
  ArenaPlan plan;
  for (const TableLayout &table : tables_) plan.tables.push_back(table.spec);
  for (const RegionLayout &region : regions_) plan.regions.push_back(region.spec);
  plan.socketPath = socketPath;
  return plan;
}

const TableLayout *Layout::FindTable(std::string_view shortName) const {
  const auto at =
      std::ranges::lower_bound(byName_, shortName, {}, [this](uint16_t id) { return tables_[id].shortName; });
  return at != byName_.end() && tables_[*at].shortName == shortName ? &tables_[*at] : nullptr;
}

const RegionLayout *Layout::FindRegion(std::string_view name) const {
  for (const RegionLayout &region : regions_) {
    if (region.spec.name == name) return &region;
  }
  return nullptr;
}

const ViewLayout *Layout::FindView(uint32_t id) const {
  const auto at = std::ranges::lower_bound(views_, id, {}, &ViewLayout::id);
  return at != views_.end() && at->id == id ? &*at : nullptr;
}

std::string_view Layout::NearestRegion(std::string_view name) const {
  NearName near(name);
  std::string_view nearest;
  for (const RegionLayout &region : regions_) {
    if (near.Offer(region.spec.name)) nearest = region.spec.name;
  }
  return nearest;
}

}  // namespace qdt::host
