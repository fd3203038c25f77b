#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/base/words.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {

using host::HostError;

// Sends a command line to the running engine and prints its reply.
ExitCode AskEngine(const DataWords &words) {
  if (words.words.empty())
    throw HostError("engine takes a command of the engine; \"nqecli engine help\" lists them");
  if (words.place.saved()) throw HostError("engine takes a running engine, not a saved arena");
  std::vector<char *> line;
  for (const std::string &word : words.words) line.push_back(const_cast<char *>(word.c_str()));
  const host::EngineReply reply = EngineAnswer(Attach(words.place), host::JoinWords(line));
  if (reply.fd.ok()) throw HostError("that reply is a file; use nqecli snapshot FILE");
  if (reply.status == host::kReplyOk) return Print(reply.text);
  WriteError(reply.text.empty() ? "the engine's code is " + std::to_string(reply.status) : reply.text);
  return kFailed;
}

}  // namespace qdt::nqecli
