#include "host/record/record_shape.h"

#include <algorithm>
#include <charconv>

#include "host/base/host_error.h"
#include "host/base/near_name.h"

namespace qdt::host {
namespace {

ShapeNode WholeNode(const Field &field, bool inKey) {
  ShapeNode node;
  node.field = &field;
  node.inKey = inKey;
  node.name = field.name;
  for (const Field &inner : field.fields.all()) node.inner.push_back(WholeNode(inner, inKey));
  return node;
}

ShapeNode KeyNode(const TableLayout &table, const Field &field) {
  ShapeNode node = WholeNode(field, true);
  node.twin = table.fields.Find(field.name);
  return node;
}

// Takes one step off a path and finds the field that it names.
class PathWalk {
 public:
  PathWalk(const TableLayout &table, std::string_view path) : table_(table), path_(path), rest_(path) {}

  ShapeNode First() {
    const std::string_view name = NextName();
    if (const Field *field = table_.key.Find(name)) return Finish(KeyNode(table_, *field));
    if (const Field *field = table_.fields.Find(name)) return Finish(WholeNode(*field, false));
    NearName near(name);
    std::string_view nearest;
    for (const FieldSet *set : {&table_.key, &table_.fields}) {
      for (const Field &field : set->all()) {
        if (near.Offer(field.name)) nearest = field.name;
      }
    }
    Fail(name, nearest);
  }

 private:
  std::string_view NextName() {
    const std::string_view step = rest_.substr(0, rest_.find('.'));
    rest_.remove_prefix(std::min(step.size() + 1, rest_.size()));
    const std::string_view name = step.substr(0, step.find('['));
    index_ = step.substr(name.size());
    return name;
  }

  ShapeNode Finish(ShapeNode node) {
    if (!index_.empty()) node.element = ReadIndex(node);
    if (node.element) node.name += index_;
    if (rest_.empty()) return node;
    if (!node.IsStructure()) throw HostError(Where() + "has no fields of its own (it is one value)");
    const std::string_view name = NextName();
    const auto inner = std::ranges::find(node.inner, name, &ShapeNode::name);
    if (inner == node.inner.end()) {
      const Field *nearest = node.field->fields.Nearest(name);
      Fail(name, nearest == nullptr ? "" : nearest->name);
    }
    ShapeNode chosen = std::move(*inner);
    node.inner.clear();
    node.inner.push_back(Finish(std::move(chosen)));
    return node;
  }

  uint32_t ReadIndex(const ShapeNode &node) const {
    uint32_t index = 0;
    const char *end = index_.data() + index_.size();
    const auto [stop, error] = std::from_chars(index_.data() + 1, end, index);
    if (node.field->count == 0)
      throw HostError(Where() + "is no array (leave " + std::string(index_) + " out)");
    if (error != std::errc() || stop + 1 != end || *stop != ']' || index >= node.field->count) {
      throw HostError(Where() + "has the elements [0] to [" + std::to_string(node.field->count - 1) + "]");
    }
    return index;
  }

  std::string Where() const { return std::string(table_.shortName) + "." + std::string(path_) + " "; }

  [[noreturn]] void Fail(std::string_view name, std::string_view nearest) const {
    throw HostError(
        std::string(table_.shortName) + " has no field " + Quoted(name) +
        DidYouMean(nearest, "\"nqecli fields " + std::string(table_.shortName) + "\" lists them"));
  }

  const TableLayout &table_;
  std::string_view path_;
  std::string_view rest_;
  std::string_view index_;
};

// Paths through one structure become one structure with several fields.
void Merge(std::vector<ShapeNode> *nodes, ShapeNode node) {
  const auto same = std::ranges::find_if(*nodes, [&](const ShapeNode &other) {
    return other.field == node.field && other.element == node.element && other.IsStructure();
  });
  if (same == nodes->end()) {
    const bool isThere = std::ranges::any_of(*nodes, [&](const ShapeNode &other) {
      return other.field == node.field && other.element == node.element;
    });
    if (!isThere) nodes->push_back(std::move(node));
    return;
  }
  for (ShapeNode &inner : node.inner) Merge(&same->inner, std::move(inner));
}

// Collects the values that are wanted.
class LeafWalk {
 public:
  LeafWalk(const WantedField *wanted, std::vector<Leaf> *leaves) : wanted_(wanted), leaves_(leaves) {}

  // Leaves of a node begin as `outer`, whose path is that of the structure with a point behind it.
  void Add(const ShapeNode &node, const Leaf &outer) {
    if (!HasWanted(node)) return;
    const Field &field = *node.field;
    Leaf leaf = outer;
    leaf.inKey = node.inKey;
    if (field.pointer != 0 || !field.selector.empty()) leaf.part = &field;
    const uint32_t first = node.element.value_or(0);
    const uint32_t end = node.element ? first + 1 : std::max(field.count, 1u);
    // Of arrays in arrays the outer one's count tells what is in use.
    const bool counts = field.count != 0 && outer.counter.size == 0;
    if (counts) leaf.counter = CounterOfArray(field, outer);
    for (uint32_t i = first; i < end; ++i) {
      leaf.path = outer.path + node.name;
      if (node.IsArray()) leaf.path += "[" + std::to_string(i) + "]";
      if (counts) leaf.counted = i;
      AddElement(node, leaf, i);
    }
  }

