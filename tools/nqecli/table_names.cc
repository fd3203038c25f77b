#include "tools/nqecli/table_names.h"

#include <algorithm>
#include <cctype>

#include "host/base/near_name.h"
#include "host/layout/layout.h"

namespace qdt::nqecli {
namespace {

using host::Layout;

constexpr size_t kMostOffered = 4;
// Shorter words are a part of too many others.
constexpr size_t kLeastMeaning = 3;

// What people mistype without noticing.
std::string Folded(std::string_view text) {
  std::string folded(text);
  for (char &c : folded) c = c == '-' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return folded;
}

// How well a word fits a text: 3 as one of its words, 2 as the beginning of one, 1 inside one, else 0.
int FitOf(std::string_view word, std::string_view text) {
  const auto inWord = [&](size_t at) {
    return at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])) != 0;
  };
  int best = 0;
  for (size_t at = text.find(word); at != text.npos; at = text.find(word, at + 1)) {
    const bool begins = at == 0 || !inWord(at - 1);
    best = std::max(best, !begins ? 1 : inWord(at + word.size()) ? 2 : 3);
  }
  return best;
}

// A name says more than what is told of it, and inside a word of the meaning only chance finds a name.
int RankOf(std::string_view word, const NamedTable &table) {
  const int inMeaning = FitOf(word, Folded(table.about));
  const int inName = FitOf(word, Folded(table.name));
  return inName != 0 ? 2 + inName : inMeaning > 1 ? inMeaning - 1 : 0;
}

NamedTable NamedView(const Layout &layout, const host::ViewLayout &view) {
  NamedTable named{view.name, view.about, view.id, kUseShow};
  if (const host::TableLayout *table = layout.FindTable(view.table)) named.about = table->about;
  if (const host::RegionLayout *region = layout.FindRegion(view.region)) named.about = region->about;
  if (view.table == view.name) named.uses |= kUseList;
  return named;
}

std::string_view NearestBySpelling(std::string_view name, std::span<const NamedTable> tables, bool *isClose) {
  host::NearName near(name);
  std::string_view nearest;
  for (const NamedTable &table : tables) {
    if (Folded(table.name) == name) {
      *isClose = true;
      return table.name;
    }
    if (near.Offer(table.name)) nearest = table.name;
  }
  *isClose = !nearest.empty() && near.IsClose();
  return nearest;
}

}  // namespace

std::vector<NamedTable> NamedTables() {
  const Layout &layout = Layout::BuiltIn();
  std::vector<NamedTable> tables;
  for (const host::ViewLayout &view : layout.views()) tables.push_back(NamedView(layout, view));
  const size_t views = tables.size();
  for (const host::TableLayout &table : layout.tables()) {
    const auto isShown = [&](const NamedTable &view) { return view.name == table.shortName; };
    if (std::ranges::any_of(std::span(tables).first(views), isShown)) continue;
    tables.push_back({table.shortName, table.about, std::nullopt, table.fields.empty() ? 0u : kUseList});
  }
  return tables;
}

std::vector<NamedTable> NamedTables(uint32_t uses) {
  std::vector<NamedTable> tables = NamedTables();
  if ((uses & kUseRegion) != 0) {
    for (const host::RegionLayout &region : Layout::BuiltIn().regions()) {
      if (!region.fields.empty())
        tables.push_back({region.spec.name, region.about, std::nullopt, kUseRegion});
    }
  }
  std::erase_if(tables, [uses](const NamedTable &table) { return (table.uses & uses) == 0; });
  return tables;
}

bool HoldsWords(const NamedTable &table, std::span<const std::string> words) {
  const std::string text = Folded(table.name) + ' ' + Folded(table.about);
  return std::ranges::all_of(words,
                             [&](const std::string &word) { return text.find(Folded(word)) != text.npos; });
}

std::vector<std::string_view> MeantBy(std::string_view name, std::span<const NamedTable> tables) {
  const std::string word = Folded(name);
  bool isClose = false;
  const std::string_view nearest = NearestBySpelling(word, tables, &isClose);
  std::vector<std::pair<int, std::string_view>> ranked;
  if (word.size() >= kLeastMeaning) {
    for (const NamedTable &table : tables) {
      if (const int rank = RankOf(word, table); rank != 0) ranked.emplace_back(rank, table.name);
    }
  }
  // Between two short names two edits are no more than chance: they count when nothing else is found.
  if (isClose || ranked.empty()) {
    if (!nearest.empty()) return {nearest};
  }
  std::ranges::stable_sort(ranked, std::greater<>{}, &std::pair<int, std::string_view>::first);
  std::vector<std::string_view> meant;
  for (const auto &[rank, each] : ranked) meant.push_back(each);
  return meant;
}

std::string TableHint(std::string_view name, uint32_t uses, std::string_view otherwise) {
  const std::vector<NamedTable> tables = NamedTables(uses);
  std::vector<std::string_view> meant = MeantBy(name, tables);
  // A plural, or a letter or two too many at the end.
  for (int left = 2; left > 0 && meant.empty() && name.size() > kLeastMeaning; --left) {
    name.remove_suffix(1);
    meant = MeantBy(name, tables);
  }
  std::string offer;
  const size_t count = std::min(meant.size(), kMostOffered);
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) offer += i + 1 == count ? " or " : ", ";
    offer += meant[i];
  }
  std::string hint = host::DidYouMean(offer, otherwise);
  if (meant.size() > count) {
    hint.pop_back();
    hint += " \"nqecli tables " + std::string(name) + "\" lists all)";
  }
  return hint;
}

}  // namespace qdt::nqecli
