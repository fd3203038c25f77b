#include "tools/nqecli/catalog.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/base/host_error.h"
#include "host/base/words.h"
#include "qdt/cli.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

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

KeySyntax SyntaxOf(const TableLine &line) {
  KeySyntax syntax;
  syntax.text = line.keys;
  std::string_view keys = line.keys;
  for (std::string_view &slot : syntax.slots) slot = TakeWord(&keys);
  // A MAC address is no number: it is the first key wherever the list shows it.
  const auto mac = std::ranges::find(syntax.slots, "mac");
  if (mac != syntax.slots.end() && syntax.slots[0] == "0") std::swap(syntax.slots[0], *mac);
  return syntax;
}

std::span<const TableLine> LinesOf(std::span<const TableLine> lines, uint32_t id) {
  const auto first = std::ranges::lower_bound(lines, id, {}, &TableLine::id);
  return {first, std::ranges::upper_bound(lines, id, {}, &TableLine::id)};
}

TableInfo InfoOf(std::span<const TableLine> lines) {
  TableInfo table{lines.front().id, lines.front().name, {}};
  for (const TableLine &line : lines) table.syntax.push_back(SyntaxOf(line));
  return table;
}

}  // namespace

std::optional<TableInfo> Catalog::Find(std::string_view nameOrId) const {
  const std::optional<uint32_t> id = ParseId(nameOrId);
  for (const TableLine &line : lines_) {
    if (id ? line.id == *id : line.name == nameOrId) return InfoOf(LinesOf(lines_, line.id));
  }
  return std::nullopt;
}

std::vector<TableInfo> Catalog::Tables() const {
  std::vector<TableInfo> tables;
  for (std::span<const TableLine> rest = lines_; !rest.empty();) {
    const auto lines = LinesOf(rest, rest.front().id);
    tables.push_back(InfoOf(lines));
    rest = rest.subspan(lines.size());
  }
  return tables;
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
      throw HostError("key " + std::to_string(slot + 1) + " of table " + std::string(table.name) + " is " +
                      host::Quoted(keys[slot]) + " but has to be a number from 0 to 4294967295");
    }
    placed[slot] = keys[slot];
  }
  return placed;
}

}  // namespace qdt::nqecli
