#include "host/record/schema.h"

#include <string>
#include <vector>

#include "host/record/schema_documents.h"
#include "host/record/schema_records.h"

namespace qdt::host {
namespace {

constexpr std::string_view kDialect = "https://json-schema.org/draft/2020-12/schema";

class DocumentSchema : public RecordSchema {
 public:
  DocumentSchema(TextOut *out, const Layout &layout) : RecordSchema(out), layout_(layout) {}

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
    Ref("document");
    Key("$defs");
    json_.StartObject();
    CommonDefs();
    Key("document");
    AnyDocument();
    Key("place");
    Place();
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
      if (region.fields.empty()) continue;
      RegionDef(region);
      Key("region." + std::string(region.spec.name));
      json_.StartObject();
      RegionMembers(region);
      json_.EndObject();
    }
    for (const ViewLayout &view : layout_.views()) View(view);
    for (const SchemaDocument &document : SchemaDocuments()) AsItIs(document);
    End();
  }

 private:
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

  // {"table": "fib", "id": 1, "records": [...], "count": 1, "truncated": false}, or with --count alone
  // without records.
  void ListMembers(std::string_view kind, const TableLayout &table) {
    Note("description", table.about);
    Text("type", "object");
    Key("properties");
    json_.StartObject();
    Const(kind, table.shortName);
    NumberConst("id", table.spec.id);
    RecordsMembers(table.shortName);
    json_.EndObject();
    Names("required", std::vector<std::string_view>{kind, "id", "count"});
    Key("dependentRequired");
    json_.StartObject();
    Names("records", std::vector<std::string_view>{"truncated"});
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

  // Of "show NAME --json", and of its records where they are no table's and no region's.
  void View(const ViewLayout &view) {
    const std::string name = "view." + std::string(view.name);
    std::string record(view.table.empty() ? view.region : view.table);
    if (record.empty()) {
      record = name + ".record";
      RecordDef(record, view.about, RecordShape::Whole(view.fields));
    }
    Key(name);
    json_.StartObject();
    Note("description", view.about);
    Text("type", "object");
    Key("properties");
    json_.StartObject();
    Const("view", view.name);
    NumberConst("id", view.id);
    RecordsMembers(record);
    json_.EndObject();
    Names("required", std::vector<std::string_view>{"view", "id", "records", "count", "truncated"});
    No("additionalProperties");
    json_.EndObject();
  }

  // Which document is which, so that a wrong one is refused by what is wrong in it.
  void AnyDocument() {
    std::vector<std::string_view> tables, regions, views;
    std::vector<std::string_view> members{"table", "region", "view"};
    json_.StartObject();
    Text("type", "object");
    Key("allOf");
    json_.StartArray();
    for (const TableLayout &table : layout_.tables()) {
      if (table.fields.empty()) continue;
      tables.push_back(table.shortName);
      Choice("table", table.shortName, "list." + std::string(table.shortName));
    }
    for (const RegionLayout &region : layout_.regions()) {
      if (region.fields.empty()) continue;
      regions.push_back(region.spec.name);
      Choice("region", region.spec.name, "region." + std::string(region.spec.name));
    }
    for (const ViewLayout &view : layout_.views()) {
      views.push_back(view.name);
      Choice("view", view.name, "view." + std::string(view.name));
    }
    for (const SchemaDocument &document : SchemaDocuments()) {
      members.push_back(document.member);
      Choice(document.member, "", document.name);
    }
    json_.EndArray();
    Key("properties");
    json_.StartObject();
    Enum("table", tables);
    Enum("region", regions);
    Enum("view", views);
    json_.EndObject();
    Key("anyOf");
    OneOfMembers(members);
    json_.EndObject();
  }

  // [{"required": ["table"]}, ...]
  void OneOfMembers(std::span<const std::string_view> members) {
    json_.StartArray();
    for (const std::string_view &member : members) {
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
    IfMember(member, value);
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

  // What an object has that has the member, of this value unless that is empty.
  void IfMember(std::string_view member, std::string_view value) {
    if (!value.empty()) {
      Key("properties");
      json_.StartObject();
      Const(member, value);
      json_.EndObject();
    }
    Names("required", {&member, 1});
  }

  // Where something stands: "table", "id" and "key" of an entry, or the "region". A step of an explanation
  // has the record that it "found" as well.
  void Place() {
    json_.StartObject();
    Text("description",
         "where something stands: in an entry of a table, in a table as a whole, or in a region");
    Text("type", "object");
    Key("oneOf");
    OneOfMembers(std::vector<std::string_view>{"table", "region"});
    Key("properties");
    json_.StartObject();
    std::vector<std::string_view> names;
    for (const TableLayout &table : layout_.tables()) names.push_back(table.shortName);
    Enum("table", names);
    names.clear();
    for (const RegionLayout &region : layout_.regions()) names.push_back(region.spec.name);
    Enum("region", names);
    json_.EndObject();
    Key("dependentRequired");
    json_.StartObject();
    Names("table", std::vector<std::string_view>{"id"});
    Names("id", std::vector<std::string_view>{"table"});
    Names("key", std::vector<std::string_view>{"table"});
    json_.EndObject();
    Key("allOf");
    json_.StartArray();
    for (const TableLayout &table : layout_.tables()) PlaceIn(table);
    json_.EndArray();
    json_.EndObject();
  }

  void PlaceIn(const TableLayout &table) {
    const std::string name(table.shortName);
    json_.StartObject();
    Key("if");
    json_.StartObject();
    IfMember("table", name);
    json_.EndObject();
    Key("then");
    json_.StartObject();
    Key("properties");
    json_.StartObject();
    NumberConst("id", table.spec.id);
    if (!table.fields.empty()) {
      Key("key");
      RefObject(name + ".key");
      Key("found");
      json_.StartObject();
      Key("anyOf");
      json_.StartArray();
      json_.StartObject();
      Text("type", "null");
      json_.EndObject();
      RefObject(name + ".whole");
      json_.EndArray();
      json_.EndObject();
    }
    json_.EndObject();
    json_.EndObject();
    json_.EndObject();
  }

  void CommonDefs() {
    for (const SchemaPart &part : SchemaParts()) AsItIs(part);
  }
  void AsItIs(const SchemaPart &part) {
    Key(part.name);
    json_.RawValue(part.schema.data(), part.schema.size(), rapidjson::kObjectType);
  }

  const Layout &layout_;
};

}  // namespace

void WriteTableSchema(TextOut *out, const Layout &layout, const TableLayout &table) {
  DocumentSchema(out, layout).Table(table);
}

void WriteRegionSchema(TextOut *out, const Layout &layout, const RegionLayout &region) {
  DocumentSchema(out, layout).Region(region);
}

void WriteWholeSchema(TextOut *out, const Layout &layout) { DocumentSchema(out, layout).Whole(); }

}  // namespace qdt::host
