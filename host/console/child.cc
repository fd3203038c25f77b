#include "host/console/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <semaphore>
#include <thread>

#include "host/base/fd.h"
#include "host/base/sanitized.h"
#include "host/web/message.h"

namespace qdt::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kQueue{3};
constexpr size_t kMostErrors = 4096;
constexpr size_t kPiece = 64 << 10;

std::counting_semaphore<kChildren> g_free{kChildren};

struct Place {
  Place() {
    if (!g_free.try_acquire_for(kQueue))
      throw WebProblem(503, "too many questions of this kind are being answered; ask again", "busy");
  }
  ~Place() { g_free.release(); }
  Place(const Place &) = delete;
};

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
      throw WebProblem(503, SystemError("cannot start a program").what(), "busy");
    read = UniqueFd(ends[0]);
    write = UniqueFd(ends[1]);
  }
  UniqueFd read, write;
};

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions &) = delete;
  void Give(const UniqueFd &fd, int as) { posix_spawn_file_actions_adddup2(&actions_, fd.get(), as); }
  const posix_spawn_file_actions_t *get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

void Limit(pid_t child, __rlimit_resource resource, uint64_t value) {
  const rlimit limit{value, value};
  prlimit(child, resource, &limit, nullptr);
}

pid_t Start(const std::vector<std::string> &words, const Pipe &in, const Pipe &out, const Pipe &errors,
            const ChildLimits &limits) {
  SpawnActions actions;
  actions.Give(in.read, STDIN_FILENO);
  actions.Give(out.write, STDOUT_FILENO);
  actions.Give(errors.write, STDERR_FILENO);
  std::vector<char *> pointers;
  for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
  pointers.push_back(nullptr);
  // Neither the server's environment nor the signals that it keeps for itself.
  char path[] = "PATH=/usr/bin:/bin";
  char *const environment[] = {path, nullptr};
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, byDefault;
  sigemptyset(&none);
  sigemptyset(&byDefault);
  sigaddset(&byDefault, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &byDefault);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  const int failed =
      posix_spawn(&child, words.front().c_str(), actions.get(), &attributes, pointers.data(), environment);
  posix_spawnattr_destroy(&attributes);
  if (failed != 0)
    throw WebProblem(503, "this takes the program " + words.front() + ", which cannot be started", "program");
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(limits.time).count();
  Limit(child, RLIMIT_CPU, static_cast<uint64_t>(seconds) + 1);
  Limit(child, RLIMIT_CORE, 0);
  Limit(child, RLIMIT_FSIZE, limits.files);
  if (limits.memory != 0 && !kSanitized) Limit(child, RLIMIT_DATA, limits.memory);
  return child;
}

// A child that is waited for in any case, so that none is left over.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}
  ~Child() {
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    Wait();
  }
  Child(const Child &) = delete;

  void Kill() { kill(pid_, SIGKILL); }
  // Whether it has ended, or does before the deadline.
  bool EndsBefore(Clock::time_point deadline) const {
    for (;;) {
      siginfo_t info = {};
      if (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT | WNOHANG) != 0 || info.si_pid != 0)
        return true;
      if (Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  int Wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_;
};

// Reads once; false at the end.
bool ReadSome(const UniqueFd &from, std::string *text) {
  char piece[kPiece];
  const ssize_t got = read(from.get(), piece, sizeof(piece));
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (got <= 0) return false;
  text->append(piece, static_cast<size_t>(got));
  return true;
}

// Moves the input to the child and its answers here, until it has closed both or a limit is reached.
void Talk(Pipe *in, Pipe *out, Pipe *errors, std::string_view input, Clock::time_point deadline, size_t bytes,
          const WatchOutput &watch, ChildAnswer *answer) {
  fcntl(in->write.get(), F_SETFL, O_NONBLOCK);
  if (input.empty()) in->write = UniqueFd();
  while (out->read.ok() || errors->read.ok()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    answer->late = left <= 0;
    if (answer->late) return;
    pollfd wanted[] = {
        {in->write.get(), POLLOUT, 0}, {out->read.get(), POLLIN, 0}, {errors->read.get(), POLLIN, 0}};
    if (poll(wanted, 3, static_cast<int>(left)) < 0 && errno != EINTR) return;
    if (wanted[0].revents != 0) {
      const ssize_t put = write(in->write.get(), input.data(), input.size());
      if (put > 0) input.remove_prefix(static_cast<size_t>(put));
      if (input.empty() || (put < 0 && errno != EAGAIN && errno != EINTR)) in->write = UniqueFd();
    }
    if (wanted[1].revents != 0) {
      if (!ReadSome(out->read, &answer->output)) out->read = UniqueFd();
      answer->cut = answer->output.size() > bytes || (watch && !watch(answer->output));
      if (answer->cut) return;
    }
    if (wanted[2].revents != 0) {
      if (!ReadSome(errors->read, &answer->errors)) errors->read = UniqueFd();
      answer->errors.resize(std::min(answer->errors.size(), kMostErrors));
    }
  }
}

}  // namespace

ChildAnswer RunChild(const std::vector<std::string> &words, std::string_view input, const ChildLimits &limits,
                     const WatchOutput &watch) {
  const Place place;
  Pipe in, out, errors;
  Child child(Start(words, in, out, errors, limits));
  in.read = UniqueFd();
  out.write = UniqueFd();
  errors.write = UniqueFd();
  ChildAnswer answer;
  const Clock::time_point deadline = Clock::now() + limits.time;
  Talk(&in, &out, &errors, input, deadline, limits.bytes, watch, &answer);
  // Who has closed its output is about to end.
  if (!answer.cut && !answer.late) answer.late = !child.EndsBefore(deadline);
  if (answer.late || answer.cut) {
    child.Kill();
    child.Wait();
    answer.code = -1;
  } else {
    answer.code = child.Wait();
  }
  return answer;
}

}  // namespace qdt::host
