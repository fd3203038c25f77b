#include "tests/views_data/view_check.h"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <sstream>

#include "host/base/host_error.h"
#include "host/record/filter.h"
#include "tests/views_data/value_form.h"

namespace qdt::host {
namespace {

constexpr std::string_view kSum = "sum ";
constexpr int64_t kPatience =
    600;  // seconds between a source's being opened and a record of it being compared

std::string_view WithoutBlanksBehind(std::string_view text) {
  const size_t end = text.find_last_not_of(" \r");
  return text.substr(0, end == text.npos ? 0 : end + 1);
}

// The value at "a[2].b"; null when the record leaves it out.
const rapidjson::Value *ValueAt(const rapidjson::Value &record, std::string_view path) {
  const rapidjson::Value *at = &record;
  while (!path.empty()) {
    const std::string name(path.substr(0, path.find_first_of(".[")));
    if (!at->IsObject() || !at->HasMember(name.c_str())) return nullptr;
    at = &(*at)[name.c_str()];
    path.remove_prefix(name.size());
    if (path.starts_with('[')) {
      uint32_t index = 0;
      std::from_chars(path.data() + 1, path.data() + path.size(), index);
      if (!at->IsArray() || index >= at->Size()) return nullptr;
      at = &(*at)[index];
      path.remove_prefix(path.find(']') + 1);
    }
    if (path.starts_with('.')) path.remove_prefix(1);
  }
  return at;
}

// The record's own field where it says another thing than the key.
const rapidjson::Value *OwnValueAt(const rapidjson::Value &record, const std::string &path) {
  if (path.starts_with("key.")) return ValueAt(record, path.substr(4));
  const rapidjson::Value *own = ValueAt(record, "record." + path);
  return own != nullptr ? own : ValueAt(record, path);
}

// A line for elements may come again at once, all others come once.
bool Repeats(const MapLine &line) {
  return std::ranges::any_of(line.pieces, [](const MapPiece &piece) {
    return piece.kind == MapPiece::Kind::kIndex || piece.text.find("[+") != piece.text.npos ||
           piece.text.find("[*]") != piece.text.npos;
  });
}

// Characters of the line that are no values.
size_t OwnWords(const MapLine &line) {
  size_t size = 0;
  for (const MapPiece &piece : line.pieces) {
    if (piece.kind == MapPiece::Kind::kLiteral) size += piece.text.size();
  }
  return size;
}

// Only texts and lists of values have blanks in them.
bool IsOneWord(const MapPiece &piece) {
  return piece.kind == MapPiece::Kind::kValue && piece.text.find("[*]") == piece.text.npos &&
         !piece.how.ends_with("text") && piece.how != "bits";
}

// A time that the text has as the clock's, and JSON as the seconds that have passed since.
std::string WrongAgo(std::string_view shown, const rapidjson::Value *ago) {
  uint64_t then = 0;
  std::from_chars(shown.data(), shown.data() + shown.size(), then);
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const int64_t passed = now.tv_sec - static_cast<int64_t>(then + NumberOf(ago));
  // The record was read a moment before.
  return passed >= 0 && passed <= kPatience ? "" : "not the time that is so many seconds ago";
}

void Replace(std::string *text, std::string_view what, const std::string &with) {
  const size_t at = text->find(what);
  if (at != text->npos) text->replace(at, what.size(), with);
}

rapidjson::Document Parsed(const std::string &json) {
  rapidjson::Document document;
  document.Parse(json.c_str(), json.size());
  if (document.HasParseError()) throw HostError("no JSON: " + json.substr(0, 200));
  return document;
}

}  // namespace

bool IsLike(std::string_view pattern, std::string_view path) { return Matches(pattern, path); }

ViewCheck::ViewCheck(const MapView &view, const Shown &shown, const ViewStage &stage)
    : view_(view), shown_(shown), stage_(stage) {
  for (const Leaf &leaf : shown.Leaves()) {
    fields_[leaf.path] = leaf.field;
    if (leaf.inKey) fields_["key." + leaf.path] = leaf.field;
  }
}

std::string ViewCheck::Hold(const std::string &text, const std::string &json) {
  const rapidjson::Document record = Parsed(json);
  next_ = 0;
  passed_.clear();
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const std::string_view shown = WithoutBlanksBehind(line);
    if (shown.empty() || shown == std::string(30, '-')) continue;
    Captures captures;
    const MapLine *known = FindLine(shown, record, &captures);
    if (known == nullptr) return view_.place + ": the map has no line for \"" + line + "\"";
    used_.insert(known);
    const std::string wrong = HoldLine(*known, captures, record);
    if (!wrong.empty()) return known->place + ": \"" + line + "\": " + wrong;
  }
  return "";
}

