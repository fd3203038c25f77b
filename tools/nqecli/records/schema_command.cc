#include "host/record/schema.h"

#include <string>

#include "host/base/host_error.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {

ExitCode Schema(const DataWords &words) {
  if (words.words.size() > 1) throw host::HostError("schema takes one table or region, or none; try --help");
  const host::Layout &layout = host::Layout::BuiltIn();
  StandardOut out;
  if (words.words.empty()) {
    WriteWholeSchema(&out, layout);
  } else if (const host::RegionLayout *region = RegionOf(words.words.front())) {
    WriteRegionSchema(&out, layout, *region);
  } else {
    WriteTableSchema(&out, layout, TableOf(words.words.front(), kUseList | kUseRegion));
  }
  out.Put('\n');
  out.Spill();
  return kAnswered;
}

}  // namespace qdt::nqecli
