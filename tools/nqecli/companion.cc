#include "tools/nqecli/companion.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <vector>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

void Execute(std::vector<std::string> arguments) {
  std::vector<char *> pointers;
  for (std::string &argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv(pointers.front(), pointers.data());
}

}  // namespace

std::string PathOf(const char *name) {
  return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}

void RunCompanion(const Place &place, const char *name, const char *needs, std::span<char *const> words) {
  std::vector<std::string> arguments{PathOf(name)};
  if (!place.arena.empty()) arguments.push_back("--arena=" + place.arena);
  if (place.saved()) arguments.push_back("--snapshot=" + place.snapshot);
  for (const std::string &user : place.trusted) arguments.push_back("--trust=" + user);
  if (IsRaw()) arguments.push_back("--raw");
  arguments.insert(arguments.end(), words.begin(), words.end());
  const std::string companion = arguments.front();
  Execute(std::move(arguments));
  throw host::HostError("cannot run " + companion + " (" + std::strerror(errno) + "); it is built where " +
                        needs + " is installed");
}

std::string OutputOfCompanion(const char *name, std::span<const std::string> words) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return "";
  host::UniqueFd from(ends[0]), to(ends[1]);
  std::vector<std::string> arguments{PathOf(name)};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(to.get(), STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    Execute(std::move(arguments));
    _exit(127);
  }
  to = {};
  std::string text;
  char part[4096];
  ssize_t size = 0;
  while (child > 0 && ((size = read(from.get(), part, sizeof(part))) > 0 || (size < 0 && errno == EINTR))) {
    if (size > 0) text.append(part, static_cast<size_t>(size));
  }
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return text;
}

}  // namespace qdt::nqecli
