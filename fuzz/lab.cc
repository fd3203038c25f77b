#include "fuzz/lab.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "host/commands/commands.h"
#include "host/library/services.h"

// Sweeps of the library pause between their slices, for an engine that nobody waits for here.
extern "C" int __wrap_usleep(useconds_t) { return 0; }

namespace qdt::fuzz {
namespace {

host::EngineOptions Options() {
  host::EngineOptions options;
  options.arena = ScratchDirectory() + "/arena";
  options.socket = options.arena + ".sock";
  return options;
}

}  // namespace

const std::string &ScratchDirectory() {
  struct Directory {
    Directory() {
      if (mkdtemp(path.data()) == nullptr) {
        std::perror("fuzz: no scratch directory");
        std::exit(1);
      }
    }
    ~Directory() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
    std::string path = "/dev/shm/nqe-fuzz-XXXXXX";
  };
  static Directory directory;
  return directory.path;
}

Lab::Lab()
    : filler_(QDT_FUZZ_SITE, host::Scenario::Load(QDT_FUZZ_SITE, host::Layout::BuiltIn())),
      engine_(Options(), host::Layout::BuiltIn(), &filler_) {
  host::SetEngineChannel([this](std::string_view line) { return host::RunCommandLine(engine_, line); });
  engine_.Publish();
}

Lab::~Lab() {
  engine_.Retire();
  host::SetEngineChannel(nullptr);
}

Lab &Lab::Get() {
  ScratchDirectory();  // which has to outlive it
  static Lab lab;
  return lab;
}

Words::Words(std::string_view first, const uint8_t *data, size_t size, size_t most) {
  if (!first.empty()) texts_.emplace_back(first);
  std::string word;
  for (size_t i = 0; i <= size && texts_.size() < most; ++i) {
    if (i < size && data[i] != ' ' && data[i] != '\0') {
      word += static_cast<char>(data[i]);
    } else if (!word.empty()) {
      texts_.push_back(std::move(word));
      word.clear();
    }
  }
  for (std::string &text : texts_) pointers_.push_back(text.data());
}

std::vector<uint8_t> OwnCopy(const uint8_t *data, size_t size) {
  std::vector<uint8_t> copy(data, data + size);
  copy.shrink_to_fit();
  return copy;
}

MemoryFile::MemoryFile(const void *data, size_t size)
    : fd_(memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {
  if (fd_ < 0 || write(fd_, data, size) != static_cast<ssize_t>(size)) {
    std::perror("fuzz: no file in memory");
    std::exit(1);
  }
}

MemoryFile::~MemoryFile() { close(fd_); }

}  // namespace qdt::fuzz
