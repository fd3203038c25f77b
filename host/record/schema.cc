#include "host/record/schema.h"

#include <algorithm>
#include <string>
#include <vector>

#include "host/record/record_json.h"
#include "host/record/schema_documents.h"

namespace qdt::host {
namespace {

constexpr std::string_view kDialect = "https://json-schema.org/draft/2020-12/schema";

// A field of a key that always holds one value, and nothing in the record says it as well.
bool IsSilent(const ShapeNode &node) { return node.field->constant && node.twin == nullptr; }

bool IsOptional(const Field &field) { return field.pointer != 0 || !field.selector.empty(); }

bool IsBig(FieldKind kind) {
  return kind == FieldKind::kIpv4Net || kind == FieldKind::kIpv6 || kind == FieldKind::kMac;
}

class SchemaWriter {
 public:
  SchemaWriter(TextOut *out, const Layout &layout) : json_(*out), layout_(layout) {}

  void Table(const TableLayout &table) {
    Head("list:" + std::string(table.shortName), "nqecli list " + std::string(table.shortName) + " --json");
    ListMembers("table", table);
    Key("$defs");
    json_.StartObject();
    CommonDefs();
    RecordDefs(table);
    std::vector<std::string_view> targets{table.shortName};
    AddTargets(table.fields, &targets);
    for (const std::string_view target : targets) KeyDef(*layout_.FindTable(target));
    End();
  }

  void Region(const RegionLayout &region) {
    const std::string name(region.spec.name);
    Head("region:" + name, "nqecli regions " + name + " --json");
    RegionMembers(region);
    Key("$defs");
    json_.StartObject();
    CommonDefs();
    RegionDef(region);
    std::vector<std::string_view> targets;
    AddTargets(region.fields, &targets);
    for (const std::string_view target : targets) KeyDef(*layout_.FindTable(target));
    End();
  }

  void Whole() {
    Head("data", "What nqecli prints with --json");
    Text("type", "object");
    Choices();
    Key("$defs");
    json_.StartObject();
    CommonDefs();
    for (const TableLayout &table : layout_.tables()) {
      if (table.fields.empty()) continue;
      RecordDefs(table);
      KeyDef(table);
      Key("list." + std::string(table.shortName));
      json_.StartObject();
      ListMembers("table", table);
      json_.EndObject();
    }
    for (const RegionLayout &region : layout_.regions()) {
      RegionDef(region);
      Key("region." + std::string(region.spec.name));
      json_.StartObject();
      RegionMembers(region);
      json_.EndObject();
    }
    for (const SchemaDocument &document : SchemaDocuments()) {
      if (!document.IsPart()) Document(document);
    }
    End();
  }

 private:
  void Key(std::string_view key) { JsonKey(&json_, key); }
  void Text(std::string_view key, std::string_view value) {
    Key(key);
    JsonText(&json_, value);
  }
  // Left out when there is nothing to say.
  void Note(std::string_view key, std::string_view value) {
    if (!value.empty()) Text(key, value);
  }
  void Number(std::string_view key, uint64_t value) {
    Key(key);
    json_.Uint64(value);
  }
  void Names(std::string_view key, std::span<const std::string_view> names) {
    if (names.empty()) return;
    Key(key);
    json_.StartArray();
    for (const std::string_view name : names) JsonText(&json_, name);
    json_.EndArray();
  }
  void No(std::string_view key) {
    Key(key);
    json_.Bool(false);
  }
  void Ref(std::string_view name) { Text("$ref", "#/$defs/" + std::string(name)); }
  void RefObject(std::string_view name) {
    json_.StartObject();
    Ref(name);
    json_.EndObject();
  }
  void Type(std::string_view key, std::string_view type) {
    Key(key);
    json_.StartObject();
    Text("type", type);
    json_.EndObject();
  }

  void Head(std::string_view id, std::string_view title) {
    json_.StartObject();
    Text("$schema", kDialect);
    Text("$id", "urn:qdt:" + std::string(id));
    Text("title", title);
  }
  // Of the definitions and the document.
  void End() {
    json_.EndObject();
    json_.EndObject();
  }

  void Const(std::string_view key, std::string_view value) {
    Key(key);
    json_.StartObject();
    Text("const", value);
    json_.EndObject();
  }

  // {"table": "fib", "id": 1, "records": [...], "count": 1, "truncated": false}, or with --count alone
  // without records.
  void ListMembers(std::string_view kind, const TableLayout &table) {
    Note("description", table.about);
    Text("type", "object");
    Key("properties");
    json_.StartObject();
    Const(kind, table.shortName);
    Key("id");
    json_.StartObject();
    Number("const", table.spec.id);
    json_.EndObject();
    RecordsMembers(table.shortName);
    json_.EndObject();
    Names("required", std::vector<std::string_view>{kind, "id", "count"});
    Key("dependentRequired");
    json_.StartObject();
    Names("records", std::vector<std::string_view>{"truncated"});
    Names("truncated", std::vector<std::string_view>{"records"});
    json_.EndObject();
    No("additionalProperties");
  }

  void RecordsMembers(std::string_view record) {
    Key("records");
    json_.StartObject();
    Text("type", "array");
    Key("items");
    RefObject(record);
    json_.EndObject();
    Key("count");
    RefObject("count");
    Type("truncated", "boolean");
  }

  void RegionMembers(const RegionLayout &region) {
    Note("description", region.about);
    Text("type", "object");
    Key("properties");
    json_.StartObject();
    Const("region", region.spec.name);
    RecordsMembers(region.spec.name);
    json_.EndObject();
    Names("required", std::vector<std::string_view>{"region", "records", "count", "truncated"});
    No("additionalProperties");
  }

