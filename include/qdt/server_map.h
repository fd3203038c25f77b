/*
 * The engine's server maps, which admit traffic that no session has seen yet: the management handlers that
 * list them and age them out, and their pieces.
 *
 * An entry is 60 bytes of the engine's memory, read where it lies; only a reset writes into it. The NAT
 * server's entries (types 0 and 14) have a text form of their own; no-PAT (1 and 15), ASPF (2 and 16) and
 * other entries share the basic one. Handlers return as told in qdt/oma.h.
 */
#ifndef QDT_SERVER_MAP_H_
#define QDT_SERVER_MAP_H_

#include <stdint.h>

#include "qdt/api.h"
#include "qdt/oma.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Which entries a request means: parameter "type", "all" unless it is one of these words. */
#define QDT_SERVER_MAP_ALL 0u
#define QDT_SERVER_MAP_ASPF 1u       /* "aspf": types 2 and 16 */
#define QDT_SERVER_MAP_NAT_SERVER 2u /* "nat-server": types 0 and 14 */
#define QDT_SERVER_MAP_NO_PAT 3u     /* "no-pat": types 1 and 15 */

/* A listing of server maps and what it is about. */
typedef struct ServerMapQuery {
  char *text;
  uint32_t capacity; /* of text, in bytes, the terminating NUL counted */
  uint32_t length;   /* of what has been written */
  uint32_t kind;     /* QDT_SERVER_MAP_... */
  uint32_t address;  /* IPv4 in host order; 0: any */
} ServerMapQuery;

/*
 * Lists the server maps of the kind "type" that have the IPv4 address "ip". Sends the number of all server
 * maps, then a text for each 204 buckets of the engine's map, empty ones too. -1 when memory is short or the
 * map cannot be walked (both logged), and when a text cannot be sent. What does not fit into the 20480 bytes
 * of one text ends the listing (logged), with 0.
 */
QDT_API int32_t QdtOmaQueryServerMapProc(AgentRequest request);

/*
 * Makes the engine age out these entries, but never the NAT server's and those of type 1. Sends nothing and
 * always returns 0. Takes 10 ms for each 256 buckets.
 */
QDT_API int32_t QdtOmaResetServerMapProc(AgentRequest request);

/*
 * Sends the number of all server maps, in `size` bytes at `buffer`, which are zeroed afterwards; the listing
 * of `query` is empty then. 0, or -1 when the text does not fit (logged) or cannot be sent.
 */
QDT_API int32_t QdtOmaQueryServerMapStatistics(ServerMapQuery *query, char *buffer, uint32_t size);

/*
 * Writes the engine command line that resets the entries of the address "ip" into `size` bytes at `buffer`.
 * 0, or -1 with a log line when there is no such parameter or no room.
 */
QDT_API int32_t QdtOmaResetServerMapGetParam(AgentRequest request, char *buffer, uint32_t size);

/* The request's kind, QDT_SERVER_MAP_... */
QDT_API uint32_t GetQueryType(AgentRequest request);

/*
 * 0 when the entry is of the query's kind and has its address; of its address alone. Not 0 else. An entry has
 * the addresses that it admits and those that it translates to.
 */
QDT_API int32_t QueryServerMapMatch(const ServerMapQuery *query, const void *entry);
QDT_API int32_t QueryServerMapIpMatch(const ServerMapQuery *query, const void *entry);

/*
 * List the entry in the ServerMapQuery at `query`, or set its TTL to 0, when it matches and is not aged out.
 * TbmTravCallbacks: QDT_TBL_CONTINUE, or QDT_TBL_STOP when a text does not fit.
 */
QDT_API int32_t OmaQueryServerMapGetInfo(void *entry, void *query);
QDT_API int32_t OmaResetServerMapGetInfo(void *entry, void *query);

/*
 * Printers, behind what has been listed. The bytes added, or -1 when the room is too small (logged), and then
 * nothing is added. The NAT form consists of the four pieces below it, of one line together.
 */
QDT_API int32_t QueryServerMapPrintBasic(const void *entry, ServerMapQuery *query);
QDT_API int32_t QueryServerMapShowNat(const void *entry, ServerMapQuery *query);
QDT_API int32_t QueryServerMapNatShowTypeInfo(const void *entry, ServerMapQuery *query);
QDT_API int32_t QueryServerMapNatShowSrcInfo(const void *entry, ServerMapQuery *query);
QDT_API int32_t QueryServerMapNatShowDstInfo(const void *entry, ServerMapQuery *query);
QDT_API int32_t QueryServerMapNatShowProtocolInfo(const void *entry, ServerMapQuery *query);

/* Dotted text of a host-order address in `size` bytes at `buffer`; its length, or -1 without room (logged).
 */
QDT_API int32_t SvrmapIpAddrToStr(uint32_t address, char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* QDT_SERVER_MAP_H_ */
