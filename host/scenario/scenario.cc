#include "host/scenario/scenario.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <filesystem>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/text_file.h"
#include "host/layout/yaml_tree.h"
#include "host/scenario/entry_template.h"
#include "host/scenario/key_index.h"
#include "host/scenario/mistakes.h"
#include "host/scenario/nat_policy_section.h"
#include "host/tbm/route_key.h"

namespace qdt::host {

class ScenarioReader {
 public:
  explicit ScenarioReader(const Layout &layout, Mistakes *mistakes = nullptr)
      : layout_(layout), mistakes_(mistakes) {
    places_.fill(kNowhere);
  }

  Scenario Read(const std::string &file, std::string_view text) {
    files_.insert(Identity(file));
    ReadFile(file, text);
    ResolveReferences();
    for (size_t i = 0; i < scenario_.tables_.size(); ++i) CheckOwners(scenario_.tables_[i], index_[i]);
    return std::move(scenario_);
  }

  // Numbers that should lead to an entry and do not, of a scenario that Read has given.
  std::vector<std::string> Warnings(const Scenario &scenario, size_t most) const {
    std::vector<std::string> warnings;
    for (size_t i = 0; i < scenario.tables_.size(); ++i) {
      for (const Field &field : scenario.tables_[i].layout->fields.all())
        WarnOfLeads(scenario, i, field, most, &warnings);
    }
    return warnings;
  }

 private:
  static constexpr uint32_t kNowhere = ~0u;

  static constexpr std::string_view kInclude = "include";
  static constexpr int kMaxIncludeDepth = 16;
  static constexpr std::string_view kRegions = "regions";

  // What is known of a table's entries besides their bytes.
  struct Index {
    const YamlTree *tree;  // the file that they stand in; null when there are none
    KeyIndex byKey;        // not for tables with several entries a key
    // The first entry of each list element and the element's line.
    std::vector<std::pair<uint32_t, uint32_t>> lines;

    uint32_t LineOf(uint32_t entry) const {
      const auto behind = std::ranges::upper_bound(lines, entry, {}, &std::pair<uint32_t, uint32_t>::first);
      return std::prev(behind)->second;
    }
  };

  struct Pending {
    uint32_t place;  // in scenario_.tables_
    uint32_t entry;
    EntryTemplate::Reference reference;
  };

  [[noreturn]] void Fail(const YamlNode &node, const std::string &where, const std::string &what) const {
    tree_->Fail(node.line, where + ": " + what);
  }

  // Each file is read once, so that neither circles nor files that include many others get out of hand.
  void ReadFile(const std::string &file, std::string_view text) {
    YamlTree::TakeMistake mistakes;
    if (mistakes_ != nullptr) mistakes = [this](const std::string &line) { mistakes_->Note(line); };
    const YamlTree *const outer = std::exchange(tree_, &trees_.emplace_back(file, text, mistakes));
    const YamlNode &root = tree_->root();
    if (root.isFaulty) somethingIsUnread_ = true;
    for (size_t i = 0; i < root.items.size(); i += 2) {
      const bool good = Attempt(mistakes_, [&] { ReadSection(*root.items[i], *root.items[i + 1]); });
      // Nobody knows what the section would have had.
      if (!good) somethingIsUnread_ = true;
    }
    tree_ = outer;
  }

  // What tells a file from another one, whatever way leads to it.
  static std::string Identity(const std::string &file) {
    struct stat info {};
    // A file that cannot be found is known by the name that was given.
    if (stat(file.c_str(), &info) != 0) return file;
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
  }

  void ReadSection(const YamlNode &name, const YamlNode &node) {
    if (name.text == kInclude) return ReadIncludes(name, node);
    const auto [at, isNew] = sections_.emplace(name.text, tree_->file() + ":" + std::to_string(name.line));
    if (!isNew) {
      Fail(name, name.text.substr(0, 64), "stands at " + at->second + " already (put everything there)");
    }
    if (name.text == kRegions) {
      ReadRegions(name, node);
    } else if (name.text == kNatPolicySection) {
      scenario_.natPolicy_ = ReadNatPolicy(*tree_, name, node, mistakes_);
    } else if (name.text == kStatisticsSection) {
      scenario_.statistics_ = ReadStatistics(*tree_, name, node, mistakes_);
    } else {
      ReadTable(name, node);
    }
  }

