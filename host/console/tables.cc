// Tables, their fields, their entries page by page, and one entry with all that is known of it.

#include <algorithm>
#include <set>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/console/answers.h"
#include "host/console/commands.h"
#include "host/console/console.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/record/list.h"

namespace qdt::host {
namespace {

constexpr uint64_t kMostRecords = 1000;  // of a page
constexpr uint64_t kRecords = 100;

constexpr char kTablesSchema[] = R"({"type":"object","properties":{
"tables":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},"about":{"type":"string"},
"readable":{"type":"boolean","description":"whether the fields of its entries are known"},
"entries":{"$ref":"#/components/schemas/count"},"capacity":{"$ref":"#/components/schemas/count"},
"share":{"type":"number","minimum":0,"maximum":1,"description":"entries / capacity"},
"bytes":{"$ref":"#/components/schemas/count"}},
"required":["name","id","about","readable","entries","capacity","share","bytes"],"additionalProperties":false}},
"count":{"$ref":"#/components/schemas/count"}},
"required":["tables","count"],"additionalProperties":false})";

constexpr char kRecordsSchema[] = R"({"type":"object",
"description":"records are those of nqecli list TABLE --json; /api/v1/schema/{table} has their schema","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},
"records":{"type":"array","items":{"type":"object"}},
"count":{"$ref":"#/components/schemas/count"},"truncated":{"type":"boolean"},
"next":{"type":["string","null"],"description":"cursor of the next page, where there is one"}},
"required":["table","id","records","count","truncated","next"],"additionalProperties":false})";

constexpr char kRecordSchema[] = R"({"type":"object","properties":{
"table":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":108},"key":{"type":"object"},
"record":{"type":"object"},
"view":{"type":["string","null"],"description":"the view that shows the record as exact text"},
"text":{"type":["string","null"]},
"references":{"type":"array","items":{"type":"object","properties":{
"field":{"type":"string"},"table":{"type":"string"},"key":{"type":"object"}},
"required":["field","table","key"],"additionalProperties":false}},
"command":{"type":"string"}},
"required":["table","id","key","record","view","text","references","command"],"additionalProperties":false})";

WebParameter TableParameter() {
  return {.name = "table", .about = "the table's name in /api/v1/tables", .example = "arp"};
}

// The tables of the engine by id.
void WriteTables(TextOut *out, const RecordSource &source) {
  std::vector<TableUsage> tables = UsageOf(source);
  std::ranges::sort(tables, {}, [](const TableUsage &usage) { return usage.table->spec.id; });
  JsonWriter json(*out);
  json.SetMaxDecimalPlaces(6);
  json.StartObject();
  JsonKey(&json, "tables");
  json.StartArray();
  for (const TableUsage &usage : tables) {
    json.StartObject();
    JsonKey(&json, "name");
    JsonText(&json, usage.table->shortName);
    JsonKey(&json, "id");
    json.Uint(usage.table->spec.id);
    JsonKey(&json, "about");
    JsonText(&json, usage.table->about);
    JsonKey(&json, "readable");
    json.Bool(!usage.table->fields.empty());
    JsonKey(&json, "entries");
    json.Uint(usage.entries);
    JsonKey(&json, "capacity");
    json.Uint(usage.capacity);
    JsonKey(&json, "share");
    json.Double(usage.capacity == 0 ? 0 : static_cast<double>(usage.entries) / usage.capacity);
    JsonKey(&json, "bytes");
    json.Uint64(usage.bytes);
    json.EndObject();
  }
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(tables.size());
  json.EndObject();
}

std::vector<Condition> ConditionsOf(const TableLayout &table, const std::vector<std::string_view> &filters) {
  std::vector<Condition> conditions;
  for (const std::string_view filter : filters) conditions.emplace_back(table, filter);
  return conditions;
}

