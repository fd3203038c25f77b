// nqecli-agent: runs one management command as the management agent does. "nqecli agent" starts it.

#include <unistd.h>

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
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {
namespace {

using host::Arguments;
using host::Handler;
using host::HostError;
using host::Parameter;
using host::Quoted;

constexpr char kExitCodes[] =
    "\nexit codes: 0 an answer, 1 the command failed or only says what was wrong, 2 bad usage or no "
    "engine\n";
constexpr char kDryRun[] = "--dry-run", kYes[] = "--yes";

// The first statement of a description, in one line.
std::string FirstStatement(std::string text) {
  std::ranges::replace(text, '\n', ' ');
  if (text.ends_with('.')) text.pop_back();
  return text.substr(0, std::min(text.find(". "), text.find("; ")));
}

std::string ResetHelp(std::string_view of) {
  std::string text;
  AddHelpLine(&text, kDryRun, std::string(of) + "end nothing, and tell what would end");
  AddHelpLine(&text, kYes, std::string(of) + "without a filter, do not ask");
  return text;
}

std::string Help() {
  std::string text =
      "usage: nqecli agent HANDLER [NAME=VALUE ...]\n"
      "       nqecli agent -\n"
      "\n"
      "Runs a management command on a running engine, or on a saved arena, and prints what it answers.\n"
      "With - it runs the commands that come on standard input, a line each, in one process.\n"
      "\n";
  const host::Model model;
  for (const Handler &handler : host::Handlers())
    AddHelpLine(&text, handler.rpc, FirstStatement(model.AboutOf(handler.rpc)));
  text += "\nnqecli agent HANDLER --help tells what one does and takes.\n\n" + PlaceHelp();
  text += ResetHelp("of a reset: ");
  text += "\nexamples:\n  nqecli agent tbl-usage\n  nqecli agent reset-session protocol=17 --dry-run\n";
  return text + kExitCodes;
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
  text += "\noptions:\n";
  if (handler.ends != nullptr) text += ResetHelp("");
  text += PlaceHelp();
  text += std::string("\nexamples:\n  nqecli agent ") + handler.rpc + ExampleOf(parameters) + '\n';
  return text + kExitCodes;
}

const Handler &HandlerOf(std::string_view name) {
  if (const Handler *handler = host::FindHandler(name)) return *handler;
  throw HostError("unknown management command " + Quoted(name) + "; \"nqecli agent\" lists them");
}

std::vector<Parameter> ParametersOf(const std::vector<char *> &words) {
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

  // `mayAsk`: standard input is not where the commands come from.
  ExitCode Run(std::span<char *const> words, bool mayAsk);

 private:
  void ListSessions(std::vector<Parameter> parameters);

  const Place &place_;
  const host::Model model_;
  bool attached_ = false;
};

// What protects people from a slip in a command that ends things.
struct Care {
  bool dryRun = false;
  bool yes = false;
};

// Takes these words out of the parameters.
Care TakeCare(const Handler &handler, std::vector<char *> *words) {
  Care care;
  const auto take = [&](const char *option) {
    const auto isOption = [option](const char *word) { return std::strcmp(word, option) == 0; };
    const bool given = std::erase_if(*words, isOption) != 0;
    if (given && handler.ends == nullptr)
      throw HostError(std::string(option) + " is for reset-session and reset-server-map");
    return given;
  };
  care.dryRun = take(kDryRun);
  care.yes = take(kYes);
  return care;
}

// "1 session", "3 sessions"
std::string Counted(uint64_t number, const char *what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

// Who names no filter may have forgotten it.
void AskBeforeAll(const Handler &handler, bool mayAsk) {
  const std::string all = std::string("without a filter ") + handler.rpc + " ends every " + handler.ends;
  if (!mayAsk || isatty(STDIN_FILENO) == 0)
    throw HostError(all + " (name a filter, or say --yes; --dry-run tells how many)");
  WriteAside(all + ". Go on? [y/N] ");
  std::string reply;
  std::getline(std::cin, reply);
  if (reply != "y" && reply != "Y" && reply != "yes") throw HostError("nothing is ended");
}

// The sessions that a reset with these parameters ends, as far as one list has room for them.
void Session::ListSessions(std::vector<Parameter> parameters) {
  std::erase_if(parameters, [](const Parameter &one) { return one.first == "session-number"; });
  parameters.emplace_back("session-number", "255");
  const Handler &query = HandlerOf("query-session");
  const host::OwnedTree request = model_.MakeRequest(query.rpc, parameters);
  WriteOut(host::RunHandler(query, request.get()).text);
}

ExitCode Session::Run(std::span<char *const> given, bool mayAsk) {
  const Handler &handler = HandlerOf(given[0]);
  std::vector<char *> words(given.begin() + 1, given.end());
  const Care care = TakeCare(handler, &words);
  const std::vector<Parameter> parameters = ParametersOf(words);
  const host::OwnedTree request = model_.MakeRequest(handler.rpc, parameters);
  if (!attached_) Attach(place_);
  attached_ = true;
  const bool ends = handler.ends != nullptr && !place_.saved();
  if (ends && handler.check != nullptr) handler.check(request.get());
  // Who may not write at all is told so instead.
  const bool mayEnd = ends && !care.dryRun && host::Arena::Current()->Writable();
  if (mayEnd && !care.yes && !handler.hasFilter(request.get())) AskBeforeAll(handler, mayAsk);
  const host::HandlerAnswer answer = host::RunHandler(handler, request.get(), care.dryRun);
  if (ends && care.dryRun && std::strcmp(handler.rpc, "reset-session") == 0 && answer.ended != 0)
    ListSessions(parameters);
  if (!WriteAnswer(answer.text)) return kUnusable;
  if (ends && answer.result == 0)
    WriteAside(Counted(answer.ended, handler.ends) + (care.dryRun ? " would end\n" : " told to end\n"));
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
      code = session.Run(pointers, false);
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
  // Options of a handler may stand before it.
  std::stable_partition(read.words.begin(), read.words.end(),
                        [](const std::string &word) { return word != kDryRun && word != kYes; });
  if (read.words.empty()) return Print(Help());
  const std::string &first = read.words.front();
  if (first.size() > 1 && first.front() == '-')
    throw HostError("unknown option " + Quoted(first) + "; try --help");
  if (asksForHelp) return Print(HelpOf(HandlerOf(first)));
  TakeEnvironment(&read.place);
  if (first == "-") return RunLines(read.place, std::cin);
  std::vector<char *> words;
  for (std::string &word : read.words) words.push_back(word.data());
  return Session(read.place).Run(words, true);
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Run); }
