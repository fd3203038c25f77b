#include "host/console/commands.h"

#include <algorithm>
#include <cstdio>

#include "host/base/host_error.h"
#include "host/console/answers.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/library/table_lines.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

class KeyWords {
 public:
  KeyWords(const RecordSource &source, const RecordBytes &record, const TableLayout &table)
      : source_(source), record_(record), table_(table) {}

  // False when the record does not say it.
  bool Word(std::string_view key, std::string *word) const {
    if (key.empty() || key == "all") {
      *word = key.empty() ? "0" : key;
      return true;
    }
    if (const size_t colon = key.find(':'); colon != key.npos) {
      std::string second;
      if (!Word(key.substr(0, colon), word) || !Word(key.substr(colon + 1), &second)) return false;
      *word += ':' + second;
      return true;
    }
    if (key.starts_with('#')) return Hexadecimal(key.substr(1), word);
    return key.starts_with('@') ? ControlPlaneNumber(key.substr(1), word) : Value(key, word);
  }

 private:
  bool Value(std::string_view path, std::string *word) const {
    const std::vector<Leaf> leaves = LeavesAt(table_, path);
    if (leaves.size() != 1 || !HasLeaf(record_, leaves.front())) return false;
    const Leaf &leaf = leaves.front();
    AppendValue(&source_, leaf.ref, leaf.inKey ? record_.key : record_.record, word);
    return !word->empty() && word->find('\\') == word->npos;
  }

  bool Hexadecimal(std::string_view path, std::string *word) const {
    const std::vector<Leaf> leaves = LeavesAt(table_, path);
    if (leaves.size() != 1) return false;
    char text[32];
    const Leaf &leaf = leaves.front();
    std::snprintf(text, sizeof(text), "0x%04llx",
                  static_cast<unsigned long long>(leaf.ref.Get(leaf.inKey ? record_.key : record_.record)));
    *word = text;
    return true;
  }

  bool ControlPlaneNumber(std::string_view path, std::string *word) const {
    const TableLayout *interfaces = source_.layout().FindTable("fwdif");
    const std::vector<Leaf> leaves = LeavesAt(table_, path);
    if (interfaces == nullptr || leaves.size() != 1) return false;
    LookupKey key(*interfaces);
    key.SetNumber(leaves.front().ref.Read(leaves.front().inKey ? record_.key : record_.record));
    EntryReader reader(source_, *interfaces);
    if (!reader.Find(key.bytes())) return false;
    const RecordBytes found(source_, reader);
    return KeyWords(source_, found, *interfaces).Value("ctrl_if_index", word);
  }

  const RecordSource &source_;
  const RecordBytes &record_;
  const TableLayout &table_;
};

constexpr char kViewsSchema[] = R"({"type":"object","properties":{
"views":{"type":"array","items":{"type":"object","properties":{
"name":{"type":"string"},"id":{"type":"integer","minimum":0,"maximum":88},"about":{"type":"string"},
"table":{"type":["string","null"]},
"keys":{"type":"array","items":{"type":"string"},"description":"ways to ask it, four words each"}},
"required":["name","id","about","table","keys"],"additionalProperties":false}},
"count":{"$ref":"#/components/schemas/count"}},
"required":["views","count"],"additionalProperties":false})";

constexpr char kTextSchema[] = R"({"type":"object","properties":{
"view":{"type":"string"},"keys":{"type":"array","items":{"type":"string"}},
"text":{"type":"string"},
"failed":{"type":"boolean","description":"the text is the message of a query that found nothing or was refused"},
"command":{"type":"string"}},
"required":["view","keys","text","failed","command"],"additionalProperties":false})";

constexpr char kSqlSchema[] = R"({"type":"object","properties":{
"rows":{"type":"array","items":{"type":"object"}},
"count":{"$ref":"#/components/schemas/count"},
"truncated":{"type":"boolean","description":"more rows would have followed"}},
"required":["rows","count","truncated"],"additionalProperties":false})";

