#ifndef SRC_OM_NQE_CLI_FORMAT_PIECE_AT_H_
#define SRC_OM_NQE_CLI_FORMAT_PIECE_AT_H_

#include <cstdint>

#include "qdt/tables.h"
#include "src/om/nqe_cli/table_view.h"

namespace qdt {

// As FormatPiece, behind the `offset` bytes of `out` that are in use.
template <typename Record, void (*kPrint)(Text &, const Record &)>
int32_t FormatPieceAt(char *out, uint32_t room, uint32_t offset, const void *entry) {
  if (out == nullptr || offset >= room) return QDT_TBL_FORMAT;
  return FormatPiece<Record, kPrint>(out + offset, room - offset, entry);
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_FORMAT_PIECE_AT_H_
