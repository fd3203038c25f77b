#ifndef HOST_LIBRARY_BATCHES_H_
#define HOST_LIBRARY_BATCHES_H_

#include <cstdint>
#include <span>
#include <utility>

#include "host/library/table_query.h"
#include "platform/tbm.h"

namespace qdt::host {

// Runs a view's search as the diag command does, batch by batch, for those who do more with what it delivers
// than to put its text in one place.
class Batches {
 public:
  explicit Batches(const TableQuery &ask) : ask_(ask) { TbmTblTravContextInit(&ctx_); }
  ~Batches() { Free(); }
  Batches(const Batches &) = delete;
  Batches &operator=(const Batches &) = delete;

  // Reads the first key; 0, or the code with which the diag command refuses the query. To be called first.
  int32_t Prepare();

  // Fetches the next batch; 0, or the code with which the search failed.
  int32_t Next();
  // Whether the batch was the last one.
  bool AtEnd() const { return atEnd_; }
  // What the batch delivered; good until the next one.
  std::span<const uint8_t> records() const { return {static_cast<const uint8_t *>(record_), size_}; }
  // How many those are.
  uint32_t Count() const;
  // The same given away, to be released with free_ex.
  void *Release() { return std::exchange(record_, nullptr); }

  // Whether the walk of a query at its end has not come to the end of its table.
  bool HasMoreBehind() const;
  // The entries that a query with "num" asks for; else as many as there are.
  uint32_t Wanted() const { return mode_ == Mode::kCounted ? wanted_ : UINT32_MAX; }

 private:
  enum class Mode : uint8_t { kByKey, kAll, kCounted };

  void Free();
  uint32_t TakeLoopNum();

  const TableQuery &ask_;
  TbmTravContext ctx_;
  Mode mode_ = Mode::kByKey;
  uint32_t wanted_ = 0;
  uint32_t remaining_ = 0;
  void *record_ = nullptr;
  uint32_t size_ = 0;
  bool atEnd_ = false;
};

}  // namespace qdt::host

#endif  // HOST_LIBRARY_BATCHES_H_
