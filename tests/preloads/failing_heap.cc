// A heap that fails when it is told to, for programs that are started with it (LD_PRELOAD). The file that
// QDT_FAILING_HEAP names is shared by all processes of a program and by who started them:
// tests/e2e/short_memory.py. What shared libraries take before main begins does not count: where that fails,
// no code of the program's has run yet.

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Control {
  std::atomic<uint64_t> asked;    // allocations since somebody set this to 0
  std::atomic<uint64_t> failing;  // the first that fails, from 1; 0: none
  std::atomic<uint64_t> failed;   // how many have
  std::atomic<uint64_t> count;    // how many fail from there on
};

Control *Map() {
  const char *path = getenv("QDT_FAILING_HEAP");
  if (path == nullptr) return nullptr;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  void *got = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return got == MAP_FAILED ? nullptr : static_cast<Control *>(got);
}

Control *g_control = nullptr;  // from the beginning of main on

// Where the code of the libraries stands whose own allocations neither count nor fail: those that do not
// survive it.
struct Range {
  uintptr_t begin, end;
};
Range g_spared[4];
size_t g_sparedCount = 0;

int NoteSpared(dl_phdr_info *library, size_t, void *names) {
  const char *path = library->dlpi_name;
  const char *slash = strrchr(path, '/');
  const char *file = slash == nullptr ? path : slash + 1;
  const size_t name = strcspn(file, ".");
  const char *found =
      name == 0 ? nullptr
                : static_cast<const char *>(memmem(names, strlen(static_cast<char *>(names)), file, name));
  if (found == nullptr || g_sparedCount == sizeof(g_spared) / sizeof(g_spared[0])) return 0;
  for (size_t i = 0; i < library->dlpi_phnum; ++i) {
    const auto &part = library->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    g_spared[g_sparedCount++] = {library->dlpi_addr + part.p_vaddr,
                                 library->dlpi_addr + part.p_vaddr + part.p_memsz};
  }
  return 0;
}

// Whether the next allocation, asked for at this place in the code, is one that fails.
bool Fails(const void *caller) {
  Control *const found = g_control;
  if (found == nullptr) return false;
  const auto place = reinterpret_cast<uintptr_t>(caller);
  for (size_t i = 0; i < g_sparedCount; ++i) {
    if (place >= g_spared[i].begin && place < g_spared[i].end) return false;
  }
  const uint64_t failing = found->failing.load(std::memory_order_relaxed);
  const uint64_t number = found->asked.fetch_add(1, std::memory_order_relaxed) + 1;
  if (failing == 0 || number < failing || number - failing >= found->count.load(std::memory_order_relaxed))
    return false;
  found->failed.fetch_add(1, std::memory_order_relaxed);
  errno = ENOMEM;
  return true;
}

// What the loader itself needs before the next heap is known; never given back.
alignas(16) char g_early[65536];
std::atomic<size_t> g_earlyUsed{0};

bool IsEarly(const void *pointer) { return pointer >= g_early && pointer < g_early + sizeof(g_early); }

void *Early(size_t size) {
  const size_t at = g_earlyUsed.fetch_add((size + 31) & ~size_t{15});
  return at + size <= sizeof(g_early) ? g_early + at : nullptr;
}

// The same function of the next heap, null while that is looked for.
template <typename Function>
Function *Next(std::atomic<Function *> *known, const char *name) {
  static thread_local bool looking __attribute__((tls_model("initial-exec"))) = false;
  Function *found = known->load(std::memory_order_acquire);
  if (found != nullptr || looking) return found;
  looking = true;
  found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
  looking = false;
  known->store(found, std::memory_order_release);
  return found;
}

std::atomic<void *(*)(size_t)> g_malloc{nullptr};
std::atomic<void *(*)(size_t, size_t)> g_calloc{nullptr};
std::atomic<void *(*)(void *, size_t)> g_realloc{nullptr};
std::atomic<void *(*)(size_t, size_t)> g_memalign{nullptr};
std::atomic<int (*)(void **, size_t, size_t)> g_posixMemalign{nullptr};
std::atomic<void (*)(void *)> g_free{nullptr};

using Main = int(int, char **, char **);
Main *g_main = nullptr;

int Begin(int count, char **words, char **environment) {
  if (char *names = getenv("QDT_HEAP_SPARES")) dl_iterate_phdr(NoteSpared, names);
  g_control = Map();
#ifdef QDT_COVERAGE
  // Counters are written last of all, and that does not survive a heap that fails.
  atexit([] { g_control = nullptr; });
#endif
  return g_main(count, words, environment);
}

}  // namespace

extern "C" {

// The C library's start of a program, which calls main.
int __libc_start_main(Main *main, int count, char **words, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void *stackEnd) {
  g_main = main;
  auto *next = reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return next(Begin, count, words, init, fini, loaderFini, stackEnd);
}

void *malloc(size_t size) {
  auto *next = Next(&g_malloc, "malloc");
  if (next == nullptr) return Early(size);
  return Fails(__builtin_return_address(0)) ? nullptr : next(size);
}

void *calloc(size_t count, size_t size) {
  auto *next = Next(&g_calloc, "calloc");
  if (next == nullptr) return Early(count * size);
  return Fails(__builtin_return_address(0)) ? nullptr : next(count, size);
}

void *realloc(void *pointer, size_t size) {
  if (IsEarly(pointer)) {
    void *moved = malloc(size);
    const auto left = static_cast<size_t>(g_early + sizeof(g_early) - static_cast<char *>(pointer));
    if (moved != nullptr) memcpy(moved, pointer, size < left ? size : left);
    return moved;
  }
  auto *next = Next(&g_realloc, "realloc");
  return next == nullptr || Fails(__builtin_return_address(0)) ? nullptr : next(pointer, size);
}

void *memalign(size_t alignment, size_t size) {
  auto *next = Next(&g_memalign, "memalign");
  return next == nullptr || Fails(__builtin_return_address(0)) ? nullptr : next(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
  auto *next = Next(&g_memalign, "memalign");
  return next == nullptr || Fails(__builtin_return_address(0)) ? nullptr : next(alignment, size);
}

int posix_memalign(void **pointer, size_t alignment, size_t size) {
  auto *next = Next(&g_posixMemalign, "posix_memalign");
  return next == nullptr || Fails(__builtin_return_address(0)) ? ENOMEM : next(pointer, alignment, size);
}

void free(void *pointer) {
  if (pointer == nullptr || IsEarly(pointer)) return;
  if (auto *next = Next(&g_free, "free")) next(pointer);
}

}  // extern "C"
