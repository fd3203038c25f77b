#include "tools/nqecli/catalog.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "host/base/host_error.h"
#include "host/base/near_name.h"
#include "host/base/words.h"
#include "host/library/entry_points.h"
#include "qdt/cli.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

constexpr std::string_view kQueryWords = " diag search nqpTable ";

// The text up to the next blank, taken off `text`. Blanks inside parentheses do not count: some keys are
// explained with examples.
std::string_view TakeWord(std::string_view *text) {
  text->remove_prefix(std::min(text->find_first_not_of(' '), text->size()));
  size_t end = 0;
  for (int depth = 0; end < text->size() && (depth > 0 || (*text)[end] != ' '); ++end) {
    if ((*text)[end] == '(') ++depth;
    if ((*text)[end] == ')') --depth;
  }
  const std::string_view word = text->substr(0, end);
  text->remove_prefix(end);
  return word;
}

std::optional<uint32_t> ParseId(std::string_view text) {
  uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return id;
}

bool IsNumber(const char *text) {
  uint8_t ok = 0;
  QdtCliParseUint(text, &ok);
  return ok != 0;
}

// The slots that `syntax` leaves open, filled with the keys in their order; nothing when they do not fit.
std::optional<std::array<std::string, kKeyCount>> Fit(const KeySyntax &syntax, std::span<char *const> keys) {
  std::array<std::string, kKeyCount> placed;
  size_t used = 0;
  for (size_t slot = 0; slot < kKeyCount; ++slot) {
    placed[slot] = "0";
    if (syntax.slots[slot] == "0" || used == keys.size()) continue;
    if (slot > 0 && !IsNumber(keys[used])) return std::nullopt;
    placed[slot] = keys[used++];
  }
  if (used < keys.size()) return std::nullopt;
  return placed;
}

}  // namespace

Catalog Catalog::FromUsage(std::string_view usage) {
  Catalog catalog;
  while (!usage.empty()) {
    const size_t end = std::min(usage.find('\n'), usage.size());
    const std::string_view line = usage.substr(0, end);
    usage.remove_prefix(std::min(end + 1, usage.size()));
    const size_t query = line.find(kQueryWords);
    if (query == line.npos) continue;
    std::string_view keys = line.substr(query + kQueryWords.size());
    const std::optional<uint32_t> id = ParseId(TakeWord(&keys));
    if (!id) continue;
    KeySyntax syntax;
    syntax.text = keys.substr(std::min<size_t>(1, keys.size()));
    for (std::string &slot : syntax.slots) slot = TakeWord(&keys);
    // A MAC address is no number: it is the first key wherever the list shows it.
    const auto mac = std::ranges::find(syntax.slots, "mac");
    if (mac != syntax.slots.end() && syntax.slots[0] == "0") std::swap(syntax.slots[0], *mac);
    TableInfo *table = catalog.Row(*id);
    const auto same = [&](const KeySyntax &other) { return other.text == syntax.text; };
    if (std::none_of(table->syntax.begin(), table->syntax.end(), same))
      table->syntax.push_back(std::move(syntax));
    // " 0. fwdif"; later lines of a table have no name.
    std::string_view name = line.substr(0, query);
    TakeWord(&name);
    name = TakeWord(&name);
    if (table->name.empty()) table->name = name;
  }
  return catalog;
}

Catalog Catalog::Load() {
  const host::EntryPoint *diag = host::FindEntryPoint("diag");
  char *const words[] = {const_cast<char *>(diag->name), nullptr};
  return FromUsage(host::RunEntryPoint(*diag, std::span(words, 1)).text);
}

TableInfo *Catalog::Row(uint32_t id) {
  const auto at = std::lower_bound(tables_.begin(), tables_.end(), id,
                                   [](const TableInfo &table, uint32_t wanted) { return table.id < wanted; });
  if (at != tables_.end() && at->id == id) return &*at;
  TableInfo added;
  added.id = id;
  return &*tables_.insert(at, std::move(added));
}

const TableInfo *Catalog::Find(std::string_view nameOrId) const {
  const std::optional<uint32_t> id = ParseId(nameOrId);
  for (const TableInfo &table : tables_) {
    if (id ? table.id == *id : table.name == nameOrId) return &table;
  }
  return nullptr;
}

const TableInfo *Catalog::Nearest(std::string_view name) const {
  // What people mistype without noticing.
  std::string folded(name);
  for (char &c : folded) c = c == '-' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (const TableInfo *meant = Find(folded)) return meant;
  host::NearName near(folded);
  const TableInfo *nearest = nullptr;
  for (const TableInfo &table : tables_) {
    if (near.Offer(table.name)) nearest = &table;
  }
  return nearest;
}

std::array<std::string, kKeyCount> PlaceKeys(const TableInfo &table, std::span<char *const> keys) {
  if (keys.size() > kKeyCount) {
    throw HostError("a table has at most " + std::to_string(kKeyCount) + " keys, these are " +
                    std::to_string(keys.size()));
  }
  for (const KeySyntax &syntax : table.syntax) {
    if (auto placed = Fit(syntax, keys)) return *placed;
  }
  // More keys than places stand as they were typed. Where there are places enough, a text was meant as a
  // number, unless it asks for a list: every table can be asked for one, whether its lines offer that or not.
  const auto holds = [&](const KeySyntax &syntax) {
    return keys.size() <= kKeyCount - std::ranges::count(syntax.slots, "0");
  };
  const auto holdsText = [&](const KeySyntax &syntax) { return holds(syntax) && syntax.slots[0] != "0"; };
  const std::string_view first = keys.empty() ? std::string_view() : keys[0];
  const bool textFirst = std::ranges::none_of(table.syntax, holds) ||
                         std::ranges::any_of(table.syntax, holdsText) || first == "all" ||
                         first.starts_with("num");
  std::array<std::string, kKeyCount> placed{"0", "0", "0", "0"};
  for (size_t slot = 0; slot < keys.size(); ++slot) {
    if ((slot > 0 || !textFirst) && !IsNumber(keys[slot])) {
      throw HostError("key " + std::to_string(slot + 1) + " of table " + table.name + " is " +
                      host::Quoted(keys[slot]) + " but has to be a number from 0 to 4294967295");
    }
    placed[slot] = keys[slot];
  }
  return placed;
}

}  // namespace qdt::nqecli
