/* A platform that has nothing but one bridge. */
#include <stdlib.h>

#include "platform/engine.h"
#include "platform/memory.h"
#include "platform/omcc.h"
#include "platform/shm.h"
#include "platform/tbm.h"

enum { kFailed = -1, kNotFound = -7, kBridges = 27, kBridge = 7 };

static struct {
  uint32_t bridge;
  uint32_t interface;
  uint8_t vlanFilter;
  uint8_t macLimit;
  uint16_t reserved;
  uint32_t numbers[3];
} g_bridge = {kBridge, 4094, 1, 0, 0, {300, 1024, 12}};

/* The allocator. */

void *g_mallocHandle;

void *malloc_ex(void *handle, const char *path, uint32_t line, size_t size) {
  (void)handle, (void)path, (void)line;
  return malloc(size);
}

void *calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size) {
  (void)handle, (void)path, (void)line;
  return calloc(count, size);
}

void free_ex(void *handle, void *pointer) {
  (void)handle;
  free(pointer);
}

/* The table manager. */

TbmGlobalInfo *g_tbmGlobalInfo;

int32_t TbmTblSearch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  if (instance != 0 || table != kBridges || *(const uint32_t *)key != kBridge) return kNotFound;
  *entry = &g_bridge;
  return 0;
}

int32_t TbmTblMatch(uint32_t instance, uint32_t table, const void *key, void **entry) {
  (void)instance, (void)table, (void)key, (void)entry;
  return kNotFound;
}

int32_t TbmTblTrav(uint32_t instance, uint32_t table, TbmTravCallback callback, void *context) {
  (void)instance, (void)table, (void)callback, (void)context;
  return 0;
}

void TbmTblTravContextInit(TbmTravContext *ctx) { *ctx = (TbmTravContext){{0}}; }

int32_t TbmTblTravNext(uint32_t instance, uint32_t table, TbmTravContext *ctx, void *buffer,
                       uint32_t *bytes) {
  (void)instance, (void)table, (void)ctx, (void)buffer;
  *bytes = 0;
  return 0;
}

int32_t TbmTblTravNextByKey(uint32_t instance, uint32_t table, const void *key, TbmTravContext *ctx,
                            void *buffer, uint32_t *bytes) {
  (void)key;
  return TbmTblTravNext(instance, table, ctx, buffer, bytes);
}

uint32_t TbmTblTravContextCnt(const TbmTravContext *ctx) {
  (void)ctx;
  return 0;
}

int32_t TbmTblEntryNum(uint32_t instance, uint32_t table, uint32_t *count) {
  (void)instance;
  *count = table == kBridges;
  return 0;
}

int32_t TbmTblAclEntryNum(uint32_t instance, uint32_t table, uint32_t *groups, uint32_t *rules) {
  (void)instance, (void)table;
  *groups = *rules = 0;
  return 0;
}

uint32_t TbmTblGetSpec(uint32_t instance, uint32_t table) {
  (void)instance;
  return table == kBridges;
}

int32_t TbmTblMemStat(uint32_t instance, uint32_t table, uint32_t *bytes) {
  (void)instance;
  *bytes = table == kBridges ? sizeof(g_bridge) : 0;
  return 0;
}

int32_t TbmAclGroupSearchByPri(void *groupEntry, uint32_t priority, void **action, void **content) {
  (void)groupEntry, (void)priority, (void)action, (void)content;
  return kNotFound;
}

int32_t TbmAclGroupActiveRuleNum(uint32_t groupType, uint32_t groupId, uint32_t *count) {
  (void)groupType, (void)groupId;
  *count = 0;
  return 0;
}

int32_t TbmHashMapEntryNum(TbmHashMap *map, uint32_t *count) {
  (void)map;
  *count = 0;
  return 0;
}

int32_t TbmHashMapTravBuckets(TbmHashMap *map, TbmTravCallback callback, void *context, uint32_t firstBucket,
                              uint32_t bucketCount, uint32_t *nextBucket, uint32_t flag) {
  (void)map, (void)callback, (void)context, (void)flag;
  *nextBucket = firstBucket + bucketCount;
  return 0;
}

/* Shared memory. */

void *VRX_Smmap(const char *name, uint32_t size, uint32_t flags) {
  (void)name, (void)size, (void)flags;
  return NULL;
}

int32_t DHF_ShmPtAttach(const char *name, uint16_t *handle) {
  (void)name, (void)handle;
  return kFailed;
}

uint32_t DHF_ShmPtTotalSizeGet(uint16_t handle) {
  (void)handle;
  return 0;
}

uint32_t DHF_ShmPtAllocedSizeGet(uint16_t handle) {
  (void)handle;
  return 0;
}

/* Management documents. */

int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text) {
  (void)request, (void)name, (void)text;
  return kFailed;
}

int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value) {
  (void)request, (void)name, (void)value;
  return kFailed;
}

int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value) {
  (void)request, (void)name, (void)value;
  return kFailed;
}

omcc_doc *omcc_new_doc(void) { return NULL; }

omcc_node *omcc_doc_root(omcc_doc *doc) {
  (void)doc;
  return NULL;
}

omcc_node *omcc_new_node(omcc_node *parent, const char *path, int32_t kind) {
  (void)parent, (void)path, (void)kind;
  return NULL;
}

int32_t omcc_new_leaf_str(omcc_node *node, const char *name, const char *value) {
  (void)node, (void)name, (void)value;
  return kFailed;
}

char *omcc_format_doc(omcc_doc *doc, int32_t mode) {
  (void)doc, (void)mode;
  return NULL;
}

void omcc_free_doc(omcc_doc *doc) { (void)doc; }

/* Engine services. */

int32_t QdtOmSendMsg(const char *reply) {
  (void)reply;
  return 0;
}

int32_t QdtProcessCmdline(const char *cmdline, char **reply) {
  (void)cmdline, (void)reply;
  return kFailed;
}

int32_t QdtSendCmdToNqe(const char *cmdline, char **reply) {
  (void)cmdline, (void)reply;
  return kFailed;
}

void QdtSysStatAccumulate(uint32_t mask, uint64_t *vector) { (void)mask, (void)vector; }

int32_t QdtSysStatGetNumRuncs(void) { return 0; }

uint64_t *QdtSysStatGetRuncStat(uint32_t core) {
  (void)core;
  return NULL;
}

const char *QdtGetNameByProId(uint32_t id) {
  (void)id;
  return NULL;
}

uint32_t QdtGetProIdByName(const char *name) {
  (void)name;
  return 254;
}

int32_t QdtCpCarStatClearAll(void) { return 0; }

int32_t QdtPrintSessStat(char *buffer, uint32_t size) {
  (void)buffer, (void)size;
  return kFailed;
}
