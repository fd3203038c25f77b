#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/base/host_error.h"
#include "host/inspect/export.h"
#include "host/wire/client.h"
#include "host/wire/paths.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/output/new_file.h"
#include "tools/nqecli/snapshot.h"

namespace qdt::nqecli {
namespace {

using host::Arena;
using host::HostError;
using host::RecordSource;

class FileOut : public host::TextOut {
 public:
  FileOut(int fd, std::string file) : fd_(fd), file_(std::move(file)) {}

 private:
  void Write(std::string_view text) override {
    if (DeferredSignals::Arrived()) throw HostError("interrupted, " + file_ + " is not written");
    while (!text.empty()) {
      const ssize_t written = write(fd_, text.data(), text.size());
      if (written > 0) {
        text.remove_prefix(static_cast<size_t>(written));
      } else if (errno != EINTR) {
        throw host::SystemError("cannot write " + file_);
      }
    }
  }

  int fd_;
  std::string file_;
};

// Where the copy of a running engine's arena stands meanwhile: beside the file, which has room for it.
std::string DirectoryFor(const std::string &file, bool isFile) {
  if (!isFile) {
    const char *directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != 0 ? directory : P_tmpdir;
  }
  const size_t slash = file.rfind('/');
  return slash == file.npos ? "." : file.substr(0, std::max<size_t>(slash, 1));
}

// What is exported, all of one moment.
struct Moment {
  host::UniqueFd copy;  // of a running engine's arena
  std::unique_ptr<RecordSource> source;
  host::NatPolicyLines natPolicy;
};

void AskNatPolicy(const std::string &socket, host::NatPolicyLines *policy) {
  try {
    const host::EngineReply reply = host::EngineClient(socket).Run("nat export-nat-policy");
    if (reply.status == host::kReplyOk) {
      policy->entries = reply.text;
    } else {
      policy->unknown = "this engine does not tell it";
    }
  } catch (const HostError &) {
    policy->unknown = "the engine did not answer";
  }
}

Moment OpenMoment(const Place &place, const std::string &file, bool isFile) {
  const host::Layout &layout = host::Layout::BuiltIn();
  Moment moment;
  if (place.saved()) {
    moment.source = RecordSource::OfSnapshot(place.snapshot, layout);
    moment.natPolicy.unknown = "only a running engine can tell it, and this is a saved arena";
    return moment;
  }
  const auto arena =
      Arena::Look(place.arena.empty() ? host::DefaultArena() : place.arena, Arena::Access::kLive);
  moment.copy = NamelessFile(DirectoryFor(file, isFile));
  CopyEngine(*arena, moment.copy.get(), isFile ? file : "standard output");
  AskNatPolicy(arena->socketPath(), &moment.natPolicy);
  moment.source = RecordSource::OfSnapshot("/proc/self/fd/" + std::to_string(moment.copy.get()), layout);
  return moment;
}

}  // namespace

ExitCode Export(const DataWords &words) {
  if (words.words.size() != 1 || words.words.front().empty())
    throw HostError("export takes the name of the file to write, or -; try --help");
  const std::string &file = words.words.front();
  if (file == "-") {
    const Moment moment = OpenMoment(words.place, file, false);
    StandardOut out;
    host::ExportScenario(*moment.source, moment.natPolicy, &out);
    out.Spill();
    return kAnswered;
  }
  const DeferredSignals signals;
  NewFile scenario(file);
  const Moment moment = OpenMoment(words.place, file, true);
  FileOut out(scenario.fd(), file);
  host::ExportScenario(*moment.source, moment.natPolicy, &out);
  out.Spill();
  scenario.Keep();
  return kAnswered;
}

}  // namespace qdt::nqecli
