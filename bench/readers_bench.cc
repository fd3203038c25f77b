// What four readers cost the writer: nqecli shows, lists, searches and compares a table again and again while
// the engine's side changes it at full speed. Processor time of the writer for a change, beside that under
//
//   - four processes that do the same to another engine's arena, which nobody changes: those take from a
//   writer's
//     caches and clock rate what any programs do, and what is above that is the cost of being read;
//   - four processes that look at one byte of each line of the arena's storage and know nothing of tables:
//   what no way
//     of reading the engine's bytes in place can be below.
//
// The writer has one processor for itself and the readers have another. What a line of memory takes from one
// to the other and back decides nearly everything, and a host moves its guests' processors about: it is taken
// before and after each turn, and turns near and far stand in rows of their own. The cost is the median of
// the pairs' ratios.
//
// usage: readers_bench DIRECTORY_OF_NQECLI [ROUNDS]

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
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
#include <utility>
#include <vector>

#include "bench/processors.h"
#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/tbm/table_writer.h"

namespace qdt::bench {
namespace {

constexpr uint32_t kMacTable = 26;
constexpr uint32_t kEntries = 10000;
constexpr uint32_t kChanges = 400000;  // a turn's, some 50 ms of processor time
constexpr int kReaders = 4;
// About as often as each of four nqecli on one processor comes to an entry.
constexpr int kLookEveryUs = 2000;
constexpr off_t kCacheLine = 64;

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
    const double begin = Now(CLOCK_THREAD_CPUTIME_ID);
    for (uint32_t i = 0; i < kChanges; ++i) {
      const uint32_t entry = random_() % kEntries;
      const MacKey key = KeyOf(entry);
      writer_->Remove(kMacTable, &key);
      Insert(entry);
    }
    return (Now(CLOCK_THREAD_CPUTIME_ID) - begin) / kChanges;
  }

 private:
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
        StayOn(kReadersProcessor);
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

// Of all that has storage, for life.
void Look(const Engine &engine) {
  const int file = open(engine.path().c_str(), O_RDONLY | O_CLOEXEC);
  const off_t size = lseek(file, 0, SEEK_END);
  const void *mapped = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_SHARED, file, 0);
  if (mapped == MAP_FAILED) return;
  const auto *bytes = static_cast<const volatile char *>(mapped);
  std::vector<std::pair<off_t, off_t>> parts;
  for (off_t end = 0, begin; (begin = lseek(file, end, SEEK_DATA)) >= 0;) {
    end = lseek(file, begin, SEEK_HOLE);
    parts.emplace_back(begin, end);
  }
  for (;; usleep(kLookEveryUs)) {
    for (const auto &[begin, end] : parts) {
      for (off_t at = begin; at < end; at += kCacheLine) {
        [[maybe_unused]] const char byte = bytes[at];
      }
    }
  }
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

// Nanoseconds of a change, and how far from the readers, before and after.
struct Turn {
  double trips[2];
  double change;

  bool StayedNear() const { return IsNear(trips[0]) && IsNear(trips[1]); }
  bool StayedFar() const { return !IsNear(trips[0]) && !IsNear(trips[1]); }
};

Turn Take(Engine *engine, const std::function<void(int)> &work) {
  Turn turn;
  turn.trips[0] = RoundTrip();
  {
    const Processes readers(work);
    turn.change = engine->Change();
  }
  turn.trips[1] = RoundTrip();
  return turn;
}

// What is taken once a round.
struct Round {
  Turn beside, look, read;

  bool All(bool (Turn::*is)() const) const { return (beside.*is)() && (look.*is)() && (read.*is)(); }
};

void Print(const char *distance, const std::vector<Round> &rounds) {
  const auto at = [&rounds](double part, const auto &value) {
    std::vector<double> values;
    for (const Round &round : rounds) values.push_back(value(round));
    return At(values, part);
  };
  const auto cost = [](const Round &round) { return round.read.change / round.beside.change - 1; };
  const auto looking = [](const Round &round) { return round.look.change / round.beside.change - 1; };
  std::printf("{\"readers\": \"%s\", \"rounds\": %zu", distance, rounds.size());
  if (!rounds.empty()) {
    std::printf(", \"round_trip_ns\": %.0f", at(0.5, [](const Round &round) { return round.read.trips[0]; }));
    std::printf(", \"beside_ns\": %.1f", at(0.5, [](const Round &round) { return round.beside.change; }));
    std::printf(", \"look_ns\": %.1f", at(0.5, [](const Round &round) { return round.look.change; }));
    std::printf(", \"read_ns\": %.1f", at(0.5, [](const Round &round) { return round.read.change; }));
    std::printf(", \"look_cost\": %.4f", at(0.5, looking));
    std::printf(", \"cost\": %.4f, \"cost_quartiles\": [%.4f, %.4f]", at(0.5, cost), at(0.25, cost),
                at(0.75, cost));
  }
  std::puts("}");
}

int Run(const std::string &tool, int rounds) {
  const Engine other;
  Engine engine;
  if (!TryReaders(tool, other) || !TryReaders(tool, engine)) return 2;
  StayOn(kWritersProcessor);
  engine.Change();
  std::vector<double> alone;
  std::vector<Round> near, far;
  for (int number = 0; number < rounds; ++number) {
    alone.push_back(engine.Change());
    Round round;
    const auto beside = [&] { round.beside = Take(&engine, [&](int i) { Read(tool, other, i); }); };
    if (number % 2 == 0) beside();
    round.look = Take(&engine, [&](int) { Look(engine); });
    round.read = Take(&engine, [&](int i) { Read(tool, engine, i); });
    if (number % 2 != 0) beside();
    // A round in which the processors were moved is neither.
    if (round.All(&Turn::StayedNear)) near.push_back(round);
    if (round.All(&Turn::StayedFar)) far.push_back(round);
  }
  std::printf("{\"alone_ns\": %.1f, \"rounds\": %d}\n", At(alone, 0.5), rounds);
  Print("near", near);
  Print("far", far);
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
