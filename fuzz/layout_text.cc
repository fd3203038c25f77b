// Layout files.

#include <string_view>

#include "host/base/host_error.h"
#include "host/layout/layout_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  try {
    host::ReadLayouts({{"layout.yaml", text}});
  } catch (const host::HostError &) {
  }
  return 0;
}
