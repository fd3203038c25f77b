#ifndef SRC_OM_COMMON_TABLE_DESCRIPTOR_H_
#define SRC_OM_COMMON_TABLE_DESCRIPTOR_H_

#include <cstdint>

#include "platform/tbm.h"
#include "src/om/engine/table_ids.h"

namespace qdt {

// The table manager's descriptor of an engine table; null for an id that is none and while there is no
// manager.
inline const TbmTableDesc *FindTableDescriptor(uint32_t table) {
  const TbmGlobalInfo *const info = g_tbmGlobalInfo;
  if (info == nullptr || info->tables == nullptr || table >= kEngineTables) return nullptr;
  return &info->tables[table];
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_TABLE_DESCRIPTOR_H_
