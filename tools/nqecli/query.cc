#include "tools/nqecli/query.h"

#include <string>

#include "host/arena/arena.h"
#include "host/engine/services.h"
#include "qdt/tables.h"

namespace qdt::nqecli {
namespace {

struct CodeText {
  int32_t code;
  const char *message;
};

#define QDT_CODE_TEXT(name, code, message) {code, message},
constexpr CodeText kCodes[] = {QDT_TABLE_CODES(QDT_CODE_TEXT)};
#undef QDT_CODE_TEXT

}  // namespace

const char *CodeMessage(int32_t code) {
  for (const CodeText &row : kCodes) {
    if (row.code == code) return row.message;
  }
  return QDT_UNKNOWN_CODE_MESSAGE;
}

bool IsErrorMessage(std::string_view answer) {
  for (const CodeText &row : kCodes) {
    if (answer == row.message) return true;
  }
  return answer == QDT_UNKNOWN_CODE_MESSAGE;
}

ExitCode RunFamily(const host::EntryPoint &entry, std::span<char *const> words) {
  // A family asked with its name alone prints its usage list; it prints the same for words that are no
  // command.
  const std::string usage(host::RunEntryPoint(entry, words.first(1)).text);
  const host::Answer answer = host::RunEntryPoint(entry, words);
  if (!WriteAnswer(answer.text)) return kUnusable;
  if (answer.text == usage) return kUnusable;
  // The library only learns that the engine could not be asked.
  if (const std::string failure = host::TakeEngineFailure(); !failure.empty()) {
    WriteError(failure);
    return kUnusable;
  }
  // Shared regions are only mapped by who may write to them; a view that needs one fails as a whole.
  const host::Arena *arena = host::Arena::Current();
  if (answer.text == CodeMessage(QDT_TBL_FORMAT) && arena != nullptr && !arena->Writable()) {
    WriteError("this user may only read the arena, and this table's view needs its shared regions");
  }
  if (answer.text.empty() && answer.result != 0) {
    WriteError(std::string(entry.name) + " failed with code " + std::to_string(answer.result) + ": " +
               CodeMessage(answer.result));
    return kFailed;
  }
  return IsErrorMessage(answer.text) ? kFailed : kAnswered;
}

}  // namespace qdt::nqecli