// The line whose own words are the most; of several that have the same, the texts follow the map's order, but
// for blocks that come again.
const MapLine *ViewCheck::FindLine(std::string_view line, const rapidjson::Document &record,
                                   Captures *captures) {
  const size_t count = view_.lines.size();
  size_t found = count;
  size_t most = 0;
  for (size_t i = 0; i < count; ++i) {
    const size_t at = (next_ + i) % count;
    const MapLine &known = view_.lines[at];
    Captures parts;
    if (!Fits(known, line, &parts) || !Applies(known, record)) continue;
    if (found != count && OwnWords(known) <= most) continue;
    found = at;
    most = OwnWords(known);
    *captures = std::move(parts);
  }
  if (found == count) return nullptr;
  next_ = found + (Repeats(view_.lines[found]) ? 0 : 1);
  return &view_.lines[found];
}

// Not when it shows a structure that the record does not have.
bool ViewCheck::Applies(const MapLine &line, const rapidjson::Document &record) const {
  return std::ranges::all_of(line.pieces, [&](const MapPiece &piece) {
    if (piece.kind != MapPiece::Kind::kValue) return true;
    const std::string name = piece.text.substr(0, piece.text.find_first_of(".["));
    const Field *field = shown_.fields().Find(name);
    const bool optional = field != nullptr && (field->pointer != 0 || !field->selector.empty());
    return !optional || record.HasMember(name.c_str());
  });
}

