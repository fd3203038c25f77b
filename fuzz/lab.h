#ifndef FUZZ_LAB_H_
#define FUZZ_LAB_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/arena/arena.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"

// What the targets share: an engine in the fuzzer's own process, and inputs cut into pieces. A target never
// takes a failure for a finding: HostError is how bad input is refused.
namespace qdt::fuzz {

// A directory in shared memory that goes with the process.
const std::string &ScratchDirectory();

// The lab engine on the example site, whose entries refer to each other, as nqed runs it, but in this
// process: the library works on its arena, and its services reach its commands.
class Lab {
 public:
  Lab();
  ~Lab();

  host::Engine &engine() { return engine_; }
  const std::string &arena() const { return engine_.options().arena; }

  // Of the process; made at the first call.
  static Lab &Get();

 private:
  host::ScenarioFiller filler_;
  host::Engine engine_;
};

// The words of a command line, which may hold any bytes but NUL; cut at spaces, empty ones left out, at most
// `most`. With `first` before them unless that is empty.
class Words {
 public:
  Words(std::string_view first, const uint8_t *data, size_t size, size_t most = 64);

  std::span<char *const> all() const { return pointers_; }

 private:
  std::vector<std::string> texts_;
  std::vector<char *> pointers_;
};

// A copy of its own of the input: a sanitizer sees every read behind its end.
std::vector<uint8_t> OwnCopy(const uint8_t *data, size_t size);

// A file in memory, with a path by which this process may open it.
class MemoryFile {
 public:
  MemoryFile(const void *data, size_t size);
  ~MemoryFile();
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  const std::string &path() const { return path_; }

 private:
  int fd_;
  std::string path_;
};

}  // namespace qdt::fuzz

#endif  // FUZZ_LAB_H_