  void ReadIncludes(const YamlNode &name, const YamlNode &node) {
    if (!node.IsList()) Fail(name, name.text, "not a list of files (write [FILE, ...])");
    for (const YamlNode *entry : node.items) {
      const YamlTree *const tree = tree_;
      const int depth = depth_;
      if (Attempt(mistakes_, [&] { ReadInclude(name, *entry); })) continue;
      tree_ = tree;
      depth_ = depth;
      somethingIsUnread_ = true;
    }
  }

  void ReadInclude(const YamlNode &name, const YamlNode &entry) {
    if (!entry.IsScalar() || entry.text.empty()) Fail(entry, name.text, "not the name of a file");
    const std::string file = (std::filesystem::path(tree_->file()).parent_path() / entry.text).string();
    if (!files_.insert(Identity(file)).second)
      Fail(entry, name.text, Quoted(entry.text) + " is part of the scenario already (name each file once)");
    if (++depth_ > kMaxIncludeDepth) {
      Fail(entry, name.text,
           "files include each other too deeply (" + std::to_string(kMaxIncludeDepth) +
               " levels are the limit)");
    }
    ReadFile(file, TextOf(file, entry));
    --depth_;
  }

  std::string TextOf(const std::string &file, const YamlNode &entry) const {
    try {
      return ReadYamlFile(file, Scenario::kMaxFileSize);
    } catch (const HostError &error) {
      Fail(entry, std::string(kInclude), error.what());
    }
  }

  void ReadTable(const YamlNode &name, const YamlNode &node) {
    const TableLayout *table = layout_.FindTable(name.text);
    if (table == nullptr) {
      NearName near(name.text);
      std::string_view nearest;
      for (const std::string_view section : {kInclude, kRegions, kNatPolicySection, kStatisticsSection}) {
        if (near.Offer(section)) nearest = section;
      }
      for (const TableLayout &other : layout_.tables()) {
        if (near.Offer(other.shortName)) nearest = other.shortName;
      }
      Fail(name, name.text.substr(0, 64), "no such table" + DidYouMean(nearest, "nqecli tables lists them"));
    }
    if (table->fields.empty()) Fail(name, name.text, "this table has no fields yet (leave it out)");
    if (!node.IsList() && !node.IsNull())
      Fail(name, name.text, "not a list of entries (write - {FIELD: VALUE, ...})");
    places_[table->spec.id] = static_cast<uint32_t>(scenario_.tables_.size());
    scenario_.tables_.emplace_back().layout = table;
    index_.push_back({tree_, KeyIndex(table->spec.keySize), {}});
    for (const YamlNode *entry : node.items) {
      const size_t planned = scenario_.tables_.back().keys.size();
      isWhole_ = false;
      Attempt(mistakes_, [&] { ReadEntry(*table, *entry); });
      if (!isWhole_ && !full_) DropEntry(*table, planned);
    }
    full_ = false;
  }

  // Takes back what a wrong entry has left of itself: neither its key nor those that lead to it are known.
  void DropEntry(const TableLayout &table, size_t keys) {
    PlannedTable &planned = scenario_.tables_.back();
    incomplete_[table.spec.id] = true;
    planned.keys.resize(keys);
    planned.records.resize(keys / table.spec.keySize * table.spec.StoredSize());
    const uint32_t left = planned.count();
    std::vector<std::pair<uint32_t, uint32_t>> &lines = index_.back().lines;
    while (!lines.empty() && lines.back().first >= left) lines.pop_back();
    std::erase_if(planned.references,
                  [left](const PlannedReference &reference) { return reference.entry >= left; });
  }