void WriteViews(TextOut *out) {
  const Layout &layout = Layout::BuiltIn();
  JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "views");
  json.StartArray();
  for (const ViewLayout &view : layout.views()) {
    const TableLayout *table = layout.FindTable(view.table);
    const RegionLayout *region = layout.FindRegion(view.region);
    json.StartObject();
    JsonKey(&json, "name");
    JsonText(&json, view.name);
    JsonKey(&json, "id");
    json.Uint(view.id);
    JsonKey(&json, "about");
    JsonText(&json, table != nullptr ? table->about : region != nullptr ? region->about : view.about);
    JsonKey(&json, "table");
    table == nullptr ? static_cast<void>(json.Null()) : JsonText(&json, table->shortName);
    JsonKey(&json, "keys");
    json.StartArray();
    for (const TableLine &line : TableLines()) {
      if (line.id == view.id) JsonText(&json, line.keys);
    }
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
  JsonKey(&json, "count");
  json.Uint64(layout.views().size());
  json.EndObject();
}

std::vector<std::string> SplitKeys(std::string_view text) {
  std::vector<std::string> keys;
  while (!text.empty()) {
    const std::string_view key = text.substr(0, text.find_first_of(", "));
    if (!key.empty()) keys.emplace_back(key);
    text.remove_prefix(std::min(key.size() + 1, text.size()));
  }
  return keys;
}

std::string FirstLine(std::string text) {
  if (text.starts_with("nqecli: ")) text.erase(0, 8);
  if (text.starts_with("nqecli-sql: ")) text.erase(0, 12);
  text.resize(std::min(text.find('\n'), text.size()));
  return text;
}

// Lines of JSON objects that make an answer, up to `limit` of them.
class RowLines {
 public:
  explicit RowLines(uint64_t limit) : limit_(limit) {}

  // False when there are enough.
  bool Watch(std::string_view output) {
    for (size_t end; (end = output.find('\n', read_)) != output.npos; read_ = end + 1) {
      if (count_ == limit_) {
        truncated_ = true;
        return false;
      }
      ++count_;
      whole_ = end + 1;
    }
    return true;
  }

  void Write(TextOut *out, std::string_view output, bool cut) const {
    out->Append("{\"rows\":[");
    std::string_view rows = output.substr(0, whole_);
    for (bool first = true; !rows.empty(); first = false) {
      const size_t end = rows.find('\n');
      if (!first) out->Put(',');
      out->Append(rows.substr(0, end));
      rows.remove_prefix(end + 1);
    }
    out->Append("],\"count\":" + std::to_string(count_) + ",\"truncated\":");
    out->Append(truncated_ || cut ? "true" : "false");
    out->Put('}');
  }

 private:
  const uint64_t limit_;
  size_t read_ = 0;
  size_t whole_ = 0;  // of the output's beginning, which the answer has
  uint64_t count_ = 0;
  bool truncated_ = false;
};

WebAnswer AnswerSql(const ConsoleOptions &options, WebEngine &engine, const RouteCall &call) {
  engine.Borrow();  // what is wrong with the arena is said as such
  const std::string statement(call.Text("q"));
  RowLines rows(call.Number("limit").value_or(1000));
  const ChildAnswer answer = RunTool(options, engine, "nqecli-sql", {"--ndjson"}, statement, options.child,
                                     [&rows](std::string_view output) { return rows.Watch(output); });
  if (answer.late) {
    throw WebProblem(504,
                     "the statement takes longer than " + std::to_string(options.child.time.count()) +
                         " ms; ask for less, or ask nqecli sql",
                     "time-limit");
  }
  if (!answer.cut && answer.code != 0) {
    const std::string line = FirstLine(answer.errors);
    throw WebProblem(400, line.empty() ? "the statement takes more memory than it may" : line, "sql");
  }
  std::vector<std::string> words{"sql", "--json"};
  AddAskedWord(statement, &words);
  return DocumentAnswer([&](TextOut *out) { rows.Write(out, answer.output, answer.cut); },
                        CommandText(&engine, words));
}

}  // namespace

std::vector<std::string> ViewWords(const RecordSource &source, const RecordBytes &record,
                                   const TableLayout &table) {
  const auto views = source.layout().views();
  const auto view = std::ranges::find(views, table.shortName, &ViewLayout::name);
  if (view == views.end() || view->keys.empty()) return {};
  std::vector<std::string> words{std::string(view->name)};
  for (const std::string_view key : view->keys) {
    words.emplace_back();
    if (!KeyWords(source, record, table).Word(key, &words.back())) return {};
  }
  words.resize(1 + kViewKeys, "0");
  return words;
}

ChildAnswer RunTool(const ConsoleOptions &options, const WebEngine &engine, const char *program,
                    const std::vector<std::string> &words, std::string_view input, const ChildLimits &limits,
                    const WatchOutput &watch) {
  std::vector<std::string> all{options.programs + program};
  for (const std::string &user : options.trusted) all.insert(all.end(), {"--trust", user});
  for (std::string &word : engine.PlaceWords()) all.push_back(std::move(word));
  all.insert(all.end(), words.begin(), words.end());
  return RunChild(all, input, limits, watch);
}

