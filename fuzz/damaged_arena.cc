#include "fuzz/damaged_arena.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "fuzz/lab.h"

namespace qdt::fuzz {
namespace {

constexpr size_t kInputOfWord = 10;
constexpr size_t kPage = 4096;

[[noreturn]] void Fail(const char *what) {
  std::perror(what);
  std::exit(1);
}

// The engine that makes the file lives in a process of its own: this one maps the file later.
void MakeSnapshot(const std::string &path) {
  const std::string &directory = ScratchDirectory();
  const pid_t maker = fork();
  if (maker == 0) {
    {
      Lab lab;
      const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd < 0) _exit(1);
      lab.engine().arena().CopyTo(fd);
      host::Arena::StampCopy(fd);
    }
    _exit(0);
  }
  int status = 0;
  if (maker < 0 || waitpid(maker, &status, 0) != maker || status != 0)
    Fail(("fuzz: no saved arena in " + directory).c_str());
}

}  // namespace

DamagedArena::DamagedArena() : path_(ScratchDirectory() + "/snapshot") {
  MakeSnapshot(path_);
  fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  struct stat status;
  if (fd_ < 0 || fstat(fd_, &status) != 0) Fail("fuzz: the saved arena");
  uint64_t page[kPage / sizeof(uint64_t)];
  bool before = false;
  for (off_t at = 0; at < status.st_size; at += kPage) {
    const off_t data = lseek(fd_, at, SEEK_DATA);
    if (data < 0) break;
    at = data / static_cast<off_t>(kPage) * static_cast<off_t>(kPage);
    if (pread(fd_, page, sizeof(page), at) != static_cast<ssize_t>(sizeof(page))) break;
    for (size_t i = 0; i < std::size(page); ++i) {
      if (page[i] != 0 || before) offsets_.push_back(static_cast<uint64_t>(at) + i * sizeof(uint64_t));
      before = page[i] != 0;
    }
  }
  if (offsets_.empty()) Fail("fuzz: the saved arena is empty");
}

std::string DamagedArena::CopyOfWhole() const {
  const std::string copy = path_ + ".whole";
  std::filesystem::copy_file(path_, copy);
  return copy;
}

uint64_t DamagedArena::Exchange(uint64_t offset, uint64_t word) {
  uint64_t was = 0;
  const auto at = static_cast<off_t>(offset);
  if (pread(fd_, &was, sizeof(was), at) != sizeof(was) ||
      pwrite(fd_, &word, sizeof(word), at) != sizeof(word))
    Fail("fuzz: the saved arena");
  return was;
}

size_t DamagedArena::Damage(const uint8_t *data, size_t size, size_t most) {
  size_t taken = 0;
  for (; most > 0 && size - taken >= kInputOfWord; --most, taken += kInputOfWord) {
    uint16_t which;
    uint64_t word;
    std::memcpy(&which, data + taken, sizeof(which));
    std::memcpy(&word, data + taken + sizeof(which), sizeof(word));
    // Two bytes reach every word of the header and of the first tables, and every part of the rest.
    const uint64_t offset =
        offsets_[which < 0x8000 ? which % offsets_.size() : (which - 0x8000ull) * offsets_.size() / 0x8000];
    whole_.emplace_back(offset, Exchange(offset, word));
  }
  return taken;
}

void DamagedArena::Mend() {
  // The last first: a word may have been changed twice.
  for (; !whole_.empty(); whole_.pop_back()) Exchange(whole_.back().first, whole_.back().second);
}

}  // namespace qdt::fuzz
