#ifndef BENCH_LAB_ARENA_H_
#define BENCH_LAB_ARENA_H_

#include <unistd.h>

#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/layout/layout.h"

namespace qdt::bench {

// An arena of the lab engine's tables and regions, empty, that this process alone works on. It is never
// published, so that no file stays behind.
class LabArena {
 public:
  LabArena()
      : arena_(host::Arena::Create("/dev/shm/nqe-bench." + std::to_string(getpid()),
                                   host::Layout::BuiltIn().Plan(""))) {
    host::Arena::SetCurrent(arena_.get());
  }
  ~LabArena() { host::Arena::SetCurrent(nullptr); }
  LabArena(const LabArena &) = delete;
  LabArena &operator=(const LabArena &) = delete;

  host::Arena *get() const { return arena_.get(); }

 private:
  std::unique_ptr<host::Arena> arena_;
};

}  // namespace qdt::bench

#endif  // BENCH_LAB_ARENA_H_
