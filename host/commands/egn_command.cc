#include "host/commands/egn_command.h"

#include <charconv>
#include <memory>
#include <utility>

#include "host/base/command_text.h"
#include "host/base/host_error.h"
#include "host/engine/engine.h"
#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/stats.h"

namespace qdt::host {
namespace {

using Words = std::span<const std::string>;

constexpr char kHelp[] =
    "  egn display status|application|statistic\n"
    "  egn debugging debug-level error|warning|info|packet on|off\n"
    "  egn debugging statistic on|off\n"
    "  egn debugging detect-threshold PACKETS\n"
    "  egn reset statistic|all\n"
    "  egn help\n";
constexpr size_t kLabels = 16;  // columns

std::string WordAt(Words words, size_t place) { return place < words.size() ? words[place] : ""; }

void ExpectEnd(Words words, size_t count) {
  if (words.size() > count) throw HostError("too many words; \"egn help\" lists the commands");
}

EgnSwitches::Discards TotalDiscards() {
  constexpr uint32_t kDenied = QDT_STAT_DISCARD + 260;   // application control said no
  constexpr uint32_t kLimited = QDT_STAT_DISCARD + 261;  // or its rate limit did
  const auto totals = std::make_unique<uint64_t[]>(QDT_STAT_COUNTERS);
  QdtSysStatAccumulate(QDT_STAT_KIND_DISCARD, totals.get());
  return {totals[kDenied], totals[kLimited]};
}

// What has been counted while statistics were on.
EgnSwitches::Discards CountedDiscards(const EgnSwitches &egn) {
  EgnSwitches::Discards counted = egn.counted;
  if (!egn.statistics) return counted;
  const EgnSwitches::Discards total = TotalDiscards();
  counted.denied += total.denied - egn.since.denied;
  counted.limited += total.limited - egn.since.limited;
  return counted;
}

struct SessionCount {
  const FieldRef valid, application;
  uint32_t sessions = 0, identified = 0;
};

int32_t CountSession(void *entry, void *context) {
  constexpr int32_t kGoOn = -9;
  auto &count = *static_cast<SessionCount *>(context);
  if (count.valid.Get(entry) == 0) return kGoOn;
  ++count.sessions;
  count.identified += count.application.Get(entry) != 0;
  return kGoOn;
}

std::string ShowStatus(const Engine &, const EgnSwitches &egn) {
  std::string text;
  for (size_t level = 0; level < egn.debugging.size(); ++level)
    AppendValue(&text, std::string("Debug ") + EgnSwitches::kLevels[level], OnOff(egn.debugging[level]),
                kLabels);
  AppendValue(&text, "Statistic", OnOff(egn.statistics), kLabels);
  AppendValue(&text, "DetectThreshold", std::to_string(egn.detectThreshold), kLabels);
  return text;
}

std::string ShowApplications(const Engine &engine, const EgnSwitches &) {
  std::string text;
  for (const auto &[label, table] :
       {std::pair("Applications", "sac_app_mapping"), std::pair("Protocols", "sac_protocol_mapping")}) {
    const TableLayout *layout = engine.layout().FindTable(table);
    uint32_t entries = 0;
    if (layout != nullptr && TbmTblEntryNum(0, layout->spec.id, &entries) != 0) entries = 0;
    AppendValue(&text, label, std::to_string(entries), kLabels);
  }
  return text;
}

std::string ShowStatistic(const Engine &engine, const EgnSwitches &egn) {
  const TableLayout &sessions = engine.layout().Table(kFlowPartitionTable);
  SessionCount count{sessions.At("valid"), sessions.At("sac.app_id")};
  TbmTblTrav(0, sessions.spec.id, CountSession, &count);
  const EgnSwitches::Discards discards = CountedDiscards(egn);
  std::string text;
  AppendValue(&text, "Sessions", std::to_string(count.sessions), kLabels);
  AppendValue(&text, "Identified", std::to_string(count.identified), kLabels);
  AppendValue(&text, "DeniedPackets", std::to_string(discards.denied), kLabels);
  AppendValue(&text, "LimitedPackets", std::to_string(discards.limited), kLabels);
  return text;
}

std::string Display(const Engine &engine, Words words) {
  constexpr const char *kTopics[] = {"status", "application", "statistic"};
  constexpr std::string (*kShow[])(const Engine &, const EgnSwitches &) = {ShowStatus, ShowApplications,
                                                                           ShowStatistic};
  const size_t topic = FindWord("egn display", kTopics, WordAt(words, 0));
  ExpectEnd(words, 1);
  return kShow[topic](engine, engine.switches().egn);
}

std::string SetDebugLevel(EgnSwitches *egn, Words words) {
  const size_t level = FindWord("egn debugging debug-level", EgnSwitches::kLevels, WordAt(words, 0));
  const bool on = ReadSwitch("egn debugging debug-level " + words[0], WordAt(words, 1));
  ExpectEnd(words, 2);
  egn->debugging[level] = on;
  return "debug-level " + words[0] + " is " + OnOff(on) + "\n";
}

std::string SetStatistic(EgnSwitches *egn, Words words) {
  const bool on = ReadSwitch("egn debugging statistic", WordAt(words, 0));
  ExpectEnd(words, 1);
  egn->counted = CountedDiscards(*egn);
  egn->since = TotalDiscards();
  egn->statistics = on;
  return "statistic is " + OnOff(on) + "\n";
}

std::string SetThreshold(EgnSwitches *egn, Words words) {
  std::string problem;
  const auto packets = ParseValue(FieldRef{0, 4}, WordAt(words, 0), &problem);
  if (!packets) throw HostError("egn debugging detect-threshold: " + problem);
  ExpectEnd(words, 1);
  egn->detectThreshold = static_cast<uint32_t>(*packets);
  return "detect-threshold is " + std::to_string(egn->detectThreshold) + "\n";
}

std::string Debugging(EgnSwitches *egn, Words words) {
  constexpr const char *kSwitches[] = {"debug-level", "statistic", "detect-threshold"};
  constexpr std::string (*kSet[])(EgnSwitches *, Words) = {SetDebugLevel, SetStatistic, SetThreshold};
  const size_t which = FindWord("egn debugging", kSwitches, WordAt(words, 0));
  return kSet[which](egn, words.subspan(1));
}

std::string Reset(EgnSwitches *egn, Words words) {
  constexpr const char *kStatistics[] = {"statistic", "all"};
  FindWord("egn reset", kStatistics, WordAt(words, 0));
  ExpectEnd(words, 1);
  egn->counted = {};
  egn->since = TotalDiscards();
  return "statistic is reset\n";
}

}  // namespace

std::string RunEgnCommand(Engine &engine, std::span<const std::string> words) {
  constexpr const char *kCommands[] = {"display", "debugging", "reset", "help"};
  switch (FindWord("egn", kCommands, WordAt(words, 0))) {
    case 0:
      return Display(engine, words.subspan(1));
    case 1:
      return Debugging(&engine.switches().egn, words.subspan(1));
    case 2:
      return Reset(&engine.switches().egn, words.subspan(1));
    default:
      return kHelp;
  }
}

}  // namespace qdt::host