WebAnswer AnswerRecords(WebEngine &engine, const RouteCall &call) {
  const TableLayout &table = ReadableTable(call.Text("table"));
  ListRequest request;
  request.table = &table;
  request.where = ConditionsOf(table, call.All("filter"));
  request.sort = call.Text("sort");
  request.limit = call.Number("limit").value_or(kRecords);
  if (call.Has("cursor")) {
    request.behind = ListPosition::Parse(call.Text("cursor"));
    if (!request.behind)
      throw WebProblem(400, "the cursor " + Quoted(call.Text("cursor")) + " is none of this server's");
  }
  const std::string fields(call.Text("fields"));
  const RecordShape shape = fields.empty() ? RecordShape::Whole(table) : RecordShape::Select(table, fields);

  // Told before the arena is opened, as all that is wrong in the request.
  if (!request.sort.empty()) CheckSort(request);

  std::vector<std::string> words{"list", std::string(table.shortName)};
  for (const std::string_view filter : call.All("filter")) words.emplace_back(filter);
  if (!fields.empty()) words.insert(words.end(), {"--fields", fields});
  if (!request.sort.empty()) words.push_back("--sort=" + request.sort);
  words.insert(words.end(), {"--limit", std::to_string(request.limit), "--json"});

  const WebEngine::Loan source = engine.Borrow();
  ListResult result;
  AnswerName name{"table", table.shortName, table.spec.id};
  name.more = [&result](JsonWriter *json) {
    JsonKey(json, "next");
    result.truncated &&result.count != 0 ? JsonText(json, result.last.Text())
                                         : static_cast<void>(json->Null());
  };
  return DocumentAnswer(
      [&](TextOut *out) {
        const auto sink = MakeSink(RecordFormat::kJson, out, name, shape, table.fields, 0, nullptr);
        RunList(*source, request, sink.get(), &result);
      },
      CommandText(&engine, words));
}

// Where the values of a record lead: its references, and numbers that are keys of other tables' entries.
class ReferenceWriter {
 public:
  ReferenceWriter(JsonWriter *json, const RecordSource &source, const RecordBytes &record)
      : json_(*json), source_(source), record_(record) {}

  void Write(const TableLayout &table) {
    json_.StartArray();
    for (const Leaf &leaf : LeavesOf(table, IsLeading)) {
      const uint8_t *bytes = leaf.inKey ? record_.key : record_.record;
      if (!HasLeaf(record_, leaf) || !leaf.IsInUse(bytes)) continue;
      leaf.ref.kind == FieldKind::kReference ? Reference(leaf, bytes) : Number(leaf, bytes);
    }
    json_.EndArray();
  }

 private:
  static bool IsLeading(const Field &field) {
    return field.ref.kind == FieldKind::kReference || !field.leadsTo.empty();
  }

  void Reference(const Leaf &leaf, const uint8_t *bytes) {
    const host::Reference to = source_.Resolve(leaf.field->targets, leaf.ref.Get(bytes));
    if (to.kind == host::Reference::Kind::kEntry) One(leaf, *to.table, to.key);
  }

  void Number(const Leaf &leaf, const uint8_t *bytes) {
    const TableLayout *table = source_.layout().FindTable(leaf.field->leadsTo);
    if (table == nullptr || source_.View(*table) == nullptr) return;
    LookupKey key(*table);
    key.SetNumber(leaf.ref.Read(bytes));
    if (leaf.ref.Read(bytes) != 0 && key.Exists(source_)) One(leaf, *table, key.bytes());
  }

  void One(const Leaf &leaf, const TableLayout &table, const uint8_t *key) {
    json_.StartObject();
    JsonKey(&json_, "field");
    JsonText(&json_, leaf.path);
    JsonKey(&json_, "table");
    JsonText(&json_, table.shortName);
    JsonKey(&json_, "key");
    WriteJsonKey(&json_, table, key);
    json_.EndObject();
  }

  JsonWriter &json_;
  const RecordSource &source_;
  const RecordBytes &record_;
};

// Finds the entry of the key that is asked for, for which all conditions hold.
bool FindEntry(EntryReader *reader, const RecordSource &source, std::span<const Condition> where) {
  const std::optional<std::vector<uint8_t>> key = WholeKey(reader->table(), where);
  const bool many = reader->table().spec.lookup == Lookup::kMany;
  const auto holds = [&] {
    const RecordBytes record(source, *reader);
    return std::ranges::all_of(where, [&](const Condition &wanted) { return wanted.Holds(record); });
  };
  if (!key)
    throw WebProblem(400, "a record is asked for by its whole key: key=FIELD=VALUE for each field of it");
  if (!many) return reader->Find(key->data()) && holds();
  while (reader->NextOfKey(key->data())) {
    if (holds()) return true;
  }
  return false;
}

}  // namespace

const TableLayout &ReadableTable(std::string_view name) {
  const Layout &layout = Layout::BuiltIn();
  const TableLayout *table = layout.FindTable(name);
  if (table == nullptr) {
    NearName near(name);
    std::string_view nearest;
    for (const TableLayout &each : layout.tables()) {
      if (near.Offer(each.shortName)) nearest = each.shortName;
    }
    throw WebProblem(404, "unknown table " + Quoted(name) + DidYouMean(nearest, "/api/v1/tables lists them"));
  }
  if (table->fields.empty())
    throw WebProblem(
        404, "nothing is known of the fields of table " + std::string(name) + ", so that it cannot be read");
  return *table;
}

