#include "tools/nqecli/snapshot.h"

#include "host/base/host_error.h"
#include "host/wire/snapshot_copy.h"
#include "tools/nqecli/output/new_file.h"

namespace qdt::nqecli {

void CopyEngine(const host::Arena &arena, int to, const std::string &file) {
  if (!host::CopySnapshot(arena, to, "cannot write " + file, DeferredSignals::Arrived))
    throw host::HostError("interrupted, " + file + " is not written");
}

void SaveSnapshot(const host::Arena &arena, const std::string &file) {
  const DeferredSignals signals;
  NewFile copy(file);
  CopyEngine(arena, copy.fd(), file);
  copy.Keep();
}

}  // namespace qdt::nqecli
