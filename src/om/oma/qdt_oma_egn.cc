#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <tuple>

#include "qdt/oma.h"
#include "src/om/common/log.h"
#include "src/om/common/names.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"
#include "src/om/oma/command_line.h"
#include "src/om/oma/request.h"

// Requests that come to one engine command line each.
namespace qdt {
namespace {

// Which accessor reads a parameter is told by the type of its value.
bool Read(AgentRequest request, const char *name, const char **value) {
  *value = FindText(request, name);
  return *value != nullptr;
}
bool Read(AgentRequest request, const char *name, uint32_t *value) {
  return QdtOmaParseU32(request, name, value) == kDone;
}

// Runs the command line that `print` makes of `values`.
int32_t RunLine(void (*print)(Text &text, const void *values), const void *values) {
  char *buffer = nullptr;
  if (QdtOmaAllocCmdline(&buffer) != kDone) return kFailed;
  OwnedText line(buffer);
  Text text(buffer, kCommandLineRoom);
  print(text, values);
  return text.failed() ? kFailed : QdtOmaRunOwnedCmdline(line.release());
}

// Runs a line of the application-identification engine: the format F with the values of the parameters, all
// of which are needed. Without one of them the engine is asked for its help.
template <format::Format F, typename T, size_t N>
int32_t RunEgn(AgentRequest request, const char *const (&parameters)[N]) {
  using Values = std::array<T, N>;
  Values values{};
  for (size_t i = 0; i < N; ++i) {
    // Releasing this line is left to the allocator, which knows what is not its own.
    if (!Read(request, parameters[i], &values[i])) return QdtOmaRunOwnedCmdline("egn help");
  }
  const auto print = [](Text &text, const void *read) {
    std::apply([&text](auto... value) { text.Print<F>(value...); }, *static_cast<const Values *>(read));
  };
  return RunLine(print, &values);
}

// A command of the performance tracer that a word of the request selects.
struct Choice {
  FixedText<7> word;
  FixedText<23> line;
};
constexpr Choice kOrders[] = {{"average", "perf task topdown avg"}, {"total", "perf task topdown total"}};
constexpr Choice kTraceModes[] = {
    {"cycle", "perf task set time"}, {"icache", "perf task set icache"}, {"dcache", "perf task set dcache"}};

// The choice that the parameter names; `other` for every other word, `absent` without the parameter.
const char *SelectLine(AgentRequest request, const char *parameter, std::span<const Choice> choices,
                       const char *other, const char *absent) {
  const char *const word = FindText(request, parameter);
  if (word == nullptr) return absent;
  for (const Choice &choice : choices) {
    if (std::strcmp(choice.word.text, word) == 0) return choice.line.text;
  }
  return other;
}

int32_t BuildNatGroupUsage(char *buffer, int32_t capacity, AgentRequest request) {
  Text text(buffer, static_cast<uint32_t>(capacity));
  text.Print<"nat query-nat-address-group-usage ">();
  if (uint32_t id = 0; Read(request, "id", &id)) text.Print<"id %u">(id);
  if (!text.failed()) return kDone;
  QDT_LOG_ERROR("sprintf nat address group id failed\n");
  return kFailed;
}

}  // namespace
}  // namespace qdt

int32_t QdtOmaEgnInfoQueryProc(AgentRequest request) {
  return qdt::RunEgn<"egn display %s", const char *>(request, {"info-type"});
}

int32_t QdtOmaEgnDbgSwitchSetProc(AgentRequest request) {
  return qdt::RunEgn<"egn debugging debug-level %s %s", const char *>(request, {"level", "switch"});
}

int32_t QdtOmaEgnStatSwitchSetProc(AgentRequest request) {
  return qdt::RunEgn<"egn debugging statistic %s", const char *>(request, {"switch"});
}

int32_t QdtOmaEgnDetectThresholdSetProc(AgentRequest request) {
  return qdt::RunEgn<"egn debugging detect-threshold %u", uint32_t>(request, {"threshold-value"});
}

int32_t QdtOmaEgnStatResetProc(AgentRequest request) {
  return qdt::RunEgn<"egn reset %s", const char *>(request, {"stat-type"});
}

int32_t QdtOmaPerfTaskQueryProc(AgentRequest request) {
  return QdtOmaRunCmdline(
      qdt::SelectLine(request, "sort-by-cycles", qdt::kOrders, "perf task", "perf task show"));
}

int32_t QdtOmaPerfTaskResetProc(AgentRequest /*request*/) { return QdtOmaRunCmdline("perf task clear"); }

int32_t QdtOmaPerfTaskSetProc(AgentRequest request) {
  return QdtOmaRunCmdline(qdt::SelectLine(request, "trace-mode", qdt::kTraceModes, "perf task", "perf task"));
}

int32_t QdtOmaPerfModeSetProc(AgentRequest request) {
  return QdtOmaRunCmdline(QdtOmaGetBool(request, "enable") != 0 ? "perf-mode enable" : "perf-mode disable");
}

int32_t QdtOmaNatGroupUsageProc(AgentRequest request) {
  return QdtOmaChanByName(request, qdt::BuildNatGroupUsage);
}
