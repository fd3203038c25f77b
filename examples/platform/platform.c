/*
 * A platform under libqdt_util, all of it: the 41 functions and 2 variables that the library calls and never
 * contains (include/platform/), over tables that are plain arrays, and a main that asks the library a
 * question. Begin with this file on a new device: it compiles and answers as it stands, and each part can be
 * replaced by the engine's own, one after the other. docs/integration.md goes through it.
 *
 *     cc -std=c99 -pedantic -Wall -Wextra -Werror -I../../include platform.c libqdt_util.a -lpthread -o ask
 *     ./ask                                  the bridge 7, the interface map, and a management command
 *     ./ask search nqpTable 1 0 2001 0 0     any words of the diag command
 */
#define _POSIX_C_SOURCE 200809L

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/engine.h"
#include "platform/memory.h"
#include "platform/omcc.h"
#include "platform/shm.h"
#include "platform/tbm.h"
#include "qdt/cli.h"
#include "qdt/oma.h"
#include "qdt/session.h"

/* Codes of the return-code table in qdt/tables.h. */
enum { kOk = 0, kFailed = -1, kNotFound = -7 };
/* What a callback of a walk returns. */
enum { kGoOn = -9, kStop = -10 };

/* ---- The engine's state
 * -------------------------------------------------------------------------------------- */

enum { kTables = 109, kMapTable = 11, kBridgeTable = 27 };

/* Records are the engine's own structures, byte for byte (src/om/engine/ asserts what the library expects).
 */
typedef struct {
  uint32_t bridge; /* the key */
  uint32_t interface;
  uint8_t vlanFilter;
  uint8_t macLimit;
  uint16_t reserved;
  uint32_t ageTime, limit, current;
} Bridge;

typedef struct {
  uint32_t controlInterface; /* the key */
  uint32_t forwardingInterface;
  uint32_t reserved[2];
} InterfaceMap;

static Bridge g_bridges[] = {{7, 4094, 1, 0, 0, 300, 1024, 12}, {8, 4093, 0, 1, 0, 600, 512, 0}};
static InterfaceMap g_maps[] = {{2001, 101, {0, 0}}, {2002, 102, {0, 0}}, {2003, 103, {0, 0}}};

/* Each record begins with its key here; an engine's tables may keep keys apart. */
typedef struct {
  const char *name;
  void *records;
  uint32_t recordSize, count, capacity;
  uint16_t keySize;
} Table;

static const Table *TableOf(uint32_t instance, uint32_t id) {
  static const Table bridges = {"CAP_TABLE_BRIDGE", g_bridges, sizeof(Bridge), 2, 64, sizeof(uint32_t)};
  static const Table maps = {"CAP_TABLE_CTRLIF_MAP", g_maps, sizeof(InterfaceMap), 3, 4096, sizeof(uint32_t)};
  if (instance != 0) return NULL;
  return id == kBridgeTable ? &bridges : id == kMapTable ? &maps : NULL;
}

static char *RecordAt(const Table *table, uint32_t index) {
  return (char *)table->records + (size_t)index * table->recordSize;
}

/*
 * The engine's threads change tables while the library reads them. Whatever protects them in the engine
 * stands here; the library itself takes no locks, and calls nothing that blocks while one of these functions
 * runs. A callback of a walk may call back into search and match: the lock must allow readers to nest.
 */
static pthread_rwlock_t g_tablesLock = PTHREAD_RWLOCK_INITIALIZER;
static void BeginRead(void) { pthread_rwlock_rdlock(&g_tablesLock); }
static void EndRead(void) { pthread_rwlock_unlock(&g_tablesLock); }

/* ---- platform/memory.h: the allocator
 * ------------------------------------------------------------------------ */

/* Under what the engine's allocator accounts the library's memory; handed back on each call, never looked
 * into. */
void *g_mallocHandle;

/*
 * A mark before each block tells blocks that were handed out here from other pointers: free_ex is given a
 * constant text by one command path, which must be logged and left alone. Promise: aligned for any type,
 * callable from any thread, null when memory is short. Otherwise: the command that needed it says so in one
 * line and ends.
 */
typedef union {
  uint64_t mark;
  char aligned[16];
} Mark;
static const uint64_t kMark = 0x71647462u;

void *calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size) {
  Mark *block;
  (void)handle, (void)path, (void)line; /* good for a list of who holds how much */
  if (size != 0 && count > (SIZE_MAX - sizeof(Mark)) / size) return NULL;
  block = calloc(1, sizeof(Mark) + count * size);
  if (block == NULL) return NULL;
  block->mark = kMark;
  return block + 1;
}

