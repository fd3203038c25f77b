/*
 * The engine's table manager, as libqdt_util sees it. The library only declares these symbols; whoever links
 * it defines them. All integers are in the processor's byte order unless a comment says otherwise.
 *
 * Statuses are 0 or a code of the return-code table in qdt/tables.h (-7 for a missing key). The manager makes
 * reads safe against the engine's concurrent changes; a TbmTravContext belongs to one thread at a time.
 */
#ifndef PLATFORM_TBM_H_
#define PLATFORM_TBM_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Position of a traversal. Opaque; initialised with TbmTblTravContextInit, dropped without ceremony. */
typedef struct TbmTravContext {
  uint64_t opaque[8];
} TbmTravContext;

/* Called for one live entry. Returns -9 to go on, -10 to stop; the walk returns 0 in both cases. */
typedef int32_t (*TbmTravCallback)(void *entry, void *context);

typedef struct TbmHashMap TbmHashMap;

/*
 * Looks `key` up in `table` of `instance` (the engine has instance 0) and stores the address of the live
 * entry, which is stable for as long as the entry lives: records elsewhere keep it as a bound address. For
 * table 24 (ACL groups) the address is that of the entry's 32 data bytes, which follow its 8 key bytes.
 */
int32_t TbmTblSearch(uint32_t instance, uint32_t table, const void *key, void **entry);

/*
 * Longest-prefix match. On table 1 the key is the FIB key (16-bit prefix length, 16-bit VPN, 32-bit
 * destination in network order), whose prefix length is not looked at; callers set it to 0.
 */
int32_t TbmTblMatch(uint32_t instance, uint32_t table, const void *key, void **entry);

/* Calls `callback` for the entries of `table` until it returns -10. */
int32_t TbmTblTrav(uint32_t instance, uint32_t table, TbmTravCallback callback, void *context);

/* Makes `ctx` stand before the first entry of any table. */
void TbmTblTravContextInit(TbmTravContext *ctx);

/*
 * Fetches the next batch: copies as many whole entries as fit into `buffer`, whose size is *bytes on entry;
 * the bytes filled are in *bytes on return. 0: this batch reached the end (it may hold no entry); 1: a full
 * batch, more remain; 2 or above, read as unsigned, is a failure. A traversal of table 24 delivers key and
 * data, 40 bytes an entry.
 */
int32_t TbmTblTravNext(uint32_t instance, uint32_t table, TbmTravContext *ctx, void *buffer, uint32_t *bytes);

/* As TbmTblTravNext, over the entries that share `key`. */
int32_t TbmTblTravNextByKey(uint32_t instance, uint32_t table, const void *key, TbmTravContext *ctx,
                            void *buffer, uint32_t *bytes);

/* Number of entries of the last batch fetched with `ctx`. */
uint32_t TbmTblTravContextCnt(const TbmTravContext *ctx);

/* Number of entries in use, or of ACL groups and rules; 0 or a code. */
int32_t TbmTblEntryNum(uint32_t instance, uint32_t table, uint32_t *count);
int32_t TbmTblAclEntryNum(uint32_t instance, uint32_t table, uint32_t *groups, uint32_t *rules);

/* Capacity of the table in entries; 0 for a table that is not defined. */
uint32_t TbmTblGetSpec(uint32_t instance, uint32_t table);

/* Bytes of memory that the table occupies. */
int32_t TbmTblMemStat(uint32_t instance, uint32_t table, uint32_t *bytes);

/*
 * Finds the rule of priority `priority` in the ACL group whose entry (as TbmTblSearch delivers it) is given,
 * and stores the addresses of its action and content blocks.
 */
int32_t TbmAclGroupSearchByPri(void *groupEntry, uint32_t priority, void **action, void **content);

/* Number of active rules of a group. */
int32_t TbmAclGroupActiveRuleNum(uint32_t groupType, uint32_t groupId, uint32_t *count);

/* Number of nodes in the map. */
int32_t TbmHashMapEntryNum(TbmHashMap *map, uint32_t *count);

/*
 * Calls `callback` for the nodes of `bucketCount` buckets from `firstBucket` on. 0: finished; 1: more
 * buckets, *nextBucket is where to go on; above 1, read as unsigned, an error.
 */
int32_t TbmHashMapTravBuckets(TbmHashMap *map, TbmTravCallback callback, void *context, uint32_t firstBucket,
                              uint32_t bucketCount, uint32_t *nextBucket, uint32_t flag);

/* Descriptor of one table, 48 bytes, indexed by table id. The engine updates entryNum while others read it.
 */
typedef struct TbmTableDesc {
  uint16_t keySize;  /*  0 */
  uint16_t dataSize; /*  2  non-zero when the table is defined */
  uint32_t reserved4;
  const char *name;       /*  8  "CAP_TABLE_..." */
  uint32_t spec;          /* 16  capacity in entries */
  uint32_t groupRuleSpec; /* 20  rules per group (ACL group table), else 0 */
  uint32_t entryNum;      /* 24 */
  uint32_t enable;        /* 28  non-zero when in use */
  uint32_t reserved32;
  uint32_t trapState; /* 36 */
  uint64_t reserved40;
} TbmTableDesc;

/* Sessions of one flow partition; nodes point to session records, null slots are free. */
typedef struct TbmFlowPartition {
  uint32_t nodeCount;
  uint32_t reserved;
  void **nodes;
} TbmFlowPartition;

/* What the table manager publishes about itself; read in place. */
typedef struct TbmGlobalInfo {
  uint32_t tableCount; /*  0  109 */
  uint32_t reserved4;
  TbmTableDesc *tables;            /*  8 */
  TbmHashMap *serverMaps;          /* 16 */
  TbmFlowPartition *flowPartition; /* 24 */
} TbmGlobalInfo;

/* Null until the table manager runs. */
extern TbmGlobalInfo *g_tbmGlobalInfo;

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_TBM_H_ */
