#include "host/base/host_error.h"
#include "tools/nqecli/commands/snapshot_info.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/snapshot.h"

namespace qdt::nqecli {

using host::HostError;

ExitCode Snapshot(const DataWords &words) {
  const bool asJson = words.format == host::RecordFormat::kJson;
  if (!words.info.empty()) {
    if (!words.words.empty()) throw HostError("snapshot --info takes one file and --json; try --help");
    if (words.place.saved() && !words.place.fromEnvironment)
      throw HostError("snapshot --info names its file itself; leave --snapshot out");
    return PrintSnapshotInfo(words.info, asJson);
  }
  if (asJson) throw HostError("snapshot takes --json only with --info FILE; try --help");
  if (words.words.size() != 1 || words.words.front().empty())
    throw HostError("snapshot takes the name of the file to write; try --help");
  if (words.place.saved())
    throw HostError("snapshot takes a running engine; a saved arena can just be copied");
  SaveSnapshot(Attach(words.place), words.words.front());
  return kAnswered;
}

}  // namespace qdt::nqecli
