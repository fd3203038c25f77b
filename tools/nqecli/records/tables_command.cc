#include <algorithm>
#include <string>

#include "host/base/host_error.h"
#include "qdt/tables.h"
#include "tools/nqecli/catalog.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/table_names.h"

namespace qdt::nqecli {
namespace {

std::string Padded(std::string_view word, size_t width) {
  std::string text(word);
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

// A table of the diag command with its flag, a line for each way to ask it.
void AppendKeys(const TableInfo &table, std::string *text) {
  const bool flag = table.id < QDT_DIAG_TABLE_COUNT && g_qdtTblGetAllItemsOfOneKey[table.id] != 0;
  std::string head =
      Padded(std::to_string(table.id), 4) + Padded(table.name, 24) + Padded(flag ? "1" : "0", 6);
  for (const KeySyntax &syntax : table.syntax) {
    *text += head;
    *text += syntax.text;
    *text += '\n';
    head.assign(head.size(), ' ');
  }
}

void AppendMeaning(const NamedTable &table, std::string *text) {
  const bool shows = (table.uses & kUseShow) != 0, lists = (table.uses & kUseList) != 0;
  *text += Padded(table.id ? std::to_string(*table.id) : "-", 4) + Padded(table.name, 24) +
           Padded(shows && lists ? "show list"
                  : shows        ? "show"
                  : lists        ? "list"
                                 : "-",
                  11);
  *text += table.about;
  *text += '\n';
}

}  // namespace

ExitCode Tables(const DataWords &words) {
  std::string text = words.keys ? "id  name                    flag  keys\n"
                                : "id  name                    ask        holds\n";
  const size_t head = text.size();
  const Catalog catalog;
  for (const NamedTable &table : NamedTables()) {
    if (!HoldsWords(table, words.words)) continue;
    if (!words.keys) {
      AppendMeaning(table, &text);
    } else if (const auto info = catalog.Find(table.name); table.id && info) {
      AppendKeys(*info, &text);
    }
  }
  if (text.size() != head) return Print(text);
  WriteError("no table has this in its name or meaning; \"nqecli tables\" alone lists all");
  return kFailed;
}

}  // namespace qdt::nqecli
