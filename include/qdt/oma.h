/*
 * The management-agent side of libqdt_util: one handler per management command, the frame on which handlers
 * stand, and what other parts of the library borrow from it.
 *
 * Handlers run in the agent's thread. They deliver their answers with QdtOmSendMsg and write the words of a
 * failure to the system log, never to the agent. They return 0 (answered) or -1 (not answered) unless their
 * comment says otherwise, and have released all that they took, the engine's reply included, when they
 * return. The frame keeps no state: handlers may run at the same time as far as the platform allows, except
 * where a comment says otherwise.
 */
#ifndef QDT_OMA_H_
#define QDT_OMA_H_

#include <stdint.h>

#include "qdt/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a handler receives: the parsed request of the management document library (platform/omcc.h). */
typedef struct omcc_request *AgentRequest;

/* An IP address of a request. */
typedef struct OmaIpAddr {
  uint8_t version;  /* 4, 6, or 0 when the text is neither kind */
  uint32_t addr[4]; /* in host order, most significant word first; IPv4 uses the first word only */
} OmaIpAddr;

/* Bytes of a command-line buffer, the terminating NUL counted. */
#define QDT_OMA_CMDLINE_ROOM 20480

/*
 * Writes the engine command line for `request` into `buffer`, `capacity` zeroed bytes. Non-zero abandons the
 * request.
 */
typedef int32_t (*CmdlineBuilder)(char *buffer, int32_t capacity, AgentRequest request);

/*
 * Parameters of a request, by name ("next-hop"). 0, or -1 when the parameter is absent or malformed: nothing
 * is logged and, except for QdtOmaParseU64 and QdtOmaParseStr, the output is untouched.
 */

/* Returns the flag's byte as it came; 0 when absent, which cannot be told from false. */
QDT_API uint8_t QdtOmaGetBool(AgentRequest request, const char *name);

/* Stores 0 or 1: the flag's lowest bit. */
QDT_API int32_t QdtOmaParseBool(AgentRequest request, const char *name, uint8_t *flag);

/* The document library writes straight into *value, which after a failure is what that left there. */
QDT_API int32_t QdtOmaParseU64(AgentRequest request, const char *name, uint64_t *value);

/* Store the low bits of a 64-bit number. There is no range check: 256 read as 8 bits is 0. */
QDT_API int32_t QdtOmaParseU32(AgentRequest request, const char *name, uint32_t *value);
QDT_API int32_t QdtOmaParseU16(AgentRequest request, const char *name, uint16_t *value);
QDT_API int32_t QdtOmaParseU8(AgentRequest request, const char *name, uint8_t *value);

/* The parameter's text, which stays the request's and lives as long as the call. As QdtOmaParseU64. */
QDT_API int32_t QdtOmaParseStr(AgentRequest request, const char *name, const char **text);

/* A MAC address as QdtOmaStrToMac reads it. */
QDT_API int32_t QdtOmaParseMac(AgentRequest request, const char *name, uint8_t *mac);

/* An IP address as QdtOmaStrToIp reads it. An absent parameter leaves *address untouched. */
QDT_API int32_t QdtOmaParseIp(AgentRequest request, const char *name, OmaIpAddr *address);

/* Texts as addresses: 0, or -1 with the output untouched. */

/*
 * "00e0-fc12-3456" into the 6 bytes at `mac`, in transmission order. Digits are read two at a time; what
 * follows the sixth byte is ignored.
 */
QDT_API int32_t QdtOmaStrToMac(const char *text, uint8_t *mac);

/* IPv4 into one word in host order: "1.2.3.4" is 0x01020304. */
QDT_API int32_t QdtOmaStrToIp4(const char *text, uint32_t *value);

/* IPv6 into 16 bytes in network order. */
QDT_API int32_t QdtOmaStrToIp6(const char *text, uint8_t *bytes);

/* 4 when a '.' comes first in the text, 6 when a ':' does, 0 when it has neither. */
QDT_API uint8_t QdtOmaGetIpVer(const char *text);

/*
 * An IP address of the version that QdtOmaGetIpVer sees; the version is stored whatever the result. -1 for
 * version 0 and for a malformed IPv4 text. A malformed IPv6 text is not noticed: the result is 0, with the
 * bytes of each word that stood in `addr` swapped.
 */
QDT_API int32_t QdtOmaStrToIp(const char *text, OmaIpAddr *address);

/* A zeroed command line of QDT_OMA_CMDLINE_ROOM bytes, released with free_ex. 0, or -1 without a log line. */
QDT_API int32_t QdtOmaAllocCmdline(char **buffer);

/*
 * Has the engine run a command line and sends its reply to the agent, whatever status came with it. 0, or -1
 * when there is no reply or it cannot be sent.
 */
QDT_API int32_t QdtOmaRunCmdline(const char *cmdline);

/*
 * As QdtOmaRunCmdline for a line of QdtOmaAllocCmdline, which is released with free_ex on every path. Returns
 * QdtOmSendMsg's result as it came, or -1 when there is no reply.
 */
QDT_API int32_t QdtOmaRunOwnedCmdline(const char *cmdline);

/*
 * Runs the command line that `builder` writes over the engine's message channel and sends the reply. -1 when
 * memory is short (logged), the builder abandons the request, the engine fails or does not reply, or the
 * reply cannot be sent.
 */
QDT_API int32_t QdtOmaChanByName(AgentRequest request, CmdlineBuilder builder);

/*
 * A command line typed at the agent, parameter "cmdline". The agent reaches the engine's diag commands only:
 * any other line is replaced by the bare word "diag", to which the engine answers with its usage. -1 as well
 * when the parameter is absent or the engine fails.
 */
QDT_API int32_t QdtOmaCmdlineProc(AgentRequest request);

/*
 * System statistics (qdt/stats.h). Parameter "type": "all", "normal", "discard" or "error"; anything else, or
 * none, selects no counter.
 */

/*
 * Lists the counters of these kinds that are not 0, counted from the last reset of their kind. Rows that do
 * not fit into 20480 bytes are left out, block by block. 0 whether the text could be sent or not; -1 with a
 * log line when memory is short.
 */
QDT_API int32_t QdtOmaSysStatQueryProc(AgentRequest request);

/*
 * Makes later queries count these kinds from now. The engine's counters stay as they are; no text is sent;
 * always 0. Must not run at the same time as a query, which would mix old and new.
 */
QDT_API int32_t QdtOmaSysStatResetProc(AgentRequest request);

/*
 * Asks the engine for the NAT policy rule of this name. 0: *reply is the engine's text, which the caller
 * releases with free_ex, and *length its length, the terminating NUL counted. -1: there is no rule text;
 * *reply is what the engine may have left (or null) and still the caller's.
 */
QDT_API int32_t PolicyRuleDataSearchByName(const char *ruleName, char **reply, int32_t *length);

#ifdef __cplusplus
}
#endif

#endif /* QDT_OMA_H_ */
