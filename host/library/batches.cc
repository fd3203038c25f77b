#include "host/library/batches.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/tbm/walk.h"
#include "platform/memory.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

// As the diag command has them.
constexpr uint32_t kBatch = 50;
constexpr uint32_t kMostCounted = 100;

}  // namespace

int32_t Batches::Prepare() {
  if (ask_.table >= QDT_DIAG_TABLE_COUNT || g_nqeTblOps[ask_.table].search == nullptr)
    return QDT_TBL_INVALID_INPUT;
  if (std::strcmp(ask_.key1, "all") == 0) {
    mode_ = Mode::kAll;
  } else if (AsksForCount(ask_)) {
    mode_ = Mode::kCounted;
    remaining_ = wanted_ = static_cast<uint32_t>(std::strtol(ask_.key1 + 3, nullptr, 10));
    if (wanted_ - 1 >= kMostCounted) return QDT_TBL_INVALID_INPUT;
  }
  // A count only sizes the first batches of a view that always walks all entries of its key.
  if (g_qdtTblGetAllItemsOfOneKey[ask_.table] == 1) mode_ = Mode::kAll;
  return 0;
}

void Batches::Free() {
  if (record_ != nullptr) free_ex(g_mallocHandle, record_);
  record_ = nullptr;
  size_ = 0;
}

uint32_t Batches::TakeLoopNum() {
  if (remaining_ == 0) return mode_ == Mode::kAll ? kBatch : 0;
  const uint32_t loopNum = std::min(remaining_, kBatch);
  remaining_ -= loopNum;
  return loopNum;
}

int32_t Batches::Next() {
  const uint32_t loopNum = TakeLoopNum();
  int32_t found;
  do {
    Free();
    found = g_nqeTblOps[ask_.table].search(&record_, &size_, &ctx_, loopNum, ask_.key1, ask_.key2, ask_.key3,
                                           ask_.key4);
    // The entry behind which the walk stood has gone; it knows where to go on.
  } while (found == QDT_TBL_CONTINUE_DELETED);
  if (static_cast<uint32_t>(found) > 1) return found;
  atEnd_ = found == 0 || (mode_ != Mode::kAll && remaining_ == 0);
  return 0;
}

// A search that walks nothing delivers one record.
uint32_t Batches::Count() const { return std::max(TbmTblTravContextCnt(&ctx_), 1u); }

bool Batches::HasMoreBehind() const {
  tbm::Cursor cursor;
  std::memcpy(&cursor, ctx_.opaque, sizeof(cursor));
  return cursor.begun && !cursor.finished;
}

}  // namespace qdt::host