void *malloc_ex(void *handle, const char *path, uint32_t line, size_t size) {
  return calloc_ex(handle, path, line, 1, size);
}

/* Reading before a foreign pointer is all right for texts of this program; an engine has its allocator's own
 * test. */
void free_ex(void *handle, void *pointer) {
  static int told;
  Mark mark;
  (void)handle;
  if (pointer == NULL) return;
  memcpy(&mark, (char *)pointer - sizeof(mark), sizeof(mark));
  if (mark.mark == kMark) {
    memset((char *)pointer - sizeof(mark), 0, sizeof(mark)); /* a second free is a foreign pointer */
    free((char *)pointer - sizeof(mark));
  } else if (!told++) {
    fprintf(stderr, "free_ex: %p was not handed out here\n", pointer);
  }
}

/* ---- platform/tbm.h: the table manager
 * ----------------------------------------------------------------------- */

/* What the table manager says of itself, read in place at any time: set it last, when the tables are there.
 */
TbmGlobalInfo *g_tbmGlobalInfo;

static void PublishTables(void) {
  static TbmTableDesc tables[kTables];
  static TbmGlobalInfo info = {kTables, 0, tables, NULL, NULL}; /* no server maps, no sessions */
  uint32_t id;
  for (id = 0; id < kTables; ++id) {
    const Table *const table = TableOf(0, id);
    tables[id].name = "";
    if (table == NULL) continue; /* dataSize 0: not defined, and no view asks for it */
    tables[id].keySize = table->keySize;
    tables[id].dataSize = (uint16_t)table->recordSize;
    tables[id].name = table->name;
    tables[id].spec = table->capacity;
    tables[id].entryNum = table->count;
    tables[id].enable = 1;
  }
  g_tbmGlobalInfo = &info;
}

/*
 * The address of a live entry. Promise: it stays the entry's for as long as that lives, since other records
 * keep it and views compare it; and reading there is possible even after the entry has gone. The library
 * copies what it wants through the kernel (process_vm_readv), so memory that has been unmapped gives "no
 * entry" and no fault.
 */
int32_t TbmTblSearch(uint32_t instance, uint32_t id, const void *key, void **entry) {
  const Table *const table = TableOf(instance, id);
  int32_t status = kNotFound;
  uint32_t i;
  if (table == NULL) return kNotFound;
  BeginRead();
  for (i = 0; i < table->count && status != kOk; ++i) {
    if (memcmp(RecordAt(table, i), key, table->keySize) != 0) continue;
    *entry = RecordAt(table, i);
    status = kOk;
  }
  EndRead();
  return status;
}

/* Longest-prefix match, in the tables of routes; there are none here. */
int32_t TbmTblMatch(uint32_t instance, uint32_t id, const void *key, void **entry) {
  (void)instance, (void)id, (void)key, (void)entry;
  return kNotFound;
}

/* Promise: each entry that lives throughout is visited once; 0 also when the callback has stopped the walk.
 */
int32_t TbmTblTrav(uint32_t instance, uint32_t id, TbmTravCallback callback, void *context) {
  const Table *const table = TableOf(instance, id);
  uint32_t i;
  if (table == NULL) return kNotFound;
  BeginRead();
  for (i = 0; i < table->count && callback(RecordAt(table, i), context) != kStop; ++i) continue;
  EndRead();
  return kOk;
}

/* A context belongs to one walk and has room for 64 bytes: here where to go on, and what the last batch held.
 */
enum { kNext, kFetched };

void TbmTblTravContextInit(TbmTravContext *ctx) { memset(ctx, 0, sizeof(*ctx)); }

uint32_t TbmTblTravContextCnt(const TbmTravContext *ctx) { return (uint32_t)ctx->opaque[kFetched]; }

/*
 * The next batch of the entries with `key` (null: of all), as many as fit. Promise: 0 with the last batch, 1
 * when more remain; no lock is held between two batches, and the walk goes on wherever entries come and go
 * meanwhile. Otherwise: with 1 and no progress a listing never ends, so a buffer too small for one entry is a
 * failure (2).
 */