  void ReadEntry(const TableLayout &table, const YamlNode &node) {
    if (!node.IsMap())
      Fail(node, std::string(table.shortName), "an entry that is not a mapping (write {FIELD: VALUE, ...})");
    const size_t mistakes = CountOf(mistakes_);
    uint32_t count = 1;
    Attempt(mistakes_, [&] { count = Repetitions(table, node); });
    PlannedTable &planned = scenario_.tables_.back();
    const uint32_t first = planned.count();
    if (full_) return;  // that has been said
    if (count > table.spec.capacity - first) {
      full_ = mistakes_ != nullptr;
      incomplete_[table.spec.id] = true;
      Fail(node, std::string(table.shortName),
           "the table is full (it holds " + std::to_string(table.spec.capacity) + " entries)");
    }
    EntryTemplate entry(*tree_, layout_, table.shortName, node.Get("repeat") != nullptr, mistakes_);
    entry.Bind(table.fields, &table.key, node);
    if (CountOf(mistakes_) != mistakes || node.isFaulty) return;
    planned.keys.resize(planned.keys.size() + size_t{count} * table.spec.keySize);
    planned.records.resize(planned.records.size() + size_t{count} * table.spec.StoredSize());
    entry.Prepare(count, table.spec.keySize, table.spec.StoredSize());
    index_.back().lines.emplace_back(first, node.line);
    for (uint32_t i = 0; i < count; ++i) {
      uint8_t *key = planned.keys.data() + size_t{first + i} * table.spec.keySize;
      entry.Write(i, key, planned.records.data() + size_t{first + i} * table.spec.StoredSize());
      CheckRoute(table, node, key);
    }
    isWhole_ = table.spec.lookup == Lookup::kMany;
    if (!isWhole_) CheckKeysAreNew(table, node, entry, first, count);
    for (uint32_t i = 0; i < count && entry.LeadsElsewhere(); ++i) {
      for (EntryTemplate::Reference &reference : entry.References(i))
        pending_.push_back({places_[table.spec.id], first + i, std::move(reference)});
      for (const EntryTemplate::Attached &part : entry.attached()) {
        planned.references.push_back({first + i, part.pointer, table.spec.id, first + i, false, part.at});
      }
    }
  }

  uint32_t Repetitions(const TableLayout &table, const YamlNode &entry) const {
    const YamlNode *repeat = entry.Get("repeat");
    if (repeat == nullptr) return 1;
    const std::optional<uint32_t> count = ParseCount(repeat->text);
    if (!count || *count == 0) {
      Fail(*repeat, std::string(table.shortName) + ".repeat",
           Quoted(repeat->text) + " is not a number of entries (1 or more)");
    }
    return *count;
  }

  // The table manager refuses routes that could never match; here they still have a line.
  void CheckRoute(const TableLayout &table, const YamlNode &node, const uint8_t *key) const {
    if (IsGoodKey(table.spec.lookup, key)) return;
    const uint32_t size = PrefixAddressSize(table.spec.lookup);
    uint16_t length;
    std::memcpy(&length, key, sizeof length);
    if (length > size * 8) {
      Fail(node, std::string(table.shortName),
           "a prefix of " + std::to_string(length) + " bits (the address has " + std::to_string(size * 8) +
               ")");
    }
    uint8_t address[16];
    std::memcpy(address, key + kPrefixAddressOffset, size);
    const std::string given = RouteText(address, size);
    KeepPrefix(address, size, length);
    Fail(node, std::string(table.shortName),
         given + " has bits behind its prefix of " + std::to_string(length) + " bits (write " +
             RouteText(address, size) + ")");
  }

  static std::string RouteText(const uint8_t *address, uint32_t size) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(size == 4 ? AF_INET : AF_INET6, address, text, sizeof text);
    return text;
  }

  void CheckKeysAreNew(const TableLayout &table, const YamlNode &node, const EntryTemplate &entry,
                       uint32_t first, uint32_t count) {
    Index &index = index_.back();
    const uint8_t *keys = scenario_.tables_.back().keys.data();
    // Not to be added and taken back.
    const auto why = count > 1 ? entry.WhyAllKeysAreOne(count) : std::nullopt;
    if (why) Fail(node, std::string(table.shortName), *why);
    isWhole_ = true;
    const auto other = index.byKey.Add(keys, first, count);
    if (other) FailForKey(table, node, index.LineOf(*other));
  }

  [[noreturn]] void FailForKey(const TableLayout &table, const YamlNode &node, uint32_t otherLine) const {
    std::string names;
    for (const Field &field : table.key.all()) names += (names.empty() ? "" : ", ") + std::string(field.name);
    Fail(node, std::string(table.shortName),
         "the entry of line " + std::to_string(otherLine) + " has the same key (change " + names + ")");
  }

  void ReadRegions(const YamlNode &name, const YamlNode &node) {
    if (node.IsNull()) return;
    if (!node.IsMap()) Fail(name, "regions", "not a mapping (write REGION: {FIELD: VALUE, ...})");
    for (size_t i = 0; i < node.items.size(); i += 2)
      Attempt(mistakes_, [&] { ReadRegion(*node.items[i], *node.items[i + 1]); });
  }

