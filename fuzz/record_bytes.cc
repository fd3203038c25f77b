// Records of any bytes through every view: the input's first byte names the view, the next two the room for
// its text, the rest are the records.

#include <cstdlib>
#include <vector>

#include "fuzz/lab.h"
#include "qdt/tables.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  if (size < 3) return 0;
  // Some views look up what a record names.
  fuzz::Lab::Get();
  const TableOps &view = g_nqeTblOps[data[0] % QDT_DIAG_TABLE_COUNT];
  if (view.format == nullptr) return 0;
  const uint32_t room = (data[1] | data[2] << 8) * 4u;
  const std::vector<uint8_t> record = fuzz::OwnCopy(data + 3, size - 3);
  std::vector<char> text(room, 'x');
  text.shrink_to_fit();
  const int32_t written = view.format(text.data(), room, record.data(), static_cast<int32_t>(record.size()));
  // A text ends where the view says, inside its room.
  if (written > 0 && (static_cast<uint32_t>(written) >= room || text[static_cast<size_t>(written)] != '\0'))
    std::abort();
  return 0;
}