  // Which document is which, so that a wrong one is refused by what is wrong in it.
  void Choices() {
    Key("allOf");
    json_.StartArray();
    for (const TableLayout &table : layout_.tables()) {
      if (!table.fields.empty()) Choice("table", table.shortName, "list." + std::string(table.shortName));
    }
    for (const RegionLayout &region : layout_.regions())
      Choice("region", region.spec.name, "region." + std::string(region.spec.name));
    for (const SchemaDocument &document : SchemaDocuments()) {
      if (!document.IsPart()) Choice(document.member, "", document.name);
    }
    json_.EndArray();
    Key("anyOf");
    json_.StartArray();
    std::vector<std::string_view> members{"table", "region"};
    for (const SchemaDocument &document : SchemaDocuments()) {
      if (!document.IsPart()) members.push_back(document.member);
    }
    for (const std::string_view member : members) {
      json_.StartObject();
      Names("required", {&member, 1});
      json_.EndObject();
    }
    json_.EndArray();
  }

  void Choice(std::string_view member, std::string_view value, std::string_view document) {
    json_.StartObject();
    Key("if");
    json_.StartObject();
    if (!value.empty()) {
      Key("properties");
      json_.StartObject();
      Const(member, value);
      json_.EndObject();
    }
    Names("required", {&member, 1});
    // A list of fields names its table or region as well.
    if (!value.empty()) {
      Key("not");
      json_.StartObject();
      Names("required", std::vector<std::string_view>{"fields"});
      json_.EndObject();
    }
    json_.EndObject();
    Key("then");
    RefObject(document);
    json_.EndObject();
  }

  void CommonDefs() {
    for (const SchemaDocument &document : SchemaDocuments()) {
      if (document.IsPart()) Document(document);
    }
  }
  void Document(const SchemaDocument &document) {
    Key(document.name);
    json_.RawValue(document.schema.data(), document.schema.size(), rapidjson::kObjectType);
  }

  void RecordDefs(const TableLayout &table) {
    const RecordShape shape = RecordShape::Whole(table);
    at_ = "#/$defs/" + std::string(table.shortName);
    Key(table.shortName);
    Object(table.about, shape.nodes);
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

  void RegionDef(const RegionLayout &region) {
    const RecordShape shape = RecordShape::Whole(region);
    at_ = "#/$defs/" + std::string(region.spec.name);
    Key(region.spec.name);
    Object(region.about, shape.nodes);
  }

  void KeyDef(const TableLayout &table) {
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

  // The tables that references lead to.
  void AddTargets(const FieldSet &fields, std::vector<std::string_view> *targets) const {
    for (const Field &field : fields.all()) {
      for (const std::string_view target : field.targets) {
        if (std::ranges::find(*targets, target) == targets->end()) targets->push_back(target);
      }
      AddTargets(field.fields, targets);
    }
  }

  void Object(std::string_view about, const std::vector<ShapeNode> &nodes) {
    json_.StartObject();
    Note("description", about);
    ObjectMembers(nodes, 0);
    json_.EndObject();
  }

  // An object of the nodes' values. An element that was chosen alone stands under its own name.
  void ObjectMembers(const std::vector<ShapeNode> &nodes, uint32_t base) {
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

  // The record's own fields where they say another thing than its key.
  void Twins(const std::vector<ShapeNode> &nodes) {
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

  void Node(const ShapeNode &node, uint32_t base) {
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

  // What values are allowed.
  void Value(const Field &field) {
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

  void NumberType(const FieldRef &ref) {
    if (ref.Width() == 1) return Text("type", "boolean");
    Text("type", "integer");
    Key("minimum");
    json_.Int64(ref.Least());
    Number("maximum", ref.Greatest());
  }

  void AddressType(ValueForm form) {
    Text("type", "string");
    if (form == ValueForm::kMac) return Text("pattern", "^[0-9a-f]{2}(:[0-9a-f]{2}){5}$");
    Text("format", form == ValueForm::kIpv4 ? "ipv4" : "ipv6");
    Text("pattern", form == ValueForm::kIpv4 ? "^[0-9]{1,3}(\\.[0-9]{1,3}){3}$" : "^[0-9a-f.]*:[0-9a-f:.]*$");
  }

  // null, the key of an entry, by its table's name where there are several, or an address.
  void ReferenceType(const Field &field) {
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
  void Target(std::string_view table) {
    RefObject(std::string(table) + ".key");
    RefObject("stale");
  }

  // How the value is stored and what else is known of it. Offsets count from the start of the key or record,
  // of arrays to the first element.
  void Notes(const Field &field, uint32_t base) {
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

  // When a record has the structure.
  void Presence(const Field &field) {
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

  JsonWriter json_;
  const Layout &layout_;
  std::string at_;  // where the schema of the object or array at hand stands in the document
};

}  // namespace

std::string BitsText(const FieldRef &field) {
  if (field.bits == 0) return "";
  std::string text = std::to_string(field.shift);
  if (field.bits > 1) text += "-" + std::to_string(field.shift + field.bits - 1);
  return text;
}

void WriteTableSchema(TextOut *out, const Layout &layout, const TableLayout &table) {
  SchemaWriter(out, layout).Table(table);
}

void WriteRegionSchema(TextOut *out, const Layout &layout, const RegionLayout &region) {
  SchemaWriter(out, layout).Region(region);
}

void WriteWholeSchema(TextOut *out, const Layout &layout) { SchemaWriter(out, layout).Whole(); }

}  // namespace qdt::host
