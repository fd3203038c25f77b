#include "host/commands/trace_command.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>

#include "host/base/command_text.h"
#include "host/base/host_error.h"
#include "host/layout/field.h"

namespace qdt::host {
namespace {

using Words = std::span<const std::string>;

constexpr char kHelp[] =
    "  trace-pkt-nqe set [--OPTION=VALUE ...]\n"
    "      --destination-ip --source-ip --destination-mac --source-mac --destination-port --source-port\n"
    "      --eth-type --protocol --time-out --enable --index\n"
    "  trace-pkt-nqe display index 0|1|2|3\n";
constexpr size_t kLabels = 16;  // columns

struct Option {
  const char *name;
  const char *label;
  FieldRef field;                          // what its value must fit
  std::optional<uint64_t> otherwise = {};  // the value of one that was not set; else it is any
  bool isHexadecimal = false;
};
constexpr FieldRef kPort{0, 2};
constexpr Option kOptions[TraceConditions::kOptions] = {
    {"enable", "Enable", {0, 1, FieldKind::kUnsigned, 0, 1}, 0},
    {"destination-ip", "DestinationIp", {0, 4, FieldKind::kIpv4}},
    {"source-ip", "SourceIp", {0, 4, FieldKind::kIpv4}},
    {"destination-mac", "DestinationMac", {0, 6, FieldKind::kMac}},
    {"source-mac", "SourceMac", {0, 6, FieldKind::kMac}},
    {"destination-port", "DestinationPort", kPort},
    {"source-port", "SourcePort", kPort},
    {"eth-type", "EthType", {0, 2}, {}, true},
    {"protocol", "Protocol", {0, 1}},
    {"time-out", "TimeOut", {0, 4}, 300},
};
constexpr size_t kEnable = 0, kTimeOut = 9;  // places among them

uint64_t ReadValue(const Option &option, const std::string &text) {
  std::string problem;
  const auto value = ParseValue(option.field, option.isHexadecimal ? "0x" + text : text, &problem);
  if (!value) throw HostError(std::string("trace-pkt-nqe set: --") + option.name + ": " + problem);
  return static_cast<uint64_t>(*value);
}

size_t ReadIndex(std::string_view command, std::string_view word) {
  constexpr const char *kIndexes[] = {"0", "1", "2", "3"};
  return FindWord(command, kIndexes, word);
}

// Sets the whole of one index's conditions: what is not given is any.
std::string Set(Switches *switches, Words words) {
  TraceConditions conditions{{}, std::chrono::steady_clock::now()};
  size_t index = 0;
  for (const std::string &word : words) {
    const size_t equals = word.find('=');
    if (!word.starts_with("--") || equals == word.npos)
      throw HostError("trace-pkt-nqe set: " + Quoted(word) + " is no option (--NAME=VALUE)");
    const std::string name = word.substr(2, equals - 2);
    const std::string value = word.substr(equals + 1);
    if (name == "index") {
      index = ReadIndex("trace-pkt-nqe set --index", value);
      continue;
    }
    const auto option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                     [&name](const Option &known) { return name == known.name; });
    if (option == std::end(kOptions))
      throw HostError("trace-pkt-nqe set: unknown option " + Quoted("--" + name) +
                      "; \"trace-pkt-nqe\" lists them");
    conditions.options[option - kOptions] = ReadValue(*option, value);
  }
  switches->traces[index] = conditions;
  return "trace " + std::to_string(index) + " is set\n";
}

std::optional<uint64_t> ValueOf(const TraceConditions &conditions, size_t option) {
  return conditions.options[option] ? conditions.options[option] : kOptions[option].otherwise;
}

// A trace ends when its time is over.
bool IsOn(const TraceConditions &conditions) {
  const std::chrono::seconds timeOut(*ValueOf(conditions, kTimeOut));
  return *ValueOf(conditions, kEnable) != 0 && std::chrono::steady_clock::now() - conditions.set < timeOut;
}

std::string ShownValue(const Option &option, std::optional<uint64_t> value) {
  if (!value) return "any";
  if (!option.isHexadecimal) return ValueText(option.field, *value);
  char text[17];
  std::snprintf(text, sizeof text, "%04llx", static_cast<unsigned long long>(*value));
  return text;
}

std::string Display(const Switches &switches, Words words) {
  constexpr const char *kWhat[] = {"index"};
  FindWord("trace-pkt-nqe display", kWhat, words.empty() ? "" : words[0]);
  const size_t index = ReadIndex("trace-pkt-nqe display index", words.size() < 2 ? "" : words[1]);
  if (words.size() > 2) throw HostError("too many words (trace-pkt-nqe display index 0|1|2|3)");
  const TraceConditions &conditions = switches.traces[index];
  std::string text;
  AppendValue(&text, "Index", std::to_string(index), kLabels);
  for (size_t i = 0; i < std::size(kOptions); ++i) {
    const std::optional<uint64_t> value = i == kEnable ? IsOn(conditions) : ValueOf(conditions, i);
    AppendValue(&text, kOptions[i].label, ShownValue(kOptions[i], value), kLabels);
  }
  return text;
}

}  // namespace

std::string RunTraceCommand(Switches *switches, std::span<const std::string> words) {
  if (words.empty()) return kHelp;
  constexpr const char *kCommands[] = {"set", "display"};
  const bool isSet = FindWord("trace-pkt-nqe", kCommands, words[0]) == 0;
  return isSet ? Set(switches, words.subspan(1)) : Display(*switches, words.subspan(1));
}

std::string RunTraceTailCommand(const TraceTail &tail, std::span<const std::string> words) {
  uint64_t behind = 0;
  const std::string word = words.empty() ? "0" : words[0];
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), behind);
  if (words.size() > 1 || error != std::errc() || end != word.data() + word.size())
    throw HostError("trace-tail takes the number of the last line that is known, or nothing");
  std::string text = std::to_string(tail.last) + "\n";
  const uint64_t before =
      tail.last - tail.lines.size();  // the number of the line before the first that is kept
  for (size_t i = behind > before ? behind - before : 0; i < tail.lines.size(); ++i)
    text += tail.lines[i] + "\n";
  return text;
}

}  // namespace qdt::host
