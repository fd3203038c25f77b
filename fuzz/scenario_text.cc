// Scenario files: read to the end behind every mistake, and once as a start of the engine reads them.

#include <string_view>

#include "fuzz/lab.h"
#include "host/base/host_error.h"
#include "host/scenario/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  try {
    host::Scenario::FromText(fuzz::ScratchDirectory() + "/site.yaml", text, host::Layout::BuiltIn());
  } catch (const host::HostError &) {
  }
  const fuzz::MemoryFile file(data, size);
  host::Mistakes mistakes(20);
  std::vector<std::string> warnings;
  try {
    host::Scenario::Check(file.path(), host::Layout::BuiltIn(), &mistakes, 20, &warnings);
  } catch (const host::HostError &) {
  } catch (const host::Mistakes::Enough &) {
  }
  return 0;
}
