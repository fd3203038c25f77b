#include "tools/nqecli/completion.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/base/host_error.h"
#include "host/library/entry_points.h"
#include "host/record/record_rows.h"
#include "host/wire/client.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/companion.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/table_names.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Layout;
using host::TableLayout;

// Nobody reads more, and a key is asked for by its beginning.
constexpr size_t kMostKeys = 1000;

// The words of the device's own families, behind the words before them.
struct DeviceWords {
  std::string_view before;
  std::string_view words;
};
constexpr DeviceWords kDeviceWords[] = {
    {"diag", "search clear"},
    {"diag search", "nqpTable"},
    {"diag clear", "cpcar"},
    {"diag clear cpcar", "status"},
    {"pmc", "1 2 3 4 5 6 7 8 9 10 11 12 stop"},
    {"perf", "task"},
    {"perf task", "set show topdown show_graph show_active_node clear disable"},
    {"perf task set", "time icache dcache task_path snapshot"},
    {"perf task topdown", "avg total"},
    {"pkt_trace", "set show counter clear enable disable"},
};

// Where the addresses, MAC addresses, interfaces and VLANs stand that people look for.
struct LiveKey {
  std::string_view table, field;
  bool isAddress;
};
constexpr LiveKey kLiveKeys[] = {
    {"arp", "next_hop", true},      {"nd", "next_hop", true},
    {"usf_macip", "ip", true},      {"usf_user", "mac", true},
    {"ssw_macinfo", "mac", true},   {"ctrlif_map_fwdif", "ctrl_if_index", false},
    {"vlaninfo", "vlan_id", false},
};

struct CompanionOption {
  std::string_view command, name, about;
};
constexpr CompanionOption kCompanionOptions[] = {
    {"sql", "--json", "as one JSON document"},
    {"sql", "--ndjson", "as JSON, a row a line"},
    {"sql", "--csv", "as CSV"},
    {"sql", "--column", "in columns"},
    {"sql", "--frozen", "from one moment of a running engine"},
    {"sql", "--schema", "the tables as SQL"},
    {"agent", "--dry-run", "end nothing, and tell what would end"},
    {"agent", "--yes", "without a filter, do not ask"},
};