ViewText TextOfView(const ConsoleOptions &options, const WebEngine &engine,
                    const std::vector<std::string> &words) {
  // What follows the two dashes is never an option.
  std::vector<std::string> all{"show", "--"};
  all.insert(all.end(), words.begin(), words.end());
  ChildLimits limits = options.child;
  limits.memory = 0;  // the engine's tables are mapped privately
  ChildAnswer answer = RunTool(options, engine, "nqecli", all, "", limits);
  if (answer.late)
    throw WebProblem(504, "the text takes longer than " + std::to_string(limits.time.count()) + " ms",
                     "time-limit");
  if (answer.cut) throw WebProblem(413, "the text is longer than this server gives away; ask nqecli for it");
  constexpr int kFailed = 1;
  if (answer.code == 0 || answer.code == kFailed) return {std::move(answer.output), answer.code == kFailed};
  throw WebProblem(400, FirstLine(answer.errors));
}

void JsonLines(JsonWriter *json, std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t size = Utf8CharacterAt(text);
    if (size == 0) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\x%02x", static_cast<uint8_t>(text.front()));
      shown += code;
    } else {
      shown += text.substr(0, size);
    }
    text.remove_prefix(std::max<size_t>(size, 1));
  }
  JsonText(json, shown);
}

void Console::AddCommandRoutes(Routes *routes) {
  routes->Add({.path = "/api/v1/views",
               .about = "the views, each an exact text, and how they are asked",
               .document = kViewsSchema,
               .run = [](const RouteCall &) {
                 return DocumentAnswer(WriteViews, CommandText(nullptr, {"tables", "--keys"}));
               }});
  routes->Add(
      {.path = "/api/v1/text",
       .about = "the exact text of a view",
       .parameters =
           {{.name = "view", .about = "its name in /api/v1/views", .required = true, .example = "arp"},
            {.name = "keys",
             .about = "its keys, with commas or blanks between; those left out are 0",
             .example = "192.0.2.11"},
            EngineParameter()},
       .document = kTextSchema,
       .run = [this](const RouteCall &call) {
         WebEngine &engine = EngineOf(&engines_, call);
         engine.Borrow();
         const std::string view(call.Text("view"));
         const auto isView = [&](const ViewLayout &each) { return each.name == view; };
         if (std::ranges::none_of(Layout::BuiltIn().views(), isView))
           throw WebProblem(404, "unknown view " + Quoted(view) + " (/api/v1/views lists them)");
         const std::vector<std::string> keys = SplitKeys(call.Text("keys"));
         std::vector<std::string> words{view};
         words.insert(words.end(), keys.begin(), keys.end());
         const ViewText text = TextOfView(options_, engine, words);
         const auto isOption = [](const std::string &key) { return key.starts_with('-'); };
         if (std::ranges::any_of(keys, isOption)) words.insert(words.begin(), "--");
         words.insert(words.begin(), "show");
         const std::string command = CommandText(&engine, words);
         return DocumentAnswer(
             [&](TextOut *out) {
               JsonWriter json(*out);
               json.StartObject();
               JsonKey(&json, "view");
               JsonText(&json, view);
               JsonKey(&json, "keys");
               json.StartArray();
               for (const std::string &key : keys) JsonText(&json, key);
               json.EndArray();
               JsonKey(&json, "text");
               JsonLines(&json, text.text);
               JsonKey(&json, "failed");
               json.Bool(text.failed);
               JsonKey(&json, "command");
               JsonText(&json, command);
               json.EndObject();
             },
             command);
       }});
  routes->Add({.path = "/api/v1/sql",
               .about = "an answer in SQL, reading only, within limits of time, memory and size",
               .parameters = {{.name = "q",
                               .about = "the statement",
                               .required = true,
                               .example = "SELECT next_hop, dmac FROM arp"},
                              {.name = "limit",
                               .about = "rows at most, 1000 unless told otherwise",
                               .kind = WebParameter::Kind::kNumber,
                               .least = 1,
                               .most = 10000},
                              EngineParameter()},
               .document = kSqlSchema,
               .run = [this](const RouteCall &call) {
                 return AnswerSql(options_, EngineOf(&engines_, call), call);
               }});
}

}  // namespace qdt::host
