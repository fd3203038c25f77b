// The words of the diag command, which names a table and its keys, or clears what it counts.

#include "fuzz/lab.h"
#include "host/library/entry_points.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  fuzz::Lab::Get();
  static const host::EntryPoint &diag = *host::FindEntryPoint("diag");
  const fuzz::Words words("diag", data, size);
  host::RunEntryPoint(diag, words.all());
  return 0;
}
