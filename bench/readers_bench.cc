// What four readers cost the writer: nqecli shows, lists, searches and compares a table again and again while
// the engine's side changes it at full speed. Processor time of the writer for a change, since all share the
// machine's cores; beside four processes that do the same to another engine's arena, which nobody changes:
// those take from a writer's caches and clock rate what any programs do, and what is above that is the cost
// of being read. The two follow each other in pairs, and the cost is the median of the pairs' ratios.
//
// usage: readers_bench DIRECTORY_OF_NQECLI [ROUNDS]

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/tbm/table_writer.h"

namespace qdt::bench {
namespace {

constexpr uint32_t kMacTable = 26;
constexpr uint32_t kEntries = 10000;
constexpr uint32_t kChanges = 400000;  // a turn's, some 50 ms of processor time
constexpr int kReaders = 4;

// Bridge, VLAN and address.
struct MacKey {
  uint8_t bytes[12];
};

MacKey KeyOf(uint32_t i) {
  return {{1, 0, 0, 0, 10, 0, 0x02, 0, 0, static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8),
           static_cast<uint8_t>(i)}};
}

// An arena in a directory of its own, published, with a saved copy.
class Engine {
 public:
  Engine() : directory_("/dev/shm/nqe-readers-XXXXXX") {
    if (mkdtemp(directory_.data()) == nullptr) std::abort();
    arena_ = host::Arena::Create(path(), host::Layout::BuiltIn().Plan(""));
    host::Arena::SetCurrent(arena_.get());
    writer_ = std::make_unique<host::TableWriter>(arena_.get());
    for (uint32_t i = 0; i < kEntries; ++i) Insert(i);
    arena_->Publish();
    const int copy = open((directory_ + "/copy").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    arena_->CopyTo(copy);
    close(copy);
  }
  ~Engine() {
    arena_->Retire();
    host::Arena::SetCurrent(nullptr);
    std::filesystem::remove_all(directory_);
  }

  std::string path() const { return directory_ + "/arena"; }
  std::string copy() const { return directory_ + "/copy"; }

  // Processor time of a change, in nanoseconds: an entry taken away and inserted again.
  double Change() {
    const double begin = Cpu();
    for (uint32_t i = 0; i < kChanges; ++i) {
      const uint32_t entry = random_() % kEntries;
      const MacKey key = KeyOf(entry);
      writer_->Remove(kMacTable, &key);
      Insert(entry);
    }
    return (Cpu() - begin) / kChanges;
  }

 private:
  static double Cpu() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
  }

  void Insert(uint32_t i) {
    const MacKey key = KeyOf(i);
    uint8_t record[20] = {};
    std::memcpy(record, key.bytes, sizeof(key.bytes));
    if (writer_->Insert(kMacTable, &key, record, nullptr) != 0) std::abort();
  }

  std::string directory_;
  std::unique_ptr<host::Arena> arena_;
  std::unique_ptr<host::TableWriter> writer_;
  std::mt19937 random_{3};
};

// Processes that do something until they are ended.
class Processes {
 public:
  explicit Processes(const std::function<void(int)> &work) {
    for (int i = 0; i < kReaders; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        setpgid(0, 0);
        work(i);
        _exit(1);
      }
      setpgid(pid, pid);
      pids_.push_back(pid);
    }
    usleep(100000);
  }
  ~Processes() {
    for (const pid_t pid : pids_) {
      kill(-pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  }

 private:
  std::vector<pid_t> pids_;
};

// A reader each.
std::string Command(const std::string &tool, const Engine &engine, int number) {
  const std::string commands[kReaders] = {"show ssw_macinfo all", "list ssw_macinfo --json",
                                          "find 02:00:00:00:00:07",
                                          "diff " + engine.copy() + " live ssw_macinfo"};
  return tool + " --arena " + engine.path() + " " + commands[number] + " >/dev/null 2>&1";
}

void Read(const std::string &tool, const Engine &engine, int number) {
  const std::string loop = "while :; do " + Command(tool, engine, number) + "; done";
  execl("/bin/sh", "sh", "-c", loop.c_str(), nullptr);
}

// Every command finds what it looks for: nothing has changed since the copy was made.
bool TryReaders(const std::string &tool, const Engine &engine) {
  for (int number = 0; number < kReaders; ++number) {
    const std::string command = Command(tool, engine, number);
    if (std::system(command.c_str()) == 0) continue;
    std::fprintf(stderr, "readers_bench: fails: %s\n", command.c_str());
    return false;
  }
  return true;
}

// The value that a part of them do not exceed.
double At(std::vector<double> values, double part) {
  std::ranges::sort(values);
  return values[static_cast<size_t>(static_cast<double>(values.size() - 1) * part)];
}

int Run(const std::string &tool, int rounds) {
  const Engine other;
  Engine engine;
  if (!TryReaders(tool, other) || !TryReaders(tool, engine)) return 2;
  engine.Change();
  const auto change = [&](const Engine &readersEngine) {
    const Processes readers([&](int number) { Read(tool, readersEngine, number); });
    return engine.Change();
  };
  std::vector<double> alone, beside, read, costs;
  for (int round = 0; round < rounds; ++round) {
    alone.push_back(engine.Change());
    if (round % 2 == 0) beside.push_back(change(other));
    read.push_back(change(engine));
    if (round % 2 != 0) beside.push_back(change(other));
    costs.push_back(read.back() / beside.back() - 1);
  }
  std::printf("{\"alone_ns\": %.1f, \"beside_ns\": %.1f, \"read_ns\": %.1f, ", At(alone, 0.5),
              At(beside, 0.5), At(read, 0.5));
  std::printf("\"cost\": %.4f, \"cost_quartiles\": [%.4f, %.4f], \"rounds\": %d}\n", At(costs, 0.5),
              At(costs, 0.25), At(costs, 0.75), rounds);
  return 0;
}

}  // namespace
}  // namespace qdt::bench

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fputs("usage: readers_bench DIRECTORY_OF_NQECLI [ROUNDS]\n", stderr);
    return 2;
  }
  return qdt::bench::Run(std::string(argv[1]) + "/nqecli", argc > 2 ? std::atoi(argv[2]) : 60);
}