static int32_t NextBatch(const Table *table, const void *key, TbmTravContext *ctx, void *buffer,
                         uint32_t *bytes) {
  const uint32_t room = *bytes / table->recordSize;
  uint32_t index = (uint32_t)ctx->opaque[kNext], fetched = 0;
  int32_t status = 0;
  BeginRead();
  for (; index < table->count; ++index) {
    if (key != NULL && memcmp(RecordAt(table, index), key, table->keySize) != 0) continue;
    if (fetched == room) break;
    memcpy((char *)buffer + (size_t)fetched++ * table->recordSize, RecordAt(table, index), table->recordSize);
  }
  if (index < table->count) status = room == 0 ? 2 : 1;
  EndRead();
  ctx->opaque[kNext] = index;
  ctx->opaque[kFetched] = fetched;
  *bytes = fetched * table->recordSize;
  return status;
}

int32_t TbmTblTravNext(uint32_t instance, uint32_t id, TbmTravContext *ctx, void *buffer, uint32_t *bytes) {
  return TbmTblTravNextByKey(instance, id, NULL, ctx, buffer, bytes);
}

int32_t TbmTblTravNextByKey(uint32_t instance, uint32_t id, const void *key, TbmTravContext *ctx,
                            void *buffer, uint32_t *bytes) {
  const Table *const table = TableOf(instance, id);
  if (table != NULL) return NextBatch(table, key, ctx, buffer, bytes);
  ctx->opaque[kFetched] = *bytes = 0;
  return 0;
}

/* How full tables are: for tbl-usage and module information. A table that is not defined has the capacity 0.
 */
int32_t TbmTblEntryNum(uint32_t instance, uint32_t id, uint32_t *count) {
  const Table *const table = TableOf(instance, id);
  *count = table == NULL ? 0 : table->count;
  return kOk;
}

int32_t TbmTblAclEntryNum(uint32_t instance, uint32_t id, uint32_t *groups, uint32_t *rules) {
  (void)instance, (void)id;
  *groups = *rules = 0;
  return kOk;
}

uint32_t TbmTblGetSpec(uint32_t instance, uint32_t id) {
  const Table *const table = TableOf(instance, id);
  return table == NULL ? 0 : table->capacity;
}

int32_t TbmTblMemStat(uint32_t instance, uint32_t id, uint32_t *bytes) {
  const Table *const table = TableOf(instance, id);
  *bytes = table == NULL ? 0 : table->capacity * table->recordSize;
  return kOk;
}

/* Access lists: the rule of a priority in a group that search has found. */
int32_t TbmAclGroupSearchByPri(void *groupEntry, uint32_t priority, void **action, void **content) {
  (void)groupEntry, (void)priority, (void)action, (void)content;
  return kNotFound;
}

int32_t TbmAclGroupActiveRuleNum(uint32_t groupType, uint32_t groupId, uint32_t *count) {
  (void)groupType, (void)groupId;
  *count = 0;
  return kOk;
}

/*
 * The map of server maps, walked in pieces so that the forwarding cores get the memory between them. Promise:
 * with 1 *nextBucket is behind the buckets visited. Otherwise: a walk that stands still never ends.
 */
int32_t TbmHashMapEntryNum(TbmHashMap *map, uint32_t *count) {
  (void)map;
  *count = 0;
  return kOk;
}

int32_t TbmHashMapTravBuckets(TbmHashMap *map, TbmTravCallback callback, void *context, uint32_t firstBucket,
                              uint32_t bucketCount, uint32_t *nextBucket, uint32_t flag) {
  (void)map, (void)callback, (void)context, (void)flag;
  *nextBucket = firstBucket + bucketCount;
  return 0; /* that was all */
}

/* ---- platform/shm.h: named shared memory
 * --------------------------------------------------------------------- */

/*
 * Regions by name. Promise: the same address for the life of the process, at least `size` bytes (0: as
 * created), and aligned as the engine's own structure there. The library maps a region when a command first
 * needs it and never gives it up. Otherwise: null is "no such region", and the command says so.
 */
void *VRX_Smmap(const char *name, uint32_t size, uint32_t flags) {
  static uint16_t aging[3] = {600, 120, 20}; /* TCP, UDP, ICMP: seconds */
  (void)flags;
  return strcmp(name, "IPP_SESSION_AGING_TIME") == 0 && size <= sizeof(aging) ? aging : NULL;
}

/* The partition whose use memory-usage shows, of which this platform has none. */
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

/* ---- platform/omcc.h: management requests and documents
 * ------------------------------------------------------- */

