#include "tests/allocations/failing.h"

#include <gtest/gtest.h>

#include <time.h>

#include <cstdint>
#include <map>

// The program is linked so that calls of the platform's allocator come here (--wrap), and those of the
// clocks, which stand still: texts tell how old entries are.
extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
void *__real_malloc_ex(void *handle, const char *path, uint32_t line, size_t size);
void *__real_calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size);
void __real_free_ex(void *handle, void *pointer);
}

namespace qdt::host {
namespace {

size_t g_asked = 0;
size_t g_failing = SIZE_MAX;
bool g_andAll = false;
std::set<void *> g_alive;
std::set<std::string> g_refused;

bool Refuses(const char *path, uint32_t line) {
  const size_t number = g_asked++;
  if (number < g_failing || (number > g_failing && !g_andAll)) return false;
  g_refused.insert(std::string(path) + ":" + std::to_string(line));
  return true;
}

void *Keep(void *block) {
  if (block != nullptr) g_alive.insert(block);
  return block;
}

}  // namespace

void Allocations::Fail(size_t number, bool andAll) {
  g_asked = 0;
  g_failing = number;
  g_andAll = andAll;
}

void Allocations::FailNone() { Fail(SIZE_MAX, false); }
size_t Allocations::Asked() { return g_asked; }
size_t Allocations::Alive() { return g_alive.size(); }
const std::set<std::string> &Allocations::Refused() { return g_refused; }

std::ostream &operator<<(std::ostream &out, const Said &said) {
  return out << "code " << said.code << " \"" << said.text << '"';
}

size_t FailEach(const std::function<Said()> &command, const std::function<Said(size_t number)> &expected) {
  const size_t alive = Allocations::Alive();
  Allocations::FailNone();
  const Said whole = command();
  const size_t taken = Allocations::Asked();
  EXPECT_EQ(Allocations::Alive(), alive) << "memory was not released";
  for (const bool andAll : {false, true}) {
    for (size_t number = 0; number < taken; ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number) + (andAll ? " and all behind it" : "") + " failed");
      Allocations::Fail(number, andAll);
      const Said said = command();
      Allocations::FailNone();
      EXPECT_EQ(said, expected(number));
      EXPECT_EQ(Allocations::Alive(), alive) << "memory was not released";
      EXPECT_EQ(command(), whole) << "the next call does not work";
    }
  }
  return taken;
}

}  // namespace qdt::host

extern "C" {

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  static std::map<clockid_t, timespec> stopped;
  const auto [at, fresh] = stopped.try_emplace(clock);
  if (fresh) __real_clock_gettime(clock, &at->second);
  *now = at->second;
  return 0;
}

int __wrap_usleep(unsigned /*microseconds*/) { return 0; }

void *__wrap_malloc_ex(void *handle, const char *path, uint32_t line, size_t size) {
  if (qdt::host::Refuses(path, line)) return nullptr;
  return qdt::host::Keep(__real_malloc_ex(handle, path, line, size));
}

void *__wrap_calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size) {
  if (qdt::host::Refuses(path, line)) return nullptr;
  return qdt::host::Keep(__real_calloc_ex(handle, path, line, count, size));
}

void __wrap_free_ex(void *handle, void *pointer) {
  qdt::host::g_alive.erase(pointer);
  __real_free_ex(handle, pointer);
}

}  // extern "C"
