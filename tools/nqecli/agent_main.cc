// nqecli-agent: runs one management command as the management agent does. "nqecli agent" starts it.

#include <algorithm>
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
#include "tools/nqecli/data_words.h"
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
  text += "\nnqecli agent HANDLER --help tells what one does and takes.\n\n" + PlaceHelp();
  return text;
}

// The lines of a description, further in.
void AppendIndented(std::string_view lines, std::string_view indent, std::string *text) {
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    *text += indent;
    *text += lines.substr(0, end);
    *text += '\n';
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
}

// A request with a value that the parameter's type takes.
std::string ExampleOf(const std::vector<Parameter> &parameters) {
  for (const auto &[name, type] : parameters) {
    if (type.starts_with("0..")) return ' ' + name + "=1";
    if (const size_t end = type.find('|'); end != type.npos) return ' ' + name + '=' + type.substr(0, end);
  }
  return "";
}

// All that the data model says of a command.
std::string HelpOf(const Handler &handler) {
  const host::Model model;
  const std::vector<Parameter> parameters = model.ParametersOf(handler.rpc);
  std::string text = std::string("usage: nqecli agent ") + handler.rpc +
                     (parameters.empty() ? "" : " [NAME=VALUE ...]") + " [OPTIONS]\n\n";
  AppendIndented(model.AboutOf(handler.rpc), "", &text);
  text += parameters.empty() ? "\nIt takes no parameters.\n" : "\nparameters:\n";
  for (const auto &[name, type] : parameters) {
    AddHelpLine(&text, name, type);
    AppendIndented(model.AboutOf(handler.rpc, name), "      ", &text);
    for (const auto &[word, about] : model.WordsOf(handler.rpc, name)) {
      AppendIndented(word + ": " + about, "        ", &text);
    }
  }
  text += "\noptions:\n" + PlaceHelp();
  text += std::string("\nexamples:\n  nqecli agent ") + handler.rpc + ExampleOf(parameters) + '\n';
  text +=
      "\nexit codes: 0 an answer, 1 the command failed or only says what was wrong, 2 bad usage or no "
      "engine\n";
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
  if (answer.result == 0) return answer.refused ? kFailed : kAnswered;
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
  DataWords read({}, arguments.rest(), kOptionsOfOthers);
  const bool asksForHelp = std::erase(read.words, "--help") != 0;
  if (read.words.empty()) return Print(Help());
  const std::string &first = read.words.front();
  if (first.size() > 1 && first.front() == '-')
    throw HostError("unknown option " + Quoted(first) + "; try --help");
  if (asksForHelp) return Print(HelpOf(HandlerOf(first)));
  TakeEnvironment(&read.place);
  if (first == "-") return RunLines(read.place, std::cin);
  std::vector<char *> words;
  for (std::string &word : read.words) words.push_back(word.data());
  return Session(read.place).Run(words);
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run); }
