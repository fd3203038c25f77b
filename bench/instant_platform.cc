// A platform that answers at once and with the same: what views look up costs nothing beside what they print.
// Every lookup finds a record of zeros.

#include <array>
#include <cstdlib>

#include "platform/engine.h"
#include "platform/memory.h"
#include "platform/omcc.h"
#include "platform/shm.h"
#include "platform/tbm.h"

namespace {

constexpr uint32_t kTables = 109;
alignas(64) std::array<char, 16384> g_zeros{};

std::array<TbmTableDesc, kTables> MakeTables() {
  std::array<TbmTableDesc, kTables> tables{};
  for (TbmTableDesc &table : tables) table = {4, 64, 0, "OTHER", 1024, 16, 1, 1, 0, 0, 0};
  tables[24].name = "CAP_TABLE_ACL_GROUP";  // where the engine has it
  return tables;
}
std::array<TbmTableDesc, kTables> g_tables = MakeTables();
TbmGlobalInfo g_info = {kTables, 0, g_tables.data(), nullptr, nullptr};

int32_t Find(void **entry) {
  *entry = g_zeros.data();
  return 0;
}

int32_t Count(uint32_t *count) {
  *count = 1;
  return 0;
}

}  // namespace

extern "C" {

void *g_mallocHandle = nullptr;
void *malloc_ex(void *, const char *, uint32_t, size_t size) { return std::malloc(size); }
void *calloc_ex(void *, const char *, uint32_t, size_t count, size_t size) {
  return std::calloc(count, size);
}
void free_ex(void *, void *pointer) { std::free(pointer); }

TbmGlobalInfo *g_tbmGlobalInfo = &g_info;
int32_t TbmTblSearch(uint32_t, uint32_t, const void *, void **entry) { return Find(entry); }
int32_t TbmTblMatch(uint32_t, uint32_t, const void *, void **entry) { return Find(entry); }
int32_t TbmTblTrav(uint32_t, uint32_t, TbmTravCallback, void *) { return 0; }
void TbmTblTravContextInit(TbmTravContext *ctx) { *ctx = {}; }
int32_t TbmTblTravNext(uint32_t, uint32_t, TbmTravContext *, void *, uint32_t *bytes) { return *bytes = 0; }
int32_t TbmTblTravNextByKey(uint32_t, uint32_t, const void *, TbmTravContext *, void *, uint32_t *bytes) {
  return *bytes = 0;
}
uint32_t TbmTblTravContextCnt(const TbmTravContext *) { return 0; }
int32_t TbmTblEntryNum(uint32_t, uint32_t, uint32_t *count) { return Count(count); }
int32_t TbmTblAclEntryNum(uint32_t, uint32_t, uint32_t *groups, uint32_t *rules) {
  Count(rules);
  return Count(groups);
}
uint32_t TbmTblGetSpec(uint32_t, uint32_t) { return 1024; }
int32_t TbmTblMemStat(uint32_t, uint32_t, uint32_t *bytes) { return Count(bytes); }
int32_t TbmAclGroupSearchByPri(void *, uint32_t, void **action, void **content) {
  Find(content);
  return Find(action);
}
int32_t TbmAclGroupActiveRuleNum(uint32_t, uint32_t, uint32_t *count) { return Count(count); }
int32_t TbmHashMapEntryNum(TbmHashMap *, uint32_t *count) { return Count(count); }
int32_t TbmHashMapTravBuckets(TbmHashMap *, TbmTravCallback, void *, uint32_t, uint32_t, uint32_t *,
                              uint32_t) {
  return 0;
}

void *VRX_Smmap(const char *, uint32_t, uint32_t) { return g_zeros.data(); }
int32_t DHF_ShmPtAttach(const char *, uint16_t *handle) { return *handle = 0; }
uint32_t DHF_ShmPtTotalSizeGet(uint16_t) { return 1024; }
uint32_t DHF_ShmPtAllocedSizeGet(uint16_t) { return 512; }

int32_t omcc_parse_str(omcc_request *, const char *, const char **) { return -1; }
int32_t omcc_parse_uint(omcc_request *, const char *, uint64_t *) { return -1; }
int32_t omcc_parse_bool(omcc_request *, const char *, uint8_t *) { return -1; }
int32_t QdtOmSendMsg(const char *) { return -1; }
int32_t QdtProcessCmdline(const char *, char **) { return -1; }
int32_t QdtSendCmdToNqe(const char *, char **) { return -1; }
void QdtSysStatAccumulate(uint32_t, uint64_t *) {}
int32_t QdtSysStatGetNumRuncs(void) { return 0; }
uint64_t *QdtSysStatGetRuncStat(uint32_t) { return nullptr; }
const char *QdtGetNameByProId(uint32_t) { return "protocol"; }
uint32_t QdtGetProIdByName(const char *) { return 254; }
int32_t QdtCpCarStatClearAll(void) { return 0; }
int32_t QdtPrintSessStat(char *, uint32_t) { return -1; }

}  // extern "C"
