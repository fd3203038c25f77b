#ifndef SRC_OM_COMMON_MEMORY_PROBE_H_
#define SRC_OM_COMMON_MEMORY_PROBE_H_

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

// Pointers found in engine records. Each may be stale or wild, and a damaged record must not take its reader
// down: the kernel is asked about every one of them, by a copy that it refuses where there is nothing to
// copy. A query that follows many pointers opens an EngineMemoryScope, and then the kernel is asked once a
// page.
namespace qdt {

// Copies `size` bytes from `address`. False, with `out` undefined, unless all of them can be read.
bool ReadEngineMemory(uint64_t address, void *out, size_t size);

// The other way round: copies `size` bytes to `address`. False unless all of them can be written; some may
// have been. 1, 2, 4 or 8 bytes at a multiple of their size are best written by one call: inside a scope that
// is one store, which the engine's cores see whole and in the order in which such stores were made.
bool WriteEngineMemory(uint64_t address, const void *from, size_t size);

// Writes zeros, under the same terms.
bool ClearEngineMemory(uint64_t address, size_t size);

// Whether all of these bytes can be read, without reading more of them than the kernel needs to see that.
bool IsEngineMemory(uint64_t address, size_t size);

// Pages, kept in blocks of neighbours. When two blocks want the same place, the older one is forgotten.
template <size_t kBlocks>
class PageSet {
 public:
  bool Holds(uint64_t page) const {
    return PlaceOf(page).number == Number(page) && (Pages(page) & Bit(page));
  }

  void Add(uint64_t page) {
    Block &place = blocks_[Number(page) % kBlocks];
    if (place.number != Number(page)) place = {Number(page), 0};
    place.pages |= Bit(page);
  }

 private:
  static constexpr uint64_t kNeighbours = 64;
  struct Block {
    uint64_t number;
    uint64_t pages;  // a bit for each
  };

  static uint64_t Number(uint64_t page) { return page / kNeighbours; }
  static uint64_t Bit(uint64_t page) { return uint64_t{1} << page % kNeighbours; }
  const Block &PlaceOf(uint64_t page) const { return blocks_[Number(page) % kBlocks]; }
  uint64_t Pages(uint64_t page) const { return PlaceOf(page).pages; }

  Block blocks_[kBlocks]{};
};

// A pipe through which the kernel copies from and to memory, and refuses where there is none.
class Pipe {
 public:
  Pipe() = default;
  ~Pipe();
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;

  // Opens it unless it is open. False when the process has no descriptors left.
  bool Open();

  // Puts the pieces, together PIPE_BUF bytes at most, into the pipe when that is empty; what went in.
  size_t Put(const iovec *pieces, size_t count);

  // Takes as much as is there out of the pipe; false when it is not `size` bytes.
  bool Get(char *to, size_t size);

 private:
  int ends_[2] = {-1, -1};
};

// While one stands, the functions above remember for its thread which pages the kernel has let through, and
// copy there without asking again; the next scope learns anew. So memory that the engine adds or gives up
// between two queries is seen as it is then. What is readable when a query looks at it must stay so until the
// query ends: by contract the engine's memory is attached for life, and neither unmapped nor cut short.
//
// The list of a process's mappings would not do. It does not say where a mapped file ends, which pages are
// guards, or that a page of a full file system cannot be had, and the first touch of such a page kills; nor
// can it be read everywhere. What the kernel has just read itself is safe, whatever lies there.
//
// A scope inside another one of its thread shares what that knows. It is meant for the stack: 4.5 KiB, no
// heap.
class EngineMemoryScope {
 public:
  EngineMemoryScope();
  ~EngineMemoryScope();
  EngineMemoryScope(const EngineMemoryScope &) = delete;
  EngineMemoryScope &operator=(const EngineMemoryScope &) = delete;

  // Tells the thread's scope, if it has one, of a record that the table manager has handed out to be read in
  // place. What belongs to a record often stands behind it, in a page that need not be asked about.
  static void NoteDelivered(const void *record, size_t size);

  // Whether the bytes can be read; asks the kernel about pages that it has not been asked about.
  bool MayRead(uint64_t address, size_t size);

  // Whether the bytes lie where the kernel has written before, and the note that it has.
  bool MayWrite(uint64_t address, size_t size) const;
  void NoteWritten(uint64_t address, size_t size);

 private:
  bool AskAhead(uint64_t page, size_t count);
  bool LearnFrom(uint64_t page);

  PageSet<256> readable_;  // 64 MiB of neighbours, more than the largest table and what its entries lead to
  PageSet<32> writable_;
  Pipe pipe_;
  uint64_t delivered_ = UINT64_MAX;  // the page in which the last record ends that was handed out
  uint64_t next_ = 0;  // the page behind those that were asked about last, and how many these were
  size_t asked_ = 0;
};

}  // namespace qdt

#endif  // SRC_OM_COMMON_MEMORY_PROBE_H_
