#ifndef TESTS_HOST_SHARED_MEMORY_H_
#define TESTS_HOST_SHARED_MEMORY_H_

#include <sys/mman.h>

#include <new>
#include <system_error>

namespace qdt::host {

// A T, all zeros at first, in memory that this process and those that it forks share.
template <typename T>
class SharedMemory {
 public:
  SharedMemory() {
    void *const place = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    value_ = new (place) T{};
  }
  ~SharedMemory() { munmap(value_, sizeof(T)); }
  SharedMemory(const SharedMemory &) = delete;
  SharedMemory &operator=(const SharedMemory &) = delete;

  T *operator->() const { return value_; }

 private:
  T *value_;
};

}  // namespace qdt::host

#endif  // TESTS_HOST_SHARED_MEMORY_H_