std::vector<std::string_view> SplitAtBlanks(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    if (end != 0) words.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

std::string_view TakeLine(std::string_view *text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

// Collects what fits.
class Collector {
 public:
  Collector(const Place &place, std::string current) : place_(place), current_(std::move(current)) {}

  void Add(std::string word, std::string_view about) {
    if (!word.starts_with(current_) || found_.size() >= kMostKeys || !seen_.insert(word).second) return;
    found_.push_back({std::move(word), std::string(about)});
  }

  void Commands(bool (*wanted)(std::string_view name));
  void Options(uint32_t takes);
  void CompanionOptions(std::string_view command, std::span<const std::string> plain);
  void Tables(uint32_t uses);
  void Regions();
  void Files();
  // FIELD and the operator of a filter, or the values that the field has.
  void Filters(const TableLayout &table);
  // Names of fields behind the last comma.
  void FieldList(const TableLayout &table);
  // What the table's keys are now.
  void Keys(const TableLayout &table);
  void LiveKeys(bool addressesOnly);
  void Device(std::span<const std::string> before);
  void PacketTraceSettings();
  void EngineWords(std::span<const std::string> before);
  void AgentWords(std::span<const std::string> before);

  std::vector<Candidate> Take() { return std::move(found_); }
  const std::string &current() const { return current_; }

 private:
  void Values(const TableLayout &table, const host::Field &field, const std::string &head,
              std::string_view about);
  const host::RecordSource *Source();

  const Place &place_;
  std::string current_;
  std::unique_ptr<host::RecordSource> source_;
  std::vector<Candidate> found_;
  std::set<std::string> seen_;
};

const host::RecordSource *Collector::Source() {
  try {
    if (source_ == nullptr) source_ = OpenSource(place_);
  } catch (const HostError &) {  // there are no keys then
  }
  return source_.get();
}

void Collector::Commands(bool (*wanted)(std::string_view name)) {
  for (const Command &command : nqecli::Commands()) {
    if (wanted(command.name)) Add(command.name, command.help);
  }
  for (const host::EntryPoint &entry : host::EntryPoints()) Add(entry.name, entry.help);
}

void Collector::Options(uint32_t takes) {
  for (const std::string_view name : OptionNames(takes)) Add(std::string(name), OptionAbout(name));
  Add("--arena", "the engine's arena");
  Add("--snapshot", "answer from a saved arena");
  Add("--trust", "believe an engine of that user as well");
  Add("--raw", "control characters and newlines as they are");
  Add("--help", "what the command does and takes");
}

void Collector::Tables(uint32_t uses) {
  for (const NamedTable &table : NamedTables(uses)) Add(std::string(table.name), table.about);
}

void Collector::Regions() {
  for (const host::RegionLayout &region : Layout::BuiltIn().regions())
    Add(std::string(region.spec.name), region.about);
}

void Collector::Files() {
  const size_t slash = current_.rfind('/');
  const std::string directory = slash == current_.npos ? "" : current_.substr(0, slash + 1);
  std::error_code failure;
  std::vector<std::string> names;
  for (const auto &entry :
       std::filesystem::directory_iterator(directory.empty() ? "." : directory, failure)) {
    std::string name = directory + entry.path().filename().string();
    if (entry.is_directory(failure)) name += '/';
    names.push_back(std::move(name));
  }
  std::ranges::sort(names);
  for (std::string &name : names) Add(std::move(name), "");
}

void Collector::Values(const TableLayout &table, const host::Field &field, const std::string &head,
                       std::string_view about) {
  const host::RecordSource *source = Source();
  if (source == nullptr || field.count != 0 || !field.fields.empty()) return;
  try {
    host::EntryReader reader(*source, table);
    while (found_.size() < kMostKeys && reader.Next()) {
      std::string value = head;
      AppendValue(source, field.ref, reader.entry().key, &value);
      Add(std::move(value), about);
    }
  } catch (const HostError &) {  // an engine without the table has no keys in it
  }
}

void Collector::Filters(const TableLayout &table) {
  if (const size_t equals = current_.find('='); equals != current_.npos) {
    if (const host::Field *field = table.key.Find(current_.substr(0, equals)))
      Values(table, *field, current_.substr(0, equals + 1), table.shortName);
    return;
  }
  for (const host::FieldSet *fields : {&table.key, &table.fields}) {
    for (const host::Field &field : fields->all()) {
      if (!field.constant) Add(std::string(field.name) + '=', field.about);
    }
  }
}

void Collector::FieldList(const TableLayout &table) {
  const size_t comma = current_.rfind(',');
  const std::string head = comma == current_.npos ? "" : current_.substr(0, comma + 1);
  for (const host::FieldSet *fields : {&table.key, &table.fields}) {
    for (const host::Field &field : fields->all()) Add(head + std::string(field.name), field.about);
  }
}

void Collector::Keys(const TableLayout &table) {
  for (const host::Field &field : table.key.all()) {
    if (!field.constant) Values(table, field, "", field.about);
  }
}

void Collector::LiveKeys(bool addressesOnly) {
  for (const LiveKey &live : kLiveKeys) {
    const TableLayout *table = Layout::BuiltIn().FindTable(live.table);
    const host::Field *field = table == nullptr ? nullptr : table->key.Find(live.field);
    if (field != nullptr && (live.isAddress || !addressesOnly)) Values(*table, *field, "", field->about);
  }
}

void Collector::Device(std::span<const std::string> before) {
  std::string words;
  for (const std::string &word : before) words += (words.empty() ? "" : " ") + word;
  for (const DeviceWords &row : kDeviceWords) {
    if (row.before != words) continue;
    for (const std::string_view word : SplitAtBlanks(row.words)) Add(std::string(word), "");
  }
  if (words == "pkt_trace set") PacketTraceSettings();
}

// The family itself lists them, on a line of its own each.
void Collector::PacketTraceSettings() {
  try {
    Attach(place_);
    char word[] = "pkt_trace";
    char *const words[] = {word, nullptr};
    std::string_view usage = host::RunEntryPoint(*host::FindEntryPoint(word), std::span(words, 1)).text;
    constexpr std::string_view kSet = " pkt_trace set ";
    while (!usage.empty()) {
      const std::string_view line = TakeLine(&usage);
      if (const size_t at = line.find(kSet); at != line.npos) {
        const std::string_view rest = line.substr(at + kSet.size());
        const size_t blank = std::min(rest.find(' '), rest.size());
        Add(std::string(rest.substr(0, blank)), rest.substr(std::min(blank + 1, rest.size())));
      }
    }
  } catch (const HostError &) {  // without an engine it lists nothing
  }
}

// The first words of the lines of a text that is laid out as a list, and what stands behind each: in the next
// line where a word is as long as its column.
template <typename Use>
void ForEachRow(std::string_view text, std::string_view indent, Use use) {
  while (!text.empty()) {
    std::string_view line = TakeLine(&text);
    if (!line.starts_with(indent) || line.size() == indent.size() || line[indent.size()] == ' ') continue;
    line.remove_prefix(indent.size());
    const size_t blank = std::min(line.find(' '), line.size());
    std::string_view about = line.substr(blank);
    if (about.empty() && !indent.empty()) about = TakeLine(&text);
    about.remove_prefix(std::min(about.find_first_not_of(' '), about.size()));
    use(line.substr(0, blank), about);
  }
}

void Collector::EngineWords(std::span<const std::string> before) {
  std::string line;
  if (before.empty()) {
    line = "help";
  } else if (before.front() == "region" && before.size() < 3) {
    for (const std::string &word : before) line += (line.empty() ? "" : " ") + word;
  } else {
    return;
  }
  try {
    const host::EngineReply reply = host::EngineClient(Attach(place_).socketPath()).Run(line);
    if (reply.status != host::kReplyOk) return;
    ForEachRow(reply.text, before.empty() ? "  " : "",
               [&](auto word, auto about) { Add(std::string(word), about); });
  } catch (const HostError &) {  // without an engine nobody can tell
  }
}

void Collector::AgentWords(std::span<const std::string> before) {
  std::vector<std::string> words{"--help"};
  if (!before.empty()) words.push_back(before.front());
  const std::string help = OutputOfCompanion("nqecli-agent", words);
  if (before.empty())
    return ForEachRow(help.substr(0, help.find("\nnqecli agent HANDLER --help")), "  ",
                      [&](auto word, auto about) { Add(std::string(word), about); });
  const size_t from = help.find("\nparameters:\n"), to = help.find("\noptions:\n");
  if (from == help.npos || to == help.npos) return;
  ForEachRow(std::string_view(help).substr(from, to - from), "  ", [&](auto word, auto about) {
    const std::string name = std::string(word) + '=';
    Add(name, about);
    if (!current_.starts_with(name)) return;
    std::string values(about);
    std::ranges::replace(values, '|', ' ');
    for (const std::string_view value : SplitAtBlanks(values)) {
      if (value != "TEXT" && value.find("..") == value.npos) Add(name + std::string(value), "");
    }
  });
}

// Companions read options of their own.
void Collector::CompanionOptions(std::string_view command, std::span<const std::string> plain) {
  const bool isReset = plain.empty() || plain.front().starts_with("reset-");
  for (const CompanionOption &option : kCompanionOptions) {
    if (option.command == command && (isReset || command != "agent"))
      Add(std::string(option.name), option.about);
  }
}

// What the words before are to the command; options and their values are none.
std::vector<std::string> PlainWords(std::span<const std::string> words, uint32_t takes) {
  std::vector<std::string> plain;
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i].size() > 1 && words[i].front() == '-' && (takes & kOptionsOfOthers) == 0) {
      if (OptionHasValue(words[i])) ++i;
    } else {
      plain.push_back(words[i]);
    }
  }
  return plain;
}