bool ViewCheck::Fits(const MapLine &line, std::string_view text, Captures *captures) {
  captures->clear();
  for (size_t i = 0; i < line.pieces.size(); ++i) {
    const MapPiece &piece = line.pieces[i];
    const bool last = i + 1 == line.pieces.size();
    if (piece.kind == MapPiece::Kind::kLiteral) {
      const std::string_view literal = last ? WithoutBlanksBehind(piece.text) : std::string_view(piece.text);
      if (!text.starts_with(literal)) {
        // A value of nothing at the line's end takes the blanks before it along.
        if (i + 2 != line.pieces.size() || text != WithoutBlanksBehind(literal)) return false;
        text = {};
        continue;
      }
      text.remove_prefix(literal.size());
      continue;
    }
    size_t end = text.size();
    if (!last) {
      const std::string_view next = i + 2 == line.pieces.size() ? WithoutBlanksBehind(line.pieces[i + 1].text)
                                                                : std::string_view(line.pieces[i + 1].text);
      // The line's last words are at its end, whatever a text before them has in it.
      end = i + 2 == line.pieces.size() && text.ends_with(next) ? text.size() - next.size() : text.find(next);
      if (end == text.npos) return false;
    }
    if (IsOneWord(piece) && text.substr(0, end).find(' ') != text.npos) return false;
    captures->push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return text.empty();
}

std::string ViewCheck::HoldLine(const MapLine &line, const Captures &captures,
                                const rapidjson::Document &record) {
  size_t capture = 0;
  for (const MapPiece &piece : line.pieces) {
    if (piece.kind == MapPiece::Kind::kLiteral) continue;
    const std::string wrong = HoldPiece(piece, captures[capture++], record);
    if (!wrong.empty()) return wrong;
  }
  return "";
}

std::string ViewCheck::HoldPiece(const MapPiece &piece, std::string_view shown,
                                 const rapidjson::Document &record) {
  if (piece.kind == MapPiece::Kind::kOther) return "";
  if (piece.kind == MapPiece::Kind::kIndex) {
    const std::string_view digits = shown.substr(std::min(shown.find_first_not_of(' '), shown.size()));
    uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    index_ = number - (piece.text == "#1" ? 1 : 0);
    const std::string written = NumberForm(number, piece.how.empty() ? "%u" : piece.how);
    return written == shown ? "" : "not the number of an element";
  }
  std::string path = piece.text;
  Replace(&path, "[i]", "[" + std::to_string(index_) + "]");
  std::vector<std::string_view> values{shown};
  const bool several = path.find("[*]") != path.npos && !piece.how.starts_with(kSum);
  if (several) {
    values.clear();
    while (!shown.empty()) {
      const size_t start = std::min(shown.find_first_not_of(' '), shown.size());
      const size_t end = std::min(shown.find(' ', start), shown.size());
      if (end > start) values.push_back(shown.substr(start, end - start));
      shown.remove_prefix(end);
    }
  }
  for (const std::string_view value : values) {
    std::string one = path;
    if (several) Replace(&one, "[*]", "[" + std::to_string(passed_[piece.text]++) + "]");
    if (const size_t next = one.find("[+"); next != one.npos) TakeNext(piece.text, next, record, &one);
    if (!fields_.contains(one) && IsBeyond(one)) continue;
    if (piece.how == "ago") {
      seen_[one].insert(std::string(value));
      const std::string wrong = WrongAgo(value, OwnValueAt(record, one));
      if (!wrong.empty()) return one + ": " + wrong;
      continue;
    }
    if (one.find("->") != one.npos) {
      const std::optional<std::string> referred = Referred(one, record, piece.how);
      if (referred && *referred != value) return one + " is " + *referred + ", not " + std::string(value);
      continue;
    }
    const std::string expected = Expected(piece, one, record);
    if (WithoutBlanksBehind(expected) != WithoutBlanksBehind(value))
      return one + " is " + expected + ", not " + std::string(value);
    seen_[one].insert(expected);
  }
  return "";
}

bool ViewCheck::IsBeyond(const std::string &path) {
  const auto at =
      std::ranges::find_if(view_.beyond, [&](const MapHidden &beyond) { return IsLike(beyond.path, path); });
  return at != view_.beyond.end();
}

// Puts the number of the next element in the place of "[+]", and in that of "[+NAME]" the number of the next
// one whose field of the name is not 0; of "[+.]" the next that is not 0 itself.
void ViewCheck::TakeNext(const std::string &text, size_t at, const rapidjson::Document &record,
                         std::string *path) {
  const size_t end = path->find(']', at);
  const std::string name = path->substr(at + 2, end - at - 2);
  const std::string array = path->substr(0, at);
  uint32_t &passed = passed_[text];
  const rapidjson::Value *elements = OwnValueAt(record, array);
  const uint32_t count = elements != nullptr ? elements->Size() : 0;
  const auto isSkipped = [&] {
    const std::string value = array + "[" + std::to_string(passed) + "]" + (name == "." ? "" : "." + name);
    return NumberOf(OwnValueAt(record, value)) == 0;
  };
  while (!name.empty() && passed < count && isSkipped()) ++passed;
  path->replace(at, end - at + 1, "[" + std::to_string(passed++) + "]");
}

std::string ViewCheck::Expected(const MapPiece &piece, const std::string &path,
                                const rapidjson::Document &record) {
  if (piece.how.starts_with(kSum)) return Sum(path, piece.how.substr(kSum.size()), record);
  if (path.starts_with('@')) {
    const size_t point = path.find('.');
    return Other(path.substr(1, point - 1), {}, path.substr(point + 1), piece.how).value_or("nothing");
  }
  return ValueAs(OwnValueAt(record, path), *FieldAt(path), piece.how);
}

// The value of another record as the view shows it; nothing when there is no such record.
std::optional<std::string> ViewCheck::Other(const std::string &name, const std::vector<std::string> &key,
                                            const std::string &path, const std::string &how) const {
  const std::optional<std::string> json = stage_.JsonOf(name, key);
  if (!json) return std::nullopt;
  const rapidjson::Document record = Parsed(*json);
  for (const Leaf &leaf : Shown::Of(name).Leaves()) {
    if (leaf.path == path) return ValueAs(OwnValueAt(record, path), *leaf.field, how);
  }
  throw HostError(view_.place + ": " + name + " has no field " + path);
}

// The field of the entry that a reference or number leads to, "fwdif->if_index"; nothing when it leads to
// none.
std::optional<std::string> ViewCheck::Referred(const std::string &path, const rapidjson::Document &record,
                                               const std::string &how) {
  const size_t arrow = path.find("->");
  const std::string from = path.substr(0, arrow);
  const Field &field = *FieldAt(from);
  const rapidjson::Value *to = OwnValueAt(record, from);
  std::vector<std::string> key;
  std::string table(field.leadsTo);
  if (!field.targets.empty()) {
    if (to == nullptr || !to->IsObject() || to->HasMember("stale")) return std::nullopt;
    table = field.targets.front();
    for (const auto &part : to->GetObject())
      key.push_back(std::string(part.name.GetString()) + "=" + std::to_string(NumberOf(&part.value)));
  } else {
    key.push_back(std::string(Layout::BuiltIn().FindTable(table)->key.all().front().name) + "=" +
                  std::to_string(NumberOf(to)));
  }
  const std::optional<std::string> shown = Other(table, key, path.substr(arrow + 2), how);
  if (shown) seen_[from].insert(*shown);
  return shown;
}

// Of all fields that are like the pattern, modulo 2 to the 64th.
std::string ViewCheck::Sum(const std::string &pattern, const std::string &how,
                           const rapidjson::Document &record) {
  uint64_t sum = 0;
  for (const auto &[path, field] : fields_) {
    if (!IsLike(pattern, path)) continue;
    const rapidjson::Value *value = OwnValueAt(record, path);
    sum += NumberOf(value);
    seen_[path].insert(std::to_string(NumberOf(value)));
  }
  return NumberForm(sum, how);
}

const Field *ViewCheck::FieldAt(const std::string &path) {
  const auto at = fields_.find(path);
  if (at == fields_.end()) throw HostError(view_.place + ": " + shown_.name() + " has no field " + path);
  return at->second;
}

size_t ViewCheck::Seen(const std::string &path) const {
  const auto at = seen_.find(path);
  return at == seen_.end() ? 0 : at->second.size();
}

std::vector<std::string> ViewCheck::Unused() const {
  std::vector<std::string> places;
  for (const MapLine &line : view_.lines) {
    if (!used_.contains(&line)) places.push_back(line.place);
  }
  return places;
}

}  // namespace qdt::host
