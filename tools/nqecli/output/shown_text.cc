#include "tools/nqecli/output/shown_text.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "host/layout/layout.h"
#include "host/layout/value_text.h"
#include "host/tbm/table_view.h"

namespace qdt::nqecli {
namespace {

using host::Field;

constexpr char kMark = '\xff';
constexpr size_t kLongestCharacter = 4;

bool g_raw = false;
bool g_marked = false;

struct TextArea {
  uint32_t offset, size;
};

// Where a table's records have texts; structures that not all records have are left out, their texts are
// none.
void AddTexts(const host::FieldSet &fields, uint32_t base, std::vector<TextArea> *areas) {
  for (const Field &field : fields.all()) {
    if (field.pointer != 0 || !field.selector.empty()) continue;
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
      const uint32_t at = base + field.ref.offset + i * field.stride;
      if (!field.fields.empty()) {
        AddTexts(field.fields, at, areas);
      } else if (field.ref.kind == host::FieldKind::kText) {
        areas->push_back({at, field.ref.size});
      }
    }
  }
}

const std::vector<TextArea> &TextsOf(uint32_t table) {
  static std::vector<TextArea> known[host::kTableCount];
  static bool isKnown[host::kTableCount];
  if (!isKnown[table]) AddTexts(host::Layout::BuiltIn().Table(table).fields, 0, &known[table]);
  isKnown[table] = true;
  return known[table];
}

void MarkTexts(uint32_t table, void *records, uint32_t size, uint32_t count) {
  const host::Layout &layout = host::Layout::BuiltIn();
  // Of an engine with layouts of its own nothing is known.
  if (table >= layout.tables().size() || layout.Table(table).spec.recordSize != size) return;
  for (const TextArea &area : TextsOf(table)) {
    char *text = static_cast<char *>(records) + area.offset;
    for (uint32_t i = 0; i < count; ++i, text += size) {
      for (char &c : std::span(text, strnlen(text, area.size))) {
        if (c != '\n') continue;
        c = kMark;
        g_marked = true;
      }
    }
  }
}

bool IsPlain(char c) { return (c >= ' ' && c <= '~') || c == '\n' || c == '\t'; }

// Whether the text may be the beginning of a character, or of a line's end as CSV has it.
bool MayGoOn(std::string_view text) {
  if (text == "\r") return true;
  if (text.size() >= kLongestCharacter) return false;
  const auto first = static_cast<uint8_t>(text.front());
  const size_t length = first >= 0xf0 && first < 0xf5 ? 4 : first >= 0xe0 ? 3 : first >= 0xc2 ? 2 : 1;
  return first < 0xf5 && text.size() < length &&
         std::ranges::all_of(text.substr(1), [](char c) { return (static_cast<uint8_t>(c) & 0xc0) == 0x80; });
}

void AppendEscape(char c, std::string *shown) {
  constexpr char kHex[] = "0123456789abcdef";
  *shown += "\\x";
  *shown += kHex[static_cast<uint8_t>(c) >> 4];
  *shown += kHex[c & 15];
}

}  // namespace

void SetRaw(bool raw) { g_raw = raw; }
bool IsRaw() { return g_raw; }

std::string EscapedBytes(std::string_view bytes) {
  std::string shown;
  for (const char c : bytes) AppendEscape(c, &shown);
  return shown;
}

MarkedTexts::MarkedTexts() {
  g_marked = false;
  host::tbm::SetCopyMark(g_raw ? nullptr : MarkTexts);
}
MarkedTexts::~MarkedTexts() { host::tbm::SetCopyMark(nullptr); }

bool IsHarmless(std::string_view text, bool forTerminal) {
  if (g_raw) return true;
  if (forTerminal) return std::ranges::all_of(text, IsPlain);
  return !g_marked || text.find(kMark) == text.npos;
}

std::string ShownText(std::string_view text, bool forTerminal, std::string *carry) {
  const std::string whole = std::exchange(*carry, {}) + std::string(text);
  std::string shown;
  for (std::string_view rest = whole; !rest.empty();) {
    size_t size = 1;
    if (g_marked && rest.front() == kMark) {
      shown += "\\n";
    } else if (!forTerminal || IsPlain(rest.front())) {
      shown += rest.front();
    } else if (rest.starts_with("\r\n")) {
      size = 2;
      shown += "\r\n";
    } else if (const size_t character = host::CharacterAt(rest); character != 0) {
      size = character;
      shown += rest.substr(0, size);
    } else if (MayGoOn(rest)) {
      *carry = rest;
      break;
    } else {
      AppendEscape(rest.front(), &shown);
    }
    rest.remove_prefix(size);
  }
  return shown;
}

}  // namespace qdt::nqecli