// What a command's word is by its place.
void CollectWord(WordKind kind, std::span<const std::string> plain, Collector *found) {
  const Layout &layout = Layout::BuiltIn();
  const TableLayout *table = plain.empty() ? nullptr : layout.FindTable(plain.front());
  const bool first = plain.empty();
  switch (kind) {
    case WordKind::kShowTable:
      if (first) return found->Tables(kUseShow);
      return table != nullptr ? found->Keys(*table) : void();
    case WordKind::kListTable:
      if (first) return found->Tables(kUseList);
      return table != nullptr ? found->Filters(*table) : void();
    case WordKind::kFieldsOf:
      return first ? found->Tables(kUseList | kUseRegion) : void();
    case WordKind::kTableWord:
      return found->Tables(kUseShow | kUseList);
    case WordKind::kRegion:
      return first ? found->Regions() : void();
    case WordKind::kFile:
      return first ? found->Files() : void();
    case WordKind::kSides:
      if (plain.size() < 2) found->Add("live", "the running engine");
      return plain.size() < 2 ? found->Files() : found->Tables(kUseList | kUseRegion);
    case WordKind::kValue:
      return first ? found->LiveKeys(false) : void();
    case WordKind::kAddress:
      return first ? found->LiveKeys(true) : found->Add("vpn=", "VPN of neighbours and routes");
    case WordKind::kEngine:
      return found->EngineWords(plain);
    case WordKind::kAgent:
      return found->AgentWords(plain);
    default:
      return;
  }
}

