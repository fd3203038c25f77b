#include "tools/nqecli/output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <string>

#include "host/base/fd.h"

namespace qdt::nqecli {
namespace {

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(written);
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

bool WriteAnswer(std::string_view text) {
  if (text.empty()) return true;
  if (WriteAll(STDOUT_FILENO, text) && (text.back() == '\n' || WriteAll(STDOUT_FILENO, "\n"))) return true;
  // Whoever closes a pipe early has seen enough.
  if (errno != EPIPE) WriteError(std::string("cannot write the answer: ") + std::strerror(errno));
  return false;
}

void WriteError(std::string_view text) {
  std::string line = "nqecli: ";
  line += text;
  line += '\n';
  WriteAll(STDERR_FILENO, line);
}

int RunTool(int argc, char **argv, ExitCode (*run)(host::Arguments arguments)) {
  host::KeepStandardFds();
  // What these would end is an error of a system call instead, which cleans up and says so.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return run(host::Arguments(argc, argv));
  } catch (const std::exception &error) {
    WriteError(error.what());
    return kUnusable;
  }
}

}  // namespace qdt::nqecli
