// nqecli-agent: runs one management command as the management agent does. "nqecli agent" starts it.

#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "host/agent/handlers.h"
#include "host/base/arguments.h"
#include "host/base/host_error.h"
#include "host/base/words.h"
#include "host/library/services.h"
#include "host/omcc/model.h"
#include "tools/nqecli/attach.h"
#include "tools/nqecli/output.h"

namespace qdt::nqecli {
namespace {

using host::Arguments;
using host::Handler;
using host::HostError;
using host::Parameter;
using host::Quoted;

std::string Help() {
  std::string text =
      "usage: nqecli agent HANDLER [NAME=VALUE ...]\n"
      "       nqecli agent -\n"
      "\n"
      "Runs a management command on a running engine, or on a saved arena, and prints what it answers.\n"
      "With - it runs the commands that come on standard input, a line each, in one process.\n"
      "\n";
  for (const Handler &handler : host::Handlers()) text += std::string("  ") + handler.rpc + '\n';
  text += "\nnqecli agent HANDLER --help lists the parameters of one.\n\n" + PlaceHelp();
  return text;
}

std::string HelpOf(const Handler &handler) {
  std::string text = std::string("usage: nqecli agent ") + handler.rpc + " [NAME=VALUE ...]\n";
  const std::vector<Parameter> parameters = host::Model().ParametersOf(handler.rpc);
  if (parameters.empty()) return text + "\nIt takes no parameters.\n";
  text += '\n';
  for (const auto &[name, type] : parameters) AddHelpLine(&text, name, type);
  return text;
}

const Handler &HandlerOf(std::string_view name) {
  if (const Handler *handler = host::FindHandler(name)) return *handler;
  throw HostError("unknown management command " + Quoted(name) + "; \"nqecli agent\" lists them");
}

std::vector<Parameter> ParametersOf(std::span<char *const> words) {
  std::vector<Parameter> parameters;
  for (const char *word : words) {
    const char *equals = std::strchr(word, '=');
    if (equals == nullptr || equals == word) throw HostError(Quoted(word) + " is not of the form NAME=VALUE");
    parameters.emplace_back(std::string(word, equals), equals + 1);
  }
  return parameters;
}

// The data model, and the arena once a command needs it. Both last for all commands of a process, and with
// them what handlers remember from one command to the next.
class Session {
 public:
  explicit Session(const Place &place) : place_(place) {}

  ExitCode Run(std::span<char *const> words);

 private:
  const Place &place_;
  const host::Model model_;
  bool attached_ = false;
};

ExitCode Session::Run(std::span<char *const> words) {
  const Handler &handler = HandlerOf(words[0]);
  const host::OwnedTree request = model_.MakeRequest(handler.rpc, ParametersOf(words.subspan(1)));
  if (!attached_) Attach(place_);
  attached_ = true;
  const host::HandlerAnswer answer = host::RunHandler(handler, request.get());
  if (!WriteAnswer(answer.text)) return kUnusable;
  if (answer.result == 0) return kAnswered;
  const std::string why = host::TakeEngineFailure();
  if (!answer.sent) {
    WriteError(std::string(handler.rpc) + " failed" +
               (why.empty() ? " (" + std::to_string(answer.result) + "); the system log has the reason"
                            : ": " + why));
  }
  return kFailed;
}

// A command a line. Goes on after a command that failed; the first failure decides the exit code.
ExitCode RunLines(const Place &place, std::istream &lines) {
  Session session(place);
  ExitCode worst = kAnswered;
  std::string line;
  while (std::getline(lines, line)) {
    ExitCode code = kUnusable;
    try {
      std::vector<std::string> words = host::SplitWords(line);
      if (words.empty() || words[0].front() == '#') continue;
      std::vector<char *> pointers;
      for (std::string &word : words) pointers.push_back(word.data());
      code = session.Run(pointers);
    } catch (const HostError &error) {
      WriteError(error.what());
    }
    if (worst == kAnswered) worst = code;
  }
  return worst;
}

ExitCode Run(Arguments arguments) {
  Place place;
  while (arguments.AtOption()) {
    if (arguments.Take("--help")) return Print(Help());
    if (!TakePlace(&arguments, &place))
      throw HostError("unknown option " + Quoted(arguments.front()) + "; try --help");
  }
  if (arguments.empty()) return Print(Help());
  if (arguments.Take("-")) return RunLines(place, std::cin);
  const std::span<char *const> words = arguments.rest();
  if (words.size() > 1 && std::string_view(words[1]) == "--help") return Print(HelpOf(HandlerOf(words[0])));
  return Session(place).Run(words);
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run); }