/* A request: names and values, the last name null. The library only hands the pointer back. */
typedef struct {
  const char *name;
  const char *value;
} Parameter;
struct omcc_request {
  const Parameter *parameters;
};

/* Promise: the output is untouched when there is no such parameter; a text lives as long as its request. */
int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text) {
  const Parameter *one;
  for (one = request->parameters; one->name != NULL; ++one) {
    if (strcmp(one->name, name) != 0) continue;
    *text = one->value;
    return kOk;
  }
  return kFailed;
}

int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value) {
  const char *text = NULL;
  char *end = NULL;
  unsigned long long number;
  if (omcc_parse_str(request, name, &text) != kOk) return kFailed;
  number = strtoull(text, &end, 10);
  if (*text == 0 || *end != 0) return kFailed;
  *value = number;
  return kOk;
}

int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value) {
  const char *text = NULL;
  if (omcc_parse_str(request, name, &text) != kOk) return kFailed;
  *value = strcmp(text, "true") == 0;
  return kOk;
}

/*
 * Documents are made by two handlers, memory-usage and packet-drop-nobuff. Without a document library a
 * platform answers null from omcc_new_doc, as here: these handlers then log it and return -1.
 */
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

/* ---- platform/engine.h: services of the running engine
 * -------------------------------------------------------- */

/* Takes an answer to the management agent. Promise: the text is copied or used before it returns; a handler
 * may send several pieces, which belong together in their order. */
int32_t QdtOmSendMsg(const char *reply) { return fputs(reply, stdout) < 0 ? kFailed : kOk; }

/*
 * Command lines for the engine itself. Promise: the reply is memory of malloc_ex, which the library releases
 * with free_ex; the call comes back within the patience of whoever asked. Otherwise: non-zero, or negative,
 * and the handler fails with a log line.
 */
int32_t QdtProcessCmdline(const char *cmdline, char **reply) {
  (void)cmdline, (void)reply;
  return kFailed;
}

int32_t QdtSendCmdToNqe(const char *cmdline, char **reply) {
  (void)cmdline, (void)reply;
  return kFailed;
}

/* 831 counters each (qdt/stats.h), summed over the forwarding cores, and those of one core, which may go on
 * counting meanwhile. */
void QdtSysStatAccumulate(uint32_t mask, uint64_t *vector) { (void)mask, (void)vector; }

int32_t QdtSysStatGetNumRuncs(void) { return 0; }

uint64_t *QdtSysStatGetRuncStat(uint32_t core) {
  (void)core;
  return NULL;
}

/* Names of the protocols of the control plane's rate limits; a name lives for ever. */
const char *QdtGetNameByProId(uint32_t id) {
  (void)id;
  return NULL;
}

uint32_t QdtGetProIdByName(const char *name) {
  (void)name;
  return 254; /* no such name */
}

int32_t QdtCpCarStatClearAll(void) { return kOk; }

/* Promise: at most `size` bytes with the NUL; negative when that is too few. */
int32_t QdtPrintSessStat(char *buffer, uint32_t size) {
  const int length = snprintf(buffer, size, "Session statistics:\n  Sessions  :  %d\n", 0);
  return length < 0 || (uint32_t)length >= size ? kFailed : length;
}

/* ---- A program that asks
 * --------------------------------------------------------------------------------------- */

/* The area of an answer has 1 MiB and stands in no stack. One for each thread that asks at the same time. */
static char g_answer[QDT_OUTPUT_CAPACITY];

static int Ask(int count, char **words) {
  OutputBuffer out = {g_answer, 0};
  const int32_t result = VrxDiagCmdRun(&out, count, words);
  puts(g_answer);
  return result < 0;
}

int main(int argc, char **argv) {
  static char diag[] = "diag", search[] = "search", table[] = "nqpTable", zero[] = "0";
  static char bridgeView[] = "9", bridge[] = "7", mapView[] = "1", interface[] = "2001";
  char *bridgeWords[] = {diag, search, table, bridgeView, zero, bridge, zero, zero};
  char *mapWords[] = {diag, search, table, mapView, zero, interface, zero, zero};
  const Parameter none = {NULL, NULL};
  struct omcc_request request;
  PublishTables();
  if (argc > 1) {
    argv[0] = diag;
    return Ask(argc, argv);
  }
  request.parameters = &none;
  if (Ask(8, bridgeWords) != 0 || Ask(8, mapWords) != 0) return 1;
  return QdtOmaSessionStatisticsProc(&request) == 0 ? 0 : 1;
}