  void ReadRegion(const YamlNode &name, const YamlNode &node) {
    const RegionLayout *region = layout_.FindRegion(name.text);
    if (region == nullptr) {
      Fail(name, name.text.substr(0, 64),
           "no such region" + DidYouMean(layout_.NearestRegion(name.text), "remove it"));
    }
    if (region->fields.empty()) Fail(name, name.text, "this region has no fields yet (leave it out)");
    if (!node.IsMap())
      Fail(node.IsNull() ? name : node, name.text, "not a mapping (write {FIELD: VALUE, ...})");
    EntryTemplate contents(*tree_, layout_, name.text, false, mistakes_);
    const size_t mistakes = CountOf(mistakes_);
    contents.Bind(region->fields, nullptr, node);
    if (CountOf(mistakes_) != mistakes || node.isFaulty) return;
    if (contents.LeadsElsewhere()) Fail(node, name.text, "references are for tables (write an address)");
    PlannedRegion &planned = scenario_.regions_.emplace_back();
    planned.layout = region;
    planned.bytes.resize(region->spec.size);
    contents.Prepare(1, 0, region->spec.size);
    contents.Write(0, nullptr, planned.bytes.data());
  }

  void ResolveReferences() {
    for (const Pending &pending : pending_) {
      if (pending.reference.key.empty()) {
        ResolveToNothing(pending);
      } else {
        Attempt(mistakes_, [&] { Resolve(pending); });
      }
    }
    for (PlannedTable &planned : scenario_.tables_) {
      std::stable_sort(planned.references.begin(), planned.references.end(),
                       [](const auto &a, const auto &b) { return a.entry < b.entry; });
    }
  }

  // Whether what is missing in a table may be what a mistake has kept out of it.
  bool IsIncomplete(const TableLayout &table) const {
    return somethingIsUnread_ || incomplete_[table.spec.id];
  }

  void Resolve(const Pending &pending) {
    const EntryTemplate::Reference &reference = pending.reference;
    PlannedTable &planned = scenario_.tables_[pending.place];
    const uint32_t place = places_[reference.target->spec.id];
    const std::optional<uint32_t> target =
        FindEntry(place, reinterpret_cast<const uint8_t *>(reference.key.data()));
    if (!target && IsIncomplete(*reference.target)) return;
    if (!target) {
      index_[pending.place].tree->Fail(reference.node->line,
                                       std::string(planned.layout->shortName) + "." + reference.path + ": " +
                                           std::string(reference.target->shortName) + " has no entry " +
                                           reference.wanted + " (add it, or write 0)");
    }
    planned.references.push_back(
        {pending.entry, reference.field, reference.target->spec.id, *target, reference.stale, 0});
  }

  // To a place where no entry is. A table that has none is part of the scenario then, so that it can be
  // found.
  void ResolveToNothing(const Pending &pending) {
    const TableLayout &target = *pending.reference.target;
    if (places_[target.spec.id] == kNowhere) {
      places_[target.spec.id] = static_cast<uint32_t>(scenario_.tables_.size());
      scenario_.tables_.emplace_back().layout = &target;
      index_.push_back({nullptr, KeyIndex(target.spec.keySize), {}});
    }
    scenario_.tables_[pending.place].references.push_back(
        {pending.entry, pending.reference.field, target.spec.id, PlannedReference::kNoTarget, true, 0});
  }

  // The entry of the table that the scenario has at `place`, if it has the table and the entry.
  std::optional<uint32_t> FindEntry(uint32_t place, const uint8_t *key) const {
    if (place == kNowhere) return std::nullopt;
    return index_[place].byKey.Find(scenario_.tables_[place].keys.data(), key);
  }

  // Entries that are part of others need those.
  void CheckOwners(const PlannedTable &planned, const Index &index) const {
    const TableLayout &table = *planned.layout;
    if (table.partOf.empty()) return;
    const TableLayout &owner = *layout_.FindTable(table.partOf);
    const uint32_t place = places_[owner.spec.id];
    if (IsIncomplete(owner)) return;
    uint32_t told = 0;  // a line is told of once
    for (uint32_t i = 0; i < planned.count(); ++i) {
      const uint8_t *key = planned.key(i).data();
      if (FindEntry(place, key) || index.LineOf(i) == told) continue;
      told = index.LineOf(i);
      Attempt(mistakes_, [&] { FailForOwner(table, owner, index, i, key); });
    }
  }

