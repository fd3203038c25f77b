// The words of the library's other command families: the input's first byte says which, the rest are words.

#include "fuzz/lab.h"
#include "host/library/entry_points.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  if (size == 0) return 0;
  fuzz::Lab::Get();
  const auto families = host::EntryPoints();
  const host::EntryPoint &family = families[data[0] % families.size()];
  const fuzz::Words words(family.name, data + 1, size - 1);
  host::RunEntryPoint(family, words.all());
  return 0;
}