 private:
  // References to the entries that a counted array of numbers names are counted with it.
  static FieldRef CounterOfArray(const Field &array, const Leaf &outer) {
    const FieldRef counter = CounterOf(outer.beside, array.name, outer.base);
    if (counter.size != 0 || array.agreesWith.empty()) return counter;
    return CounterOf(outer.beside, array.agreesWith.front(), outer.base);
  }

  bool HasWanted(const ShapeNode &node) const {
    if (wanted_ == nullptr) return true;
    if (!node.IsStructure()) return (*wanted_)(*node.field);
    return std::ranges::any_of(node.inner, [this](const ShapeNode &inner) { return HasWanted(inner); });
  }

  void AddElement(const ShapeNode &node, Leaf leaf, uint32_t element) {
    const uint32_t at = leaf.base + element * node.field->stride;
    if (!node.IsStructure()) {
      leaf.ref = node.field->ref.At(at);
      leaf.field = node.field;
      leaf.element = element;
      leaves_->push_back(std::move(leaf));
      return;
    }
    leaf.path += '.';
    leaf.beside = node.field->fields;
    leaf.base = at + node.field->ref.offset;
    for (const ShapeNode &inner : node.inner) Add(inner, leaf);
  }

  const WantedField *wanted_;
  std::vector<Leaf> *leaves_;
};

std::vector<Leaf> Collect(const std::vector<ShapeNode> &nodes, const FieldSet &key, const FieldSet &fields,
                          const WantedField *wanted) {
  std::vector<Leaf> leaves;
  LeafWalk walk(wanted, &leaves);
  for (const ShapeNode &node : nodes) {
    Leaf top;
    top.beside = node.inKey ? key : fields;
    walk.Add(node, top);
  }
  return leaves;
}

}  // namespace

RecordShape RecordShape::Whole(const TableLayout &table) {
  RecordShape shape;
  for (const Field &field : table.key.all()) shape.nodes.push_back(KeyNode(table, field));
  for (const Field &field : table.fields.all()) {
    if (table.key.Find(field.name) == nullptr) shape.nodes.push_back(WholeNode(field, false));
  }
  return shape;
}

RecordShape RecordShape::Whole(const RegionLayout &region) { return Whole(region.fields); }

RecordShape RecordShape::Whole(const FieldSet &fields) {
  RecordShape shape;
  for (const Field &field : fields.all()) shape.nodes.push_back(WholeNode(field, false));
  return shape;
}

RecordShape RecordShape::Select(const TableLayout &table, std::string_view paths) {
  RecordShape shape;
  while (!paths.empty()) {
    const std::string_view path = paths.substr(0, paths.find(','));
    paths.remove_prefix(std::min(path.size() + 1, paths.size()));
    Merge(&shape.nodes, PathWalk(table, path).First());
  }
  return shape;
}

RecordShape RecordShape::Chosen(const TableLayout &table, std::string_view paths) {
  return paths.empty() ? Whole(table) : Select(table, paths);
}

RecordShape RecordShape::Chosen(const RegionLayout &region, std::string_view paths) {
  TableLayout alone;  // a region is like a table without keys
  alone.shortName = region.spec.name;
  alone.fields = region.fields;
  return Chosen(alone, paths);
}

FieldRef CounterOf(const FieldSet &beside, std::string_view array, uint32_t base) {
  for (const Field &field : beside.all()) {
    if (field.counts == array) return field.ref.At(base);
  }
  return {};
}

bool Leaf::IsInUse(const uint8_t *bytes) const {
  if (counter.size == 0) return true;
  return static_cast<__int128>(counter.Read(bytes)) > static_cast<__int128>(counted);
}

std::vector<Leaf> LeavesOf(const std::vector<ShapeNode> &nodes) { return Collect(nodes, {}, {}, nullptr); }
std::vector<Leaf> LeavesOf(const TableLayout &table) {
  return Collect(RecordShape::Whole(table).nodes, table.key, table.fields, nullptr);
}
std::vector<Leaf> LeavesOf(const RegionLayout &region) {
  return Collect(RecordShape::Whole(region).nodes, {}, region.fields, nullptr);
}
std::vector<Leaf> LeavesOf(const TableLayout &table, const WantedField &wanted) {
  return Collect(RecordShape::Whole(table).nodes, table.key, table.fields, &wanted);
}
std::vector<Leaf> LeavesOf(const RegionLayout &region, const WantedField &wanted) {
  return Collect(RecordShape::Whole(region).nodes, {}, region.fields, &wanted);
}

std::vector<Leaf> LeavesAt(const TableLayout &table, std::string_view path) {
  return Collect({PathWalk(table, path).First()}, table.key, table.fields, nullptr);
}

}  // namespace qdt::host
