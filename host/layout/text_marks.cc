#include "host/layout/text_marks.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "host/layout/layout.h"
#include "host/tbm/table_view.h"

namespace qdt::host {
namespace {

bool g_met = false;

struct TextArea {
  uint32_t offset, size;
};

// Where a table's records have texts; structures that not all records have are left out, their texts are
// none.
void AddTexts(const FieldSet &fields, uint32_t base, std::vector<TextArea> *areas) {
  for (const Field &field : fields.all()) {
    if (field.pointer != 0 || !field.selector.empty()) continue;
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
      const uint32_t at = base + field.ref.offset + i * field.stride;
      if (!field.fields.empty()) {
        AddTexts(field.fields, at, areas);
      } else if (field.ref.kind == FieldKind::kText) {
        areas->push_back({at, field.ref.size});
      }
    }
  }
}

const std::vector<TextArea> &TextsOf(uint32_t table) {
  static std::vector<TextArea> known[kTableCount];
  static bool isKnown[kTableCount];
  if (!isKnown[table]) AddTexts(Layout::BuiltIn().Table(table).fields, 0, &known[table]);
  isKnown[table] = true;
  return known[table];
}

void MarkTexts(uint32_t table, void *records, uint32_t size, uint32_t count) {
  const Layout &layout = Layout::BuiltIn();
  // Of an engine with layouts of its own nothing is known.
  if (table >= layout.tables().size() || layout.Table(table).spec.recordSize != size) return;
  for (const TextArea &area : TextsOf(table)) {
    char *text = static_cast<char *>(records) + area.offset;
    for (uint32_t i = 0; i < count; ++i, text += size) {
      for (char &c : std::span(text, strnlen(text, area.size))) {
        if (c != '\n') continue;
        c = TextMarks::kMark;
        g_met = true;
      }
    }
  }
}

}  // namespace

TextMarks::TextMarks(bool wanted) {
  g_met = false;
  tbm::SetCopyMark(wanted ? MarkTexts : nullptr);
}
TextMarks::~TextMarks() { tbm::SetCopyMark(nullptr); }

bool TextMarks::Met() { return g_met; }

std::string WithoutMarks(std::string answer) {
  if (!g_met) return answer;
  std::string shown;
  for (const char c : answer) c == TextMarks::kMark ? shown += "\\n" : shown += c;
  return shown;
}

}  // namespace qdt::host