  [[noreturn]] void FailForOwner(const TableLayout &table, const TableLayout &owner, const Index &index,
                                 uint32_t i, const uint8_t *key) const {
    std::string shown;
    for (const Field &field : owner.key.all()) {
      shown += (shown.empty() ? "{" : ", ") + std::string(field.name) + ": " +
               ValueText(field.ref, field.ref.Read(key));
    }
    index.tree->Fail(index.LineOf(i), std::string(table.shortName) + ": " + std::string(owner.shortName) +
                                          " has no entry " + shown + "} (add it)");
  }

  // Warns of a field's numbers, once a line, that should be keys of another table.
  void WarnOfLeads(const Scenario &scenario, size_t place, const Field &field, size_t most,
                   std::vector<std::string> *warnings) const {
    if (!field.mustLead || field.count != 0 || FormOf(field.ref.kind) != ValueForm::kNumber) return;
    const TableLayout *target = layout_.FindTable(field.leadsTo);
    if (target == nullptr || target->spec.lookup == Lookup::kMany) return;
    std::string key(target->spec.keySize, 0);
    const Field *open = nullptr;
    for (const Field &part : target->key.all()) {
      if (part.constant) {
        part.ref.Write(key.data(), *part.constant);
      } else if (std::exchange(open, &part) != nullptr) {
        return;  // more than the number is needed
      }
    }
    const PlannedTable &planned = scenario.tables_[place];
    uint32_t told = 0;
    for (uint32_t i = 0; open != nullptr && i < planned.count() && warnings->size() < most; ++i) {
      const WideValue value = field.ref.Read(planned.record(i).data());
      if (value == 0 || value == field.ref.Greatest() || index_[place].LineOf(i) == told) continue;
      open->ref.Write(key.data(), value);
      const uint32_t at = places_[target->spec.id];
      const bool there =
          at != kNowhere && index_[at].byKey.Find(scenario.tables_[at].keys.data(),
                                                  reinterpret_cast<const uint8_t *>(key.data()));
      if (there) continue;
      told = index_[place].LineOf(i);
      warnings->push_back(index_[place].tree->file() + ":" + std::to_string(told) + ": warning: " +
                          std::string(planned.layout->shortName) + "." + std::string(field.name) + ": " +
                          std::string(target->shortName) + " has no entry {" + std::string(open->name) +
                          ": " + ValueText(open->ref, value) + "}");
    }
  }

  const Layout &layout_;
  Mistakes *const mistakes_;                    // null: the first one ends the reading
  bool somethingIsUnread_ = false;              // whole sections or files are missing for their mistakes
  bool isWhole_ = false;                        // the entry read last has all of its keys in the table
  bool full_ = false;                           // the table being read has more entries than it holds
  std::array<bool, kTableCount> incomplete_{};  // tables that lack entries for their mistakes
  std::deque<YamlTree> trees_;                  // the files, which errors may still have to name
  const YamlTree *tree_ = nullptr;              // the file being read
  std::unordered_set<std::string> files_;       // by their identities
  int depth_ = 0;                               // of the file that is being read
  std::unordered_map<std::string, std::string> sections_;  // FILE:LINE of each
  Scenario scenario_;
  std::vector<Index> index_;                  // beside scenario_.tables_
  std::array<uint32_t, kTableCount> places_;  // of each table in scenario_.tables_
  std::vector<Pending> pending_;
};

Scenario Scenario::Load(const std::string &path, const Layout &layout) {
  return FromText(path, ReadYamlFile(path, kMaxFileSize), layout);
}

Scenario Scenario::FromText(const std::string &file, std::string_view text, const Layout &layout) {
  return ScenarioReader(layout).Read(file, text);
}

Scenario Scenario::Check(const std::string &path, const Layout &layout, Mistakes *mistakes, size_t most,
                         std::vector<std::string> *warnings) {
  Scenario scenario;
  const size_t before = mistakes->count();
  Attempt(mistakes, [&] {
    ScenarioReader reader(layout, mistakes);
    scenario = reader.Read(path, ReadYamlFile(path, kMaxFileSize));
    if (mistakes->count() == before) *warnings = reader.Warnings(scenario, most);
  });
  return scenario;
}

const PlannedTable *Scenario::FindTable(uint32_t id) const {
  for (const PlannedTable &table : tables_) {
    if (table.layout->spec.id == id) return &table;
  }
  return nullptr;
}

}  // namespace qdt::host
