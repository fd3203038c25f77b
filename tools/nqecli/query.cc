#include "tools/nqecli/query.h"

#include <algorithm>
#include <string>

#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "host/layout/text_marks.h"
#include "host/library/services.h"
#include "qdt/stats.h"
#include "qdt/tables.h"
#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

// What may have failed for want of a region: a view as a whole, or a family at its beginning. Such an answer
// is one short line or begins with one; long answers are not searched.
bool LacksRegion(std::string_view answer) {
  return answer == host::CodeMessage(QDT_TBL_FORMAT) ||
         answer.substr(0, answer.find('\n')).find(" OsaSmmap failed") != answer.npos;
}

std::string_view LastLine(std::string_view answer) {
  if (answer.ends_with('\n')) answer.remove_suffix(1);
  const size_t end = answer.rfind('\n');
  return answer.substr(end == std::string_view::npos ? 0 : end + 1);
}

// The packet trace says in a last line of this kind what it refuses.
bool IsRefusal(std::string_view answer) {
  return LastLine(answer).starts_with("Error: ") || host::OnlyRefuses(answer);
}

}  // namespace

bool IsErrorMessage(std::string_view answer) {
#define QDT_IS_MESSAGE(name, code, message) || answer == (message)
  return answer == QDT_UNKNOWN_CODE_MESSAGE QDT_TABLE_CODES(QDT_IS_MESSAGE);
#undef QDT_IS_MESSAGE
}

bool MayBeUsage(const host::EntryPoint &entry, std::string_view answer) {
  return entry.onRegion || LastLine(answer).find(entry.name) != answer.npos;
}

namespace {

// What is said beside an answer that has been written, and the code that it stands for. `name` is what was
// asked.
ExitCode CodeOf(std::string_view name, const host::Answer &answer, bool isUsage) {
  // Shared regions are only mapped by who may write to them.
  const host::Arena *arena = host::Arena::Current();
  if (LacksRegion(answer.text) && arena != nullptr && !arena->Writable()) {
    WriteError("this user may only read the arena, and this takes its shared regions");
  }
  if (isUsage) return kUnusable;
  // The library only learns that the engine could not be asked.
  if (const std::string failure = host::TakeEngineFailure(); !failure.empty()) {
    WriteError(failure);
    return kUnusable;
  }
  if (answer.text.empty() && answer.result != 0) {
    WriteError(std::string(name) + " failed with code " + std::to_string(answer.result) + ": " +
               host::CodeMessage(answer.result));
    return kFailed;
  }
  const bool failed = answer.result < 0 || IsErrorMessage(answer.text) || IsRefusal(answer.text);
  return failed ? kFailed : kAnswered;
}

}  // namespace

namespace {

bool IsDiscardType(std::string_view name) {
  const char *const *names = QdtOmaSysStatDescGet() + QDT_STAT_DISCARD;
  return std::any_of(names, names + QDT_STAT_DISCARD_COUNT,
                     [name](const char *one) { return one != nullptr && name == one; });
}

// The packet trace reads one word of a name; names of several are set another way.
void HintAtLongNames(const host::EntryPoint &entry, std::span<char *const> words, ExitCode code) {
  if (std::string_view(entry.name) != "pkt_trace" || words.size() < 4) return;
  if (std::string_view(words[1]) != "set" || std::string_view(words[2]) != "discard_type") return;
  std::string name = words[3];
  for (const char *word : words.subspan(4)) name += std::string(" ") + word;
  if (name.find(' ') == name.npos && code == kAnswered) return;
  if (!IsDiscardType(name)) {
    return WriteError("no discard type is called " + host::Quoted(name) +
                      " (they are the discard counters of nqecli statistics)");
  }
  WriteError(
      "pkt_trace reads one word of a name; a name of several takes nqecli agent debug-pkt enable=true "
      "discard-type=" +
      host::Quoted(name) + ", which replaces all conditions");
}

}  // namespace

ExitCode RunFamily(const host::EntryPoint &entry, std::span<char *const> words) {
  const host::TextMarks marks(!IsRaw());
  host::Answer answer = host::RunEntryPoint(entry, words);
  if (!WriteAnswer(answer.text)) return kUnusable;
  // A family asked with its name alone prints its usage list; it prints the same for words that are no
  // command, and may say first what it does not know.
  bool isUsage = false;
  std::string kept;
  if (MayBeUsage(entry, answer.text)) {
    kept = answer.text;
    answer.text = kept;
    isUsage = kept.ends_with(host::RunEntryPoint(entry, words.first(1)).text);
  }
  const ExitCode code = CodeOf(entry.name, answer, isUsage);
  HintAtLongNames(entry, words, code);
  return code;
}

ExitCode RunTableQuery(const host::TableQuery &ask) {
  const host::TextMarks marks(!IsRaw());
  const host::Answer answer = host::AnswerTableQuery(ask, WriteOut);
  if (!WriteAnswer(answer.text)) return kUnusable;
  return CodeOf("show", answer, false);
}

}  // namespace qdt::nqecli
