#include <cstring>
#include <string_view>

#include "qdt/tables.h"
#include "src/om/common/log.h"
#include "src/om/common/table_descriptor.h"
#include "src/om/nqe_cli/table_view.h"

// View of the engine's modules. An entry is a 32-bit id and a name whose length the table manager's
// descriptor tells, so the records handed to the format begin with that length.
namespace {

constexpr uint32_t kHeader = sizeof(uint32_t);    // the name length
constexpr uint32_t kModuleId = sizeof(uint32_t);  // ahead of each name

}  // namespace

// Reports its first batch as the last: the list is meant to show 50 modules at most.
NQE_TABLE_SEARCH(ModInfo) {
  if (search.loopNum == 0) return QDT_TBL_INVALID_INPUT;
  const TbmTableDesc *const table = qdt::FindTableDescriptor(qdt::kTableModule);
  if (table == nullptr) {
    QDT_LOG_ERROR("Failed to get table MODINFO\n");
    return QDT_TBL_FAIL;
  }
  const uint32_t nameSize = table->dataSize;
  const uint32_t entrySize = kModuleId + nameSize;
  uint32_t bytes = entrySize * search.loopNum;
  if (!search.Allocate(size_t{kHeader} + bytes)) return QDT_TBL_NO_MEMORY;
  auto *const record = static_cast<char *>(*search.record);
  std::memcpy(record, &nameSize, sizeof(nameSize));
  const int32_t code =
      TbmTblTravNext(qdt::kEngineInstance, qdt::kTableModule, search.ctx, record + kHeader, &bytes);
  if (code != 0 && code != 1) return QDT_TBL_FAIL;
  *search.recordLen = kHeader + entrySize * TbmTblTravContextCnt(search.ctx);
  return 0;
}

QDT_TABLE_FORMAT(NqeTableFormatModInfo) {
  if (record == nullptr || recordLen <= static_cast<int32_t>(kHeader)) return QDT_TBL_DATA_SIZE;
  const auto *at = static_cast<const char *>(record);
  uint32_t nameSize = 0;
  std::memcpy(&nameSize, at, sizeof(nameSize));
  const uint64_t entrySize = uint64_t{kModuleId} + nameSize;
  const uint64_t length = static_cast<uint32_t>(recordLen) - kHeader;
  if (length % entrySize != 0) return QDT_TBL_DATA_SIZE;
  qdt::Text text(out, room);
  at += kHeader;
  for (uint64_t left = length; left != 0 && !text.failed(); left -= entrySize, at += entrySize) {
    uint32_t id = 0;
    std::memcpy(&id, at, sizeof(id));
    const std::string_view name(at + kModuleId, strnlen(at + kModuleId, nameSize));
    text.Print<"  ModId       :  %u\n  ModName     :  %s\n\n">(id, name);
  }
  return text.Result();
}
