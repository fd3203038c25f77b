#ifndef SRC_OM_COMMON_TABLE_DESCRIPTOR_H_
#define SRC_OM_COMMON_TABLE_DESCRIPTOR_H_

#include <cstdint>
#include <span>

#include "platform/tbm.h"
#include "src/om/engine/table_ids.h"

namespace qdt {

// The descriptors that the table manager lists, by table id; none while there is no manager.
inline std::span<const TbmTableDesc> TableDescriptors() {
  const TbmGlobalInfo *const info = g_tbmGlobalInfo;
  if (info == nullptr || info->tables == nullptr) return {};
  return {info->tables, info->tableCount};
}

// The descriptors of the engine's tables; none when the manager does not list just the tables that this
// library knows, for those who show them all.
inline std::span<const TbmTableDesc> EngineTableDescriptors() {
  const std::span<const TbmTableDesc> listed = TableDescriptors();
  return listed.size() == kEngineTables ? listed : std::span<const TbmTableDesc>();
}

// The descriptor of one engine table; null for an id that is none and for a table that is not listed.
inline const TbmTableDesc *FindTableDescriptor(uint32_t table) {
  const std::span<const TbmTableDesc> listed = TableDescriptors();
  return table < kEngineTables && table < listed.size() ? &listed[table] : nullptr;
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_TABLE_DESCRIPTOR_H_
