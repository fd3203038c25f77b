#ifndef HOST_RECORD_SCHEMA_RECORDS_H_
#define HOST_RECORD_SCHEMA_RECORDS_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"
#include "host/record/record_json.h"

namespace qdt::host {

// Members of a JSON Schema.
class SchemaMembers {
 public:
  explicit SchemaMembers(TextOut *out) : json_(*out) {}

 protected:
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

  void Const(std::string_view key, std::string_view value) {
    Key(key);
    json_.StartObject();
    Text("const", value);
    json_.EndObject();
  }
  void NumberConst(std::string_view key, uint64_t value) {
    Key(key);
    json_.StartObject();
    Number("const", value);
    json_.EndObject();
  }
  void Enum(std::string_view key, std::span<const std::string_view> values) {
    Key(key);
    json_.StartObject();
    Names("enum", values);
    json_.EndObject();
  }

  JsonWriter json_;
};

// The definitions of records and keys, each a member of "$defs".
class RecordSchema : public SchemaMembers {
 public:
  using SchemaMembers::SchemaMembers;

 protected:
  // A record of the table under its name, one that is whole under NAME.whole.
  void RecordDefs(const TableLayout &table);
  void RecordDef(std::string_view name, std::string_view about, const RecordShape &shape);
  void RegionDef(const RegionLayout &region);
  void KeyDef(const TableLayout &table);
  // The tables that references lead to.
  void AddTargets(const FieldSet &fields, std::vector<std::string_view> *targets) const;

 private:
  void Object(std::string_view about, const std::vector<ShapeNode> &nodes);
  // An object of the nodes' values. An element that was chosen alone stands under its own name.
  void ObjectMembers(const std::vector<ShapeNode> &nodes, uint32_t base);
  // The record's own fields where they say another thing than its key.
  void Twins(const std::vector<ShapeNode> &nodes);
  void Node(const ShapeNode &node, uint32_t base);
  // What values are allowed.
  void Value(const Field &field);
  void NumberType(const FieldRef &ref);
  void AddressType(ValueForm form);
  // null, the key of an entry, by its table's name where there are several, or an address.
  void ReferenceType(const Field &field);
  void Target(std::string_view table);
  // How the value is stored and what else is known of it. Offsets count from the start of the key or record,
  // of arrays to the first element.
  void Notes(const Field &field, uint32_t base);
  // When a record has the structure.
  void Presence(const Field &field);

  std::string at_;  // where the schema of the object or array at hand stands in the document
};

}  // namespace qdt::host

#endif  // HOST_RECORD_SCHEMA_RECORDS_H_