WebAnswer Console::AnswerRecord(const RouteCall &call) {
  WebEngine &engine = EngineOf(&engines_, call);
  const TableLayout &table = ReadableTable(call.Text("table"));
  const std::vector<Condition> where = ConditionsOf(table, call.All("key"));
  const WebEngine::Loan source = engine.Borrow();
  EntryReader reader(*source, table);
  if (!FindEntry(&reader, *source, where))
    throw WebProblem(404, "the table " + std::string(table.shortName) + " has no such entry now", "no-entry");
  const RecordBytes record(*source, reader);
  std::vector<std::string> words{"list", std::string(table.shortName)};
  for (const std::string_view key : call.All("key")) words.emplace_back(key);
  words.emplace_back("--json");
  const std::string command = CommandText(&engine, words);
  const std::vector<std::string> view = ViewWords(*source, record, table);
  return DocumentAnswer(
      [&](TextOut *out) {
        JsonWriter json(*out);
        json.StartObject();
        WritePlace(&json, &table, nullptr, record.key);
        JsonKey(&json, "record");
        WriteJson(&json, record, RecordShape::Whole(table));
        JsonKey(&json, "references");
        ReferenceWriter(&json, *source, record).Write(table);
        JsonKey(&json, "view");
        view.empty() ? static_cast<void>(json.Null()) : JsonText(&json, view.front());
        JsonKey(&json, "text");
        const ViewText text = view.empty() ? ViewText{} : TextOfView(options_, engine, view);
        text.failed || view.empty() ? static_cast<void>(json.Null()) : JsonLines(&json, text.text);
        JsonKey(&json, "command");
        JsonText(&json, command);
        json.EndObject();
      },
      command);
}

void Console::AddTableRoutes(Routes *routes) {
  const auto on = [this](auto answer) {
    return [this, answer](const RouteCall &call) { return answer(EngineOf(&engines_, call), call); };
  };
  routes->Add({.path = "/api/v1/tables",
               .about = "the engine's tables and how full they are",
               .parameters = {EngineParameter()},
               .document = kTablesSchema,
               .run = on([](WebEngine &engine, const RouteCall &) {
                 const WebEngine::Loan source = engine.Borrow();
                 return DocumentAnswer([&](TextOut *out) { WriteTables(out, *source); },
                                       CommandText(&engine, {"usage", "--json"}));
               })});
  routes->Add(
      {.path = "/api/v1/tables/{table}/fields",
       .about = "what the fields of a table are and mean",
       .parameters = {TableParameter(), EngineParameter()},
       .document = "fields",
       .run = [](const RouteCall &call) {
         const TableLayout &table = ReadableTable(call.Text("table"));
         return DocumentAnswer(
             [&](TextOut *out) { WriteFieldsDocument(out, &table, nullptr, FieldRowsOf(&table, nullptr)); },
             CommandText(nullptr, {"fields", std::string(table.shortName), "--json"}));
       }});
  routes->Add(
      {.path = "/api/v1/tables/{table}/records",
       .about = "a table's entries, page by page",
       .parameters =
           {TableParameter(),
            EngineParameter(),
            {.name = "filter",
             .about =
                 "a condition as nqecli list takes it, FIELD=VALUE with = != < <= > >=; all of them hold",
             .repeatable = true,
             .example = "next_hop=192.0.2.0/24"},
            {.name = "sort", .about = "a field's path; -PATH backwards", .example = "-next_hop"},
            {.name = "limit",
             .about = "records of the page, 100 unless told otherwise",
             .kind = WebParameter::Kind::kNumber,
             .least = 1,
             .most = kMostRecords},
            {.name = "cursor", .about = "`next` of the page before, asked with the same filters and order"},
            {.name = "fields", .about = "paths of fields, joined by commas", .example = "next_hop,dmac"}},
       .document = kRecordsSchema,
       .run = on(AnswerRecords)});
  routes->Add({.path = "/api/v1/tables/{table}/record",
               .about = "one entry: its record, the exact text of its view, and where its values lead",
               .parameters = {TableParameter(),
                              EngineParameter(),
                              {.name = "key",
                               .about = "FIELD=VALUE for each field of the key",
                               .required = true,
                               .repeatable = true}},
               .document = kRecordSchema,
               .run = [this](const RouteCall &call) { return AnswerRecord(call); }});
}

}  // namespace qdt::host
