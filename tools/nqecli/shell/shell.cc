#include "tools/nqecli/shell/shell.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/base/program.h"
#include "host/base/time_text.h"
#include "host/base/words.h"
#include "host/layout/value_text.h"
#include "host/library/entry_points.h"
#include "host/wire/paths.h"
#include "tools/nqecli/command.h"
#include "tools/nqecli/output/shown_text.h"
#include "tools/nqecli/shell/answer.h"

namespace qdt::nqecli {
namespace {

using host::HostError;

struct OwnWord {
  std::string_view name, about;
};
constexpr OwnWord kOwnWords[] = {
    {"help", "the commands; help COMMAND tells more of one"},
    {"exit", "leave the shell; so do quit and Ctrl-D"},
    {"quit", "leave the shell"},
};

std::vector<char *> Pointers(std::vector<std::string> *words) {
  std::vector<char *> pointers;
  for (std::string &word : *words) pointers.push_back(word.data());
  return pointers;
}

std::string Overview() {
  std::string text;
  for (const host::EntryPoint &entry : host::EntryPoints())
    AddHelpLine(&text, std::string(entry.name) + " WORDS...", entry.help);
  for (const Command &command : Commands()) AddHelpLine(&text, command.usage, command.help);
  for (const OwnWord &word : kOwnWords) AddHelpLine(&text, std::string(word.name), std::string(word.about));
  text += "\nBehind any command:\n";
  for (const FilterWord &word : kFilterWords)
    AddHelpLine(&text, "| " + std::string(word.name) + std::string(word.takes), std::string(word.about));
  text += "\nTab completes, ? shows what may follow, Ctrl-R searches the history, Ctrl-C ends an answer.\n";
  return text;
}

// Whether the words say where to ask.
bool NamesPlace(const std::vector<std::string> &words) {
  return std::ranges::any_of(words, [](std::string_view word) {
    return word.starts_with("--arena") || word.starts_with("--snapshot");
  });
}

// Whether a command is run by a process of its own: what may take its time must be ended by Ctrl-C at once,
// and what works on another arena cannot have it where this one's is.
bool TakesProcess(const std::vector<std::string> &words) {
  const Command *command = FindCommand(words.front());
  if (command != nullptr && (command->companion != nullptr || command->isLong)) return true;
  return NamesPlace(words);
}

[[noreturn]] void BeChild(const Place &place, std::vector<std::string> *words, int out) {
  SetOutputSink(nullptr);
  dup2(out, STDOUT_FILENO);
  signal(SIGINT, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  int code = kUnusable;
  try {
    std::vector<char *> pointers = Pointers(words);
    pointers.push_back(nullptr);
    code = RunCommand(NamesPlace(*words) ? Place() : place, std::span(pointers).first(words->size()));
  } catch (const OutputClosed &) {
  } catch (const std::exception &error) {
    WriteError(host::LineOf(error));
  }
  std::fflush(stdout);
  _exit(code);
}

// Runs the command in a child, whose answer goes where this one's would.
void RunInChild(const Place &place, std::vector<std::string> *words, Answer *answer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw host::SystemError("cannot start the command");
  host::UniqueFd from(ends[0]), to(ends[1]);
  // Ctrl-C before the child is its own waits until it is, and ends it then.
  sigset_t interrupt, before;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &before);
  const pid_t child = fork();
  if (child != 0) sigprocmask(SIG_SETMASK, &before, nullptr);
  if (child < 0) throw host::SystemError("cannot start the command");
  if (child == 0) BeChild(place, words, to.get());
  to = {};
  const auto wait = [&] {
    from = {};
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  };
  try {
    char part[65536];
    ssize_t size = 0;
    while ((size = read(from.get(), part, sizeof(part))) > 0 || (size < 0 && errno == EINTR)) {
      if (size > 0) answer->Write({part, static_cast<size_t>(size)});
    }
  } catch (...) {
    kill(child, SIGTERM);
    wait();
    throw;
  }
  wait();
}

// Where the sink is an answer, for as long as this lives.
class SinkScope {
 public:
  explicit SinkScope(OutputSink *sink) { SetOutputSink(sink); }
  ~SinkScope() { SetOutputSink(nullptr); }
};

// Options of a command stand before it as well; the library's families know none.
void PutCommandFirst(std::vector<std::string> *words) {
  constexpr std::array<std::string_view, 3> kOfPlaces = {"--arena", "--snapshot", "--trust"};
  size_t options = 0;
  while (options < words->size() && (*words)[options].starts_with('-')) {
    const std::string &word = (*words)[options];
    options += OptionHasValue(word) || std::ranges::find(kOfPlaces, word) != kOfPlaces.end() ? 2 : 1;
  }
  if (options >= words->size() || host::FindEntryPoint((*words)[options]) != nullptr) return;
  const auto command = words->begin() + static_cast<std::ptrdiff_t>(options);
  std::rotate(words->begin(), command, command + 1);
}

void RunWords(const Place &place, std::vector<std::string> *words, Answer *answer) {
  const auto own = [](std::string_view word) { return std::ranges::find(kOwnWords, word, &OwnWord::name); };
  if (words->front() == "help" && words->size() == 1) return (void)Print(Overview());
  if (words->front() == "help") {
    if (const OwnWord *asked = own((*words)[1]); asked != std::end(kOwnWords))
      return (void)Print(std::string(asked->name) + ": " + std::string(asked->about));
    *words = {(*words)[1], "--help"};
  } else if (own(words->front()) != std::end(kOwnWords)) {
    throw HostError(words->front() + " takes no words");
  }
  if (TakesProcess(*words)) return RunInChild(place, words, answer);
  std::vector<char *> pointers = Pointers(words);
  pointers.push_back(nullptr);
  RunCommand(place, std::span(pointers).first(words->size()));
}

}  // namespace

Shell::Shell(const Place &place)
    : place_(place), editor_("nqe> ", [this](std::string_view typed) { return Follow(typed); }) {
  for (const std::string &line : file_.Load()) editor_.Remember(line);
  CatchInterrupts();
}

// Where one is: of several engines of a machine the prompt tells none.
void Shell::Greet() const {
  try {
    const host::ArenaHeader &header = *Attach(place_).header();
    std::string text = place_.saved() ? "saved copy " : "engine ";
    if (!place_.saved()) text += std::to_string(header.enginePid) + " at ";
    host::AppendEscaped(place_.saved()         ? place_.snapshot
                        : place_.arena.empty() ? host::DefaultArena()
                                               : place_.arena,
                        &text);
    if (!place_.saved()) text += ", since " + host::UtcText(header.startTime);
    text += "\n? tells what may follow, help the commands\n";
    std::fputs(text.c_str(), stdout);
  } catch (const HostError &error) {
    WriteError(error.what());
  }
}

void Shell::Run(const std::string &first) {
  if (first.empty()) Greet();
  if (!first.empty() && !RunLine(first)) return;
  for (;;) {
    try {
      const std::optional<std::string> line = editor_.Read();
      if (!line) break;
      if (line->find_first_not_of(" \t") == line->npos) continue;
      editor_.Remember(*line);
      file_.Add(*line);
      if (!RunLine(*line)) return;
    } catch (const HostError &error) {
      WriteError(error.what());
    }
  }
  std::fputs("\n", stdout);
}

// False when the shell is to end.
bool Shell::RunLine(const std::string &line) {
  const size_t from = line.find_first_not_of(" \t");
  const std::string word = line.substr(from, line.find_last_not_of(" \t") + 1 - from);
  if (word == "exit" || word == "quit") return false;
  ForgetInterrupt();
  try {
    RunCommandLine(line);
  } catch (const EngineReplaced &) {
    throw StartAgain{line};
  } catch (const OutputClosed &) {
    std::fputs(Interrupted() ? "\n" : "", stdout);
  } catch (const std::exception &error) {
    WriteError(host::LineOf(error));
  }
  std::fflush(stdout);
  ForgetInterrupt();
  return true;
}

void Shell::RunCommandLine(const std::string &line) {
  ShellLine read = ReadShellLine(line);
  if (read.words.empty()) return;
  // Wherever it stands: the answer is this process's to show, whoever gives it.
  SetRaw(std::erase(read.words, "--raw") != 0);
  if (read.words.empty()) return;
  CheckKeptEngine();
  PutCommandFirst(&read.words);
  // What is watched is shown when it happens, and not when there is a screenful of it.
  Answer answer(read.filters, read.words.front() == "watch" ? "" : PagerCommand());
  const SinkScope scope(&answer);
  try {
    RunWords(place_, &read.words, &answer);
  } catch (const OutputClosed &) {
    // A filter has enough: others may still have something to say. After Ctrl-C none has.
    if (Interrupted()) throw;
  }
  answer.Finish();
}

Following Shell::Follow(std::string_view typed) const {
  // The last command or filter, its words, and the one that is being typed.
  char quote = 0;
  size_t part = 0, word = 0, filters = 0;
  for (size_t i = 0; i < typed.size(); ++i) {
    const char c = typed[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '|') {
      part = word = i + 1;
      ++filters;
    } else if (c == ' ' || c == '\t') {
      word = i + 1;
    }
  }
  Following follow;
  if (quote != 0) return follow;
  std::vector<std::string> before;
  try {
    before = host::SplitWords(typed.substr(part, word - part));
  } catch (const HostError &) {
    return follow;
  }
  const std::string current(typed.substr(word));
  follow.typed = current.size();
  if (part != 0) {
    for (const FilterWord &filter : kFilterWords) {
      if (before.empty() && filter.name.starts_with(current) && (filters == 1 || !filter.onlyFirst))
        follow.candidates.push_back({std::string(filter.name), std::string(filter.about)});
    }
    return follow;
  }
  try {
    const bool isHelp = before.size() == 1 && before.front() == "help";
    follow.candidates = nqecli::Complete(place_, isHelp ? std::vector<std::string>{} : before, current);
    // Words with blanks would have to stand in quotes.
    std::erase_if(follow.candidates,
                  [](const Candidate &each) { return each.word.find(' ') != std::string::npos; });
    for (const OwnWord &own : kOwnWords) {
      if (before.empty() && own.name.starts_with(current))
        follow.candidates.push_back({std::string(own.name), std::string(own.about)});
    }
  } catch (const HostError &) {  // nothing can be offered then
  }
  return follow;
}

}  // namespace qdt::nqecli
