#include "tools/nqecli/output/shown_text.h"

#include <algorithm>
#include <utility>

#include "host/base/direction.h"
#include "host/layout/text_marks.h"
#include "host/layout/value_text.h"

namespace qdt::nqecli {
namespace {

using host::TextMarks;
using host::TurnsAround;

constexpr size_t kLongestCharacter = 4;

bool g_raw = false;

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

bool IsHarmless(std::string_view text, bool forTerminal) {
  if (g_raw) return true;
  if (forTerminal) return std::ranges::all_of(text, IsPlain);
  return !TextMarks::Met() || text.find(TextMarks::kMark) == text.npos;
}

std::string ShownText(std::string_view text, bool forTerminal, std::string *carry) {
  const std::string whole = std::exchange(*carry, {}) + std::string(text);
  std::string shown;
  for (std::string_view rest = whole; !rest.empty();) {
    size_t size = 1;
    if (TextMarks::Met() && rest.front() == TextMarks::kMark) {
      shown += "\\n";
    } else if (!forTerminal || IsPlain(rest.front())) {
      shown += rest.front();
    } else if (rest.starts_with("\r\n")) {
      size = 2;
      shown += "\r\n";
    } else if (const size_t character = host::CharacterAt(rest); character != 0) {
      size = character;
      shown += TurnsAround(rest) ? EscapedBytes(rest.substr(0, size)) : std::string(rest.substr(0, size));
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