void CollectLine(std::span<const std::string> before, Collector *found);

// Behind the options of the command's own stands another command's line.
void CollectRepeated(std::span<const std::string> before, Collector *found) {
  while (!before.empty() && before.front().starts_with('-')) {
    const bool hasValue = OptionHasValue(before.front());
    if (hasValue && before.size() == 1) return;
    before = before.subspan(hasValue ? 2 : 1);
  }
  if (!before.empty()) return CanBeWatched(before.front()) ? CollectLine(before, found) : void();
  if (found->current().starts_with('-')) return found->Options(kWatchOptions);
  found->Commands(CanBeWatched);
}

void CollectFor(const Command &command, std::span<const std::string> before, Collector *found) {
  if (command.first == WordKind::kCommand) return CollectRepeated(before, found);
  const std::vector<std::string> plain = PlainWords(before, command.options);
  const std::string_view last = before.empty() ? std::string_view() : before.back();
  if ((last == "--fields" || last == "--sort") && !plain.empty()) {
    const TableLayout *table = Layout::BuiltIn().FindTable(plain.front());
    return table != nullptr ? found->FieldList(*table) : void();
  }
  if (last == "--info") return found->Files();
  if (OptionHasValue(last)) return;
  if (found->current().starts_with('-')) {
    found->CompanionOptions(command.name, plain);
    return found->Options(command.options);
  }
  if (last == "--schema") return found->Tables(kUseList);
  CollectWord(command.first, plain, found);
}

// The words of a line that begins with a command.
void CollectLine(std::span<const std::string> before, Collector *found) {
  if (const Command *command = FindCommand(before.front())) {
    CollectFor(*command, before.subspan(1), found);
  } else {
    found->Device(before);
  }
}

// Takes the options that say where out of the words; tells whether the word behind them is one's value.
bool TakePlaceOptions(std::vector<std::string> *words, Place *place) {
  for (size_t i = 0; i < words->size();) {
    const std::string &word = (*words)[i];
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (name != "--arena" && name != "--snapshot") {
      ++i;
      continue;
    }
    if (equals == word.npos && i + 1 == words->size()) return true;
    const std::string value = equals == word.npos ? (*words)[i + 1] : word.substr(equals + 1);
    *place = {};
    (name == "--arena" ? place->arena : place->snapshot) = value;
    words->erase(words->begin() + static_cast<ptrdiff_t>(i),
                 words->begin() + static_cast<ptrdiff_t>(i) + (equals == word.npos ? 2 : 1));
  }
  return false;
}

}  // namespace

std::vector<Candidate> Complete(const Place &given, std::span<const std::string> words,
                                const std::string &current) {
  Place place = given;
  std::vector<std::string> before(words.begin(), words.end());
  const bool isFile = TakePlaceOptions(&before, &place);
  Collector found(place, current);
  if (isFile) {
    found.Files();
  } else if (before.empty()) {
    if (current.starts_with('-')) found.Options(0);
    found.Commands([](std::string_view) { return true; });
  } else {
    CollectLine(before, &found);
  }
  return found.Take();
}

std::string CompletionLines(const Place &place, std::span<char *const> words) {
  if (words.empty()) return "";
  const std::vector<std::string> before(words.begin(), words.end() - 1);
  std::string lines;
  for (const Candidate &candidate : Complete(place, before, words.back()))
    lines += candidate.word + '\t' + candidate.about + '\n';
  return lines;
}

}  // namespace qdt::nqecli
