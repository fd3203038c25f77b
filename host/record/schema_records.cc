#include "host/record/schema_records.h"

#include <algorithm>

#include "host/record/schema.h"

namespace qdt::host {
namespace {

// A field of a key that always holds one value, and nothing in the record says it as well.
bool IsSilent(const ShapeNode &node) { return node.field->constant && node.twin == nullptr; }

bool IsOptional(const Field &field) { return field.pointer != 0 || !field.selector.empty(); }

bool IsBig(FieldKind kind) {
  return kind == FieldKind::kIpv4Net || kind == FieldKind::kIpv6 || kind == FieldKind::kMac;
}

}  // namespace

void RecordSchema::RecordDefs(const TableLayout &table) {
  const RecordShape shape = RecordShape::Whole(table);
  RecordDef(table.shortName, table.about, shape);
  std::vector<std::string_view> always;
  for (const ShapeNode &node : shape.nodes) {
    if (!IsSilent(node) && !IsOptional(*node.field)) always.push_back(node.name);
  }
  Key(std::string(table.shortName) + ".whole");
  json_.StartObject();
  Ref(table.shortName);
  Names("required", always);
  json_.EndObject();
}

void RecordSchema::RecordDef(std::string_view name, std::string_view about, const RecordShape &shape) {
  at_ = "#/$defs/" + std::string(name);
  Key(name);
  Object(about, shape.nodes);
}

void RecordSchema::RegionDef(const RegionLayout &region) {
  RecordDef(region.spec.name, region.about, RecordShape::Whole(region));
}

void RecordSchema::KeyDef(const TableLayout &table) {
  Key(std::string(table.shortName) + ".key");
  json_.StartObject();
  Text("type", "object");
  std::vector<std::string_view> names;
  Key("properties");
  json_.StartObject();
  for (const Field &field : table.key.all()) {
    if (field.constant) continue;
    names.push_back(field.name);
    Key(field.name);
    json_.StartObject();
    Value(field);
    json_.EndObject();
  }
  json_.EndObject();
  Names("required", names);
  No("additionalProperties");
  json_.EndObject();
}

void RecordSchema::AddTargets(const FieldSet &fields, std::vector<std::string_view> *targets) const {
  for (const Field &field : fields.all()) {
    for (const std::string_view target : field.targets) {
      if (std::ranges::find(*targets, target) == targets->end()) targets->push_back(target);
    }
    AddTargets(field.fields, targets);
  }
}

void RecordSchema::Object(std::string_view about, const std::vector<ShapeNode> &nodes) {
  json_.StartObject();
  Note("description", about);
  ObjectMembers(nodes, 0);
  json_.EndObject();
}

void RecordSchema::ObjectMembers(const std::vector<ShapeNode> &nodes, uint32_t base) {
  const std::string here = at_;
  Text("type", "object");
  Key("properties");
  json_.StartObject();
  for (const ShapeNode &node : nodes) {
    if (IsSilent(node)) continue;
    at_ = here + "/properties/" + node.name;
    Key(node.name);
    Node(node, base);
  }
  if (std::ranges::any_of(nodes, [](const ShapeNode &node) { return node.twin != nullptr; })) Twins(nodes);
  json_.EndObject();
  if (std::ranges::any_of(nodes, &ShapeNode::IsArray)) {
    Key("patternProperties");
    json_.StartObject();
    for (const ShapeNode &node : nodes) {
      if (!node.IsArray()) continue;
      Key("^" + node.name + "\\[[0-9]+\\]$");
      json_.StartObject();
      Text("$ref", here + "/properties/" + node.name + "/items");
      json_.EndObject();
    }
    json_.EndObject();
  }
  No("additionalProperties");
  at_ = here;
}

void RecordSchema::Twins(const std::vector<ShapeNode> &nodes) {
  Key("record");
  json_.StartObject();
  Text("description", "what the record says where that is not what its key says");
  Text("type", "object");
  Key("properties");
  json_.StartObject();
  for (const ShapeNode &node : nodes) {
    if (node.twin == nullptr) continue;
    Key(node.name);
    json_.StartObject();
    Note("description", node.twin->about);
    Value(*node.twin);
    Notes(*node.twin, 0);
    json_.EndObject();
  }
  json_.EndObject();
  Number("minProperties", 1);
  No("additionalProperties");
  json_.EndObject();
}

void RecordSchema::Node(const ShapeNode &node, uint32_t base) {
  const Field &field = *node.field;
  json_.StartObject();
  Note("description", field.about);
  if (node.IsArray()) {
    Text("type", "array");
    Number("maxItems", field.count);
    Key("items");
    at_ += "/items";
    json_.StartObject();
  }
  if (!node.IsStructure()) {
    Value(field);
  } else if (field.pointer != 0) {
    Key("oneOf");
    at_ += "/oneOf/0";
    json_.StartArray();
    json_.StartObject();
    ObjectMembers(node.inner, base + field.ref.offset);
    json_.EndObject();
    RefObject("stale");
    json_.EndArray();
  } else {
    ObjectMembers(node.inner, base + field.ref.offset);
  }
  if (node.IsArray()) json_.EndObject();
  Text("x-in", node.inKey ? "key" : "record");
  Notes(field, base);
  json_.EndObject();
}

void RecordSchema::Value(const Field &field) {
  const FieldRef &ref = field.ref;
  switch (FormOf(ref.kind)) {
    case ValueForm::kNumber:
      return NumberType(ref);
    case ValueForm::kText:
      Text("type", "string");
      // Escaped, each byte can take four characters.
      Number("maxLength", ref.size * 4u);
      return Text("pattern", "^([^\\\\\\x00-\\x1f\\x7f]|\\\\\\\\|\\\\x[0-9a-f]{2})*$");
    case ValueForm::kReference:
      return ReferenceType(field);
    case ValueForm::kAddress:
      Key("anyOf");
      json_.StartArray();
      for (const ValueForm form : {ValueForm::kIpv4, ValueForm::kIpv6, ValueForm::kMac}) {
        json_.StartObject();
        AddressType(form);
        json_.EndObject();
      }
      json_.EndArray();
      return;
    default:
      return AddressType(FormOf(ref.kind));
  }
}

void RecordSchema::NumberType(const FieldRef &ref) {
  if (ref.Width() == 1) return Text("type", "boolean");
  Text("type", "integer");
  Key("minimum");
  json_.Int64(ref.Least());
  Number("maximum", ref.Greatest());
}

void RecordSchema::AddressType(ValueForm form) {
  Text("type", "string");
  if (form == ValueForm::kMac) return Text("pattern", "^[0-9a-f]{2}(:[0-9a-f]{2}){5}$");
  Text("format", form == ValueForm::kIpv4 ? "ipv4" : "ipv6");
  Text("pattern", form == ValueForm::kIpv4 ? "^[0-9]{1,3}(\\.[0-9]{1,3}){3}$" : "^[0-9a-f.]*:[0-9a-f:.]*$");
}

void RecordSchema::ReferenceType(const Field &field) {
  Key("oneOf");
  json_.StartArray();
  json_.StartObject();
  Text("type", "null");
  json_.EndObject();
  RefObject("address");
  if (field.targets.size() == 1) {
    Target(field.targets.front());
  } else {
    for (const std::string_view target : field.targets) {
      json_.StartObject();
      Text("type", "object");
      Key("properties");
      json_.StartObject();
      Key(target);
      json_.StartObject();
      Key("oneOf");
      json_.StartArray();
      Target(target);
      json_.EndArray();
      json_.EndObject();
      json_.EndObject();
      Names("required", {&target, 1});
      No("additionalProperties");
      json_.EndObject();
    }
  }
  json_.EndArray();
}

void RecordSchema::Target(std::string_view table) {
  RefObject(std::string(table) + ".key");
  RefObject("stale");
}

void RecordSchema::Notes(const Field &field, uint32_t base) {
  const FieldRef &ref = field.ref;
  Number("x-offset", base + ref.offset);
  if (field.count != 0) Number("x-stride", field.stride);
  if (field.fields.empty()) {
    Text("x-kind", TypeName(ref));
    Number("x-width", ref.Width());
    Note("x-bits", BitsText(ref));
    if (ref.kind == FieldKind::kIpv6Words) {
      Text("x-byte-order", "words");
    } else if (ref.size > 1 && ref.kind != FieldKind::kText && ref.kind != FieldKind::kAddress) {
      Text("x-byte-order", IsBig(ref.kind) ? "big" : "little");
    }
    if (field.role == FieldRole::kCounter) Text("x-role", "counter");
    if (field.role == FieldRole::kClock) Text("x-role", "clock");
  }
  Note("x-unit", field.unit);
  Names("x-targets", field.targets);
  Names("x-agrees-with", field.agreesWith);
  Note("x-leads-to", field.leadsTo);
  if (field.mustLead) {
    Key("x-must-lead");
    json_.Bool(true);
  }
  Note("x-counts", field.counts);
  Note("x-cleared-by", field.clearedBy);
  if (IsOptional(field)) Presence(field);
}

void RecordSchema::Presence(const Field &field) {
  Key("x-present");
  json_.StartObject();
  if (field.pointer != 0) Number("pointer", field.pointer);
  const bool chosen = !field.chosenBy.empty();
  const std::string_view name = chosen ? field.chosenBy : field.selector;
  Note("field", name);
  if (!name.empty()) {
    Key("values");
    json_.StartArray();
    if (chosen) json_.Uint(field.chosenValue);
    for (const uint32_t value : field.selectedBy) json_.Uint(value);
    json_.EndArray();
  }
  json_.EndObject();
}

std::string BitsText(const FieldRef &field) {
  if (field.bits == 0) return "";
  std::string text = std::to_string(field.shift);
  if (field.bits > 1) text += "-" + std::to_string(field.shift + field.bits - 1);
  return text;
}

}  // namespace qdt::host
