#include "tools/nqecli/shell/history.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "host/base/fd.h"
#include "tools/nqecli/output/output.h"

namespace qdt::nqecli {
namespace {

constexpr size_t kKept = 1000;
constexpr size_t kMost = 2 * kKept;
constexpr size_t kLongest = 4096;

// The directories on the way to the file, for their owner alone.
void MakeDirectories(const std::string &path) {
  for (size_t at = path.find('/', 1); at != path.npos; at = path.find('/', at + 1))
    mkdir(path.substr(0, at).c_str(), 0700);
}

bool WriteLines(const std::string &path, const std::string &lines, int flags) {
  const host::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | flags, 0600));
  return file.ok() && write(file.get(), lines.data(), lines.size()) == static_cast<ssize_t>(lines.size());
}

}  // namespace

HistoryFile::HistoryFile() {
  const char *state = std::getenv("XDG_STATE_HOME");
  const char *home = std::getenv("HOME");
  if (state != nullptr && *state == '/') {
    path_ = std::string(state) + "/nqe/history";
  } else if (home != nullptr && *home == '/') {
    path_ = std::string(home) + "/.local/state/nqe/history";
  }
}

std::vector<std::string> HistoryFile::Load() {
  std::vector<std::string> lines;
  struct stat status = {};
  if (path_.empty() || stat(path_.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return lines;
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.size() <= kLongest) lines.push_back(std::move(line));
  }
  if (lines.size() <= kMost) return lines;
  lines.erase(lines.begin(), lines.end() - kKept);
  std::string kept;
  for (const std::string &line : lines) kept += line + '\n';
  const std::string fresh = path_ + '.' + std::to_string(getpid());
  if (!WriteLines(fresh, kept, O_EXCL) || rename(fresh.c_str(), path_.c_str()) != 0) unlink(fresh.c_str());
  return lines;
}

void HistoryFile::Add(const std::string &line) {
  if (line.size() > kLongest) return;
  if (path_.empty()) return Complain("there is no home directory");
  if (WriteLines(path_, line + '\n', O_APPEND)) return;
  MakeDirectories(path_);
  if (!WriteLines(path_, line + '\n', O_APPEND)) Complain(path_ + ": " + std::strerror(errno));
}

void HistoryFile::Complain(const std::string &why) {
  if (!complained_) WriteError("the history is not kept (" + why + ")");
  complained_ = true;
}

}  // namespace qdt::nqecli
