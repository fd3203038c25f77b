// Command lines as the engine gets them on its socket, one on each line: the library's families (pkt_trace,
// pmc, perf, diag) and the engine's own commands.

#include <algorithm>
#include <string_view>

#include "fuzz/lab.h"
#include "host/base/host_error.h"
#include "host/commands/commands.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  fuzz::Lab &lab = fuzz::Lab::Get();
  std::string_view rest(reinterpret_cast<const char *>(data), size);
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    try {
      host::RunCommandLine(lab.engine(), std::string(line));
    } catch (const host::HostError &) {
    }
  }
  return 0;
}
