#include "tools/nqecli/output/output.h"

#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iterator>
#include <string>
#include <utility>

#include "host/base/fd.h"
#include "host/base/program.h"
#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

OutputSink *g_sink = nullptr;

bool IsTerminal() {
  static const bool isTerminal = isatty(STDOUT_FILENO) != 0;
  return isTerminal;
}

// A remark as standard error gets it: it may name what an engine or a file told. `room` keeps it where it
// changes; the others take no memory.
std::string_view RemarkShown(std::string_view text, std::string *room) {
  const bool forTerminal = isatty(STDERR_FILENO) != 0;
  if (IsHarmless(text, forTerminal)) return text;
  std::string carry;
  *room = ShownText(text, forTerminal, &carry);
  return *room += EscapedBytes(carry);
}

std::string g_carry;  // the beginning of a character that is to be written

// The text as standard output gets it; `room` keeps it where it changes. Whether that is a terminal is only
// asked where it matters: most answers are plain, and to ask takes less than to look at a long one.
std::string_view Shown(std::string_view text, std::string *room) {
  constexpr size_t kShort = 4096;
  if (text.size() <= kShort && g_carry.empty() && IsHarmless(text, true)) return text;
  const bool forTerminal = IsTerminal();
  if (g_carry.empty() && IsHarmless(text, forTerminal)) return text;
  *room = ShownText(text, forTerminal, &g_carry);
  return *room;
}

// Writes the texts, one behind the other, without taking memory.
bool WriteAll(int fd, std::array<std::string_view, 3> texts) {
  while (std::ranges::any_of(texts, [](std::string_view text) { return !text.empty(); })) {
    iovec pieces[texts.size()];
    std::ranges::transform(texts, pieces, [](std::string_view text) {
      return iovec{const_cast<char *>(text.data()), text.size()};
    });
    const ssize_t written = writev(fd, pieces, std::size(pieces));
    if (written >= 0) {
      auto left = static_cast<size_t>(written);
      for (std::string_view &text : texts) {
        const size_t ofText = std::min(left, text.size());
        text.remove_prefix(ofText);
        left -= ofText;
      }
    } else if (errno == EAGAIN) {
      // Somebody else made the terminal or pipe non-blocking.
      pollfd entry{fd, POLLOUT, 0};
      poll(&entry, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

void SetOutputSink(OutputSink *sink) { g_sink = sink; }
const OutputSink *CurrentSink() { return g_sink; }

bool WriteAnswer(std::string_view text) {
  if (text.empty()) return true;
  if (g_sink != nullptr) {
    WriteOut(text);
    if (text.back() != '\n') g_sink->Write("\n");
    return true;
  }
  const std::string_view end = text.back() == '\n' ? "" : "\n";
  std::string shown;
  text = Shown(text, &shown);
  // A character that the answer breaks off in.
  if (!g_carry.empty()) {
    shown += EscapedBytes(std::exchange(g_carry, {}));
    text = shown;
  }
  if (WriteAll(STDOUT_FILENO, {text, end})) return true;
  // Whoever closes a pipe early has seen enough.
  if (errno != EPIPE) WriteError(std::string("cannot write the answer: ") + std::strerror(errno));
  return false;
}

void WriteOut(std::string_view text) {
  // What is for the terminal in the end is the sink's to know.
  if (g_sink != nullptr)
    return g_sink->Write(IsHarmless(text, false) ? text : ShownText(text, false, &g_carry));
  std::string shown;
  WriteScreen(Shown(text, &shown));
}

void WriteScreen(std::string_view text) {
  if (WriteAll(STDOUT_FILENO, {text})) return;
  if (errno == EPIPE) throw OutputClosed();
  throw host::SystemError("cannot write the answer");
}

void WriteAside(std::string_view lines) {
  std::string room;
  if (!lines.empty()) WriteAll(STDERR_FILENO, {RemarkShown(lines, &room)});
}

void WriteError(std::string_view text) {
  std::string room;
  WriteAll(STDERR_FILENO, {"nqecli: ", RemarkShown(text, &room), "\n"});
}

int RunTool(int argc, char **argv, ExitCode (*run)(host::Arguments arguments)) {
  host::BeginProgram("nqecli");
  // What these would end is an error of a system call instead, which cleans up and says so.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  try {
    return run(host::Arguments(argc, argv));
  } catch (const OutputClosed &) {
    return kUnusable;
  } catch (const std::exception &error) {
    WriteError(host::LineOf(error));
    return kUnusable;
  }
}

}  // namespace qdt::nqecli
