#ifndef TOOLS_NQECLI_DATA_WORDS_H_
#define TOOLS_NQECLI_DATA_WORDS_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/host_error.h"
#include "host/record/record_sinks.h"
#include "host/record/record_source.h"
#include "tools/nqecli/attach.h"
#include "tools/nqecli/output/output.h"
#include "tools/nqecli/table_names.h"

namespace qdt::nqecli {

// Takes an option that names the answer's form. Throws HostError when another one has been named.
void SetFormat(host::RecordFormat *format, std::string_view flag, host::RecordFormat chosen);

// The options of the commands that show data, each a bit: a command says which of them it takes.
enum DataOption : uint32_t {
  kOptionJson = 1 << 0,
  kOptionLines = 1 << 1,  // --ndjson
  kOptionCsv = 1 << 2,
  kOptionYaml = 1 << 3,
  kOptionFields = 1 << 4,
  kOptionSort = 1 << 5,
  kOptionLimit = 1 << 6,
  kOptionCount = 1 << 7,
  kOptionCounters = 1 << 8,
  kOptionWarn = 1 << 9,
  kOptionInterval = 1 << 10,  // -i SECONDS
  kOptionTimes = 1 << 11,
  kOptionKeys = 1 << 12,
  kOptionInfo = 1 << 13,  // --info FILE
  // It works on no engine.
  kOptionsNoPlace = 1u << 30,
  // All words but the place are for somebody else, who reads options as well.
  kOptionsOfOthers = 1u << 31,
};
constexpr uint32_t kOptionForms = kOptionJson | kOptionLines | kOptionCsv;
constexpr uint32_t kListOptions =
    kOptionForms | kOptionYaml | kOptionFields | kOptionSort | kOptionLimit | kOptionCount;
// Those that stand before the command that watch repeats.
constexpr uint32_t kWatchOptions = kOptionJson | kOptionInterval | kOptionTimes;

// The names of options, and their lines for a help text.
std::vector<std::string_view> OptionNames(uint32_t takes);
std::string OptionHelp(uint32_t takes);
std::string_view OptionAbout(std::string_view name);
bool OptionHasValue(std::string_view name);

// The words of a command: options stand anywhere among the others, up to "--".
struct DataWords {
  Place place;
  std::vector<std::string> words;  // all that are no options
  host::RecordFormat format = host::RecordFormat::kColumns;
  std::string fields;
  std::string sort;
  uint64_t limit = UINT64_MAX;
  bool count = false;
  bool counters = false;
  uint32_t warn = 0;    // percent; 0 when not given
  double interval = 0;  // seconds; 0 when not given
  uint64_t times = 0;   // 0 when not given
  bool keys = false;
  std::string info;  // file; empty when not given

  // Throws HostError for an option that the command does not take.
  DataWords(const Place &given, std::span<char *const> all, uint32_t takes);
};

// Where the records are read: of the place's engine, or of its saved arena.
std::unique_ptr<host::RecordSource> OpenSource(const Place &place);

// The table of a name, with fields. Throws HostError with what was meant among what is good for one of
// `uses`.
const host::TableLayout &TableOf(std::string_view name, uint32_t uses = kUseList);

// The region of a name, with fields; null when there is none of the name. Throws HostError for one of which
// nothing is known.
const host::RegionLayout *RegionOf(std::string_view name);

// Where a value stands, in a line: "fib  prefix=26 vpn=0 destination=192.0.2.0", "-" for a key that is null.
void AppendPlace(const host::TableLayout *table, const host::RegionLayout *region, const uint8_t *key,
                 std::string *line);

// Standard output. Throws HostError when it takes no more, and OutputClosed when nobody reads it any longer.
class StandardOut : public host::TextOut {
 private:
  void Write(std::string_view text) override;
};

// The terminal, for who steers it (WriteScreen).
class ScreenOut : public host::TextOut {
 private:
  void Write(std::string_view text) override;
};

// Writes an answer with `write`, which gets the output. Of one that cannot be finished what stands before the
// mistake is written: a document that stops in the middle is none.
template <typename Write>
void WriteWhole(Write write) {
  StandardOut out;
  try {
    write(&out);
  } catch (const host::HostError &) {
    out.Spill();
    throw;
  }
  out.Spill();
}

// Characters of a line on the terminal behind standard output; 0 when that is none.
uint32_t TerminalWidth();

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_DATA_WORDS_H_
