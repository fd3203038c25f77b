/*
 * The engine's sessions: the pieces of their diag view (table id 50, qdt/tables.h), and the management
 * handlers that list them, age them out and show their statistics.
 *
 * A session record is an entry of the engine's session table, 192 bytes, which need not be aligned for the
 * view's sections. Only a reset writes into it, and only its aging time. The records that it leads to are
 * looked at with care: an address that leads nowhere counts as none, or as a failure where that is said. A
 * query, a scan and the diag view ask the kernel once for each page of these; the operations for one record
 * ask once for each address.
 *
 * Query and reset share one filter, which the library does not lock: they must not run at the same time.
 * Handlers return as told in qdt/oma.h.
 */
#ifndef QDT_SESSION_H_
#define QDT_SESSION_H_

#include <stdint.h>

#include "qdt/api.h"
#include "qdt/oma.h"
#include "qdt/tables.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The view's sections, each for one record. 0 also for a record without the section. */
QDT_TABLE_PIECE(NqeTableParseSessKey);      /* nothing unless both keys are there */
QDT_TABLE_PIECE(NqeTableParseSessNode);     /* the session itself */
QDT_TABLE_PIECE(NqeTableParseHttpsSess);    /* its HTTPS sub-session */
QDT_TABLE_PIECE(NqeTableParseNatSess);      /* its address translation */
QDT_TABLE_PIECE(NqeTableParseIptablesSess); /* its iptables sub-session */

/* What the view looks for. */
typedef struct SessionSearchKey {
  char Text[32]; /* "all", "numN", "A:B" (source and destination), "sip:A" or "dip:A" */
  uint32_t SrcPort;
  uint32_t DstPort;
  uint32_t Protocol;
} SessionSearchKey;

/* What the view has found so far. */
typedef struct SessionCollect {
  SessionSearchKey Key;
  void *Records; /* room for Limit records of 192 bytes */
  uint32_t Bytes;
  uint32_t Count;
  uint32_t Limit;
} SessionCollect;

/*
 * Collects the record into the SessionCollect at `collect` when both of its keys are there and one of them
 * matches. A TbmTravCallback: QDT_TBL_CONTINUE, or QDT_TBL_STOP when the room is used up.
 */
QDT_API int32_t SessionNodeSearchMatch(void *record, void *collect);

/*
 * 0 when the search matches the 16-byte key of one direction, else not 0: QDT_TBL_UNSUPPORTED for a text that
 * is not two words joined by a colon. Two addresses match with all of ports and protocol, with the protocol
 * alone (ports 0), or alone (all 0); one address matches alone.
 */
QDT_API int32_t SessionNodeMatchHashNode(const SessionSearchKey *search, const void *sessionKey);

/* Two addresses, in network order, against the key's source and destination. */
QDT_API int32_t SessionNodeParamMultiIp(const SessionSearchKey *search, uint32_t source, uint32_t destination,
                                        const void *sessionKey);

/*
 * One address, in network order, against the key's source (`word` is "sip") or destination ("dip"). The text
 * that the address comes from is not looked at.
 */
QDT_API int32_t SessionNodeParamSingleIp(const SessionSearchKey *search, const char *word,
                                         const char *addressText, uint32_t address, const void *sessionKey);

/*
 * The filter: 20 rows, one a parameter. A row that is zero, because its parameter is absent, malformed or 0,
 * is off; only "type" and "session-number" stand for something when they are absent.
 *
 *   "create-in"                               minutes: sessions created within them
 *   "egress-ifindex", "ingress-ifindex"       interface index
 *   "global-source-ip", "inside-source-ip", "global-destination-ip", "inside-destination-ip"
 *                                             address, of either family, after and before translation
 *   "global-source-port", ... (as above)      port
 *   "protocol", "vpn-id"                      number
 *   "service-id"                              "http", "dns", "ftp", "ras", "telnet", "rtsp", "sip", "pptp",
 *                                             "https", "ssh", "dns-tcp"
 *   "feature"                                 "sac": sessions that application control has classified
 *   "type"                                    "ipv6": IPv6 sessions; anything else, or none: IPv4 sessions
 *   "session-number"                          most sessions listed, 0 to 255; 10 when absent or malformed
 *   "verbose"                                 flag: list identity, times and TCP flow as well
 *   "next-hop", "vlan-id"                     not supported
 */

/* Clears the filter but for the type, IPv4. Returns 1. */
QDT_API int32_t SessionParamValuelClear(void);

/* Reads the filter from the request; "session-number" and "verbose" with queryMode 1 only. Returns 0. */
QDT_API int32_t QuerySessionGetParam(AgentRequest request, int32_t queryMode);

/*
 * 0 when the record passes the filter, 1 when not: nor does a session that is not valid, whose state is 1 or
 * that is being aged out. -1 with a log line when a filter cannot be applied, because the session's key
 * cannot be read.
 */
QDT_API int32_t QuerySessionNodeMatch(const void *record);

/* A listing of sessions. */
typedef struct SessionQueryOutput {
  char *text;
  uint32_t capacity; /* of text, in bytes, the terminating NUL counted */
  uint32_t length;   /* of what has been written */
  uint32_t counter;  /* sessions listed, plus one */
} SessionQueryOutput;

/*
 * Printers of one line each, behind what has been listed. The bytes added, 0 when the session has nothing to
 * show there, or -1, and then nothing is added: when the room is too small (logged), or when the positive key
 * is missing and needed.
 */
QDT_API int32_t QuerySessionPrintProto(const void *record, SessionQueryOutput *output);
QDT_API int32_t QuerySessionPrintIdTtl(const void *record, SessionQueryOutput *output);
QDT_API int32_t QuerySessionPrintIpPort(const void *record, SessionQueryOutput *output);
QDT_API int32_t QuerySessionPrintIpv6Port(const void *record, SessionQueryOutput *output);
QDT_API int32_t QuerySessionPrintSacSess(const void *record, SessionQueryOutput *output);
QDT_API int32_t QuerySessionPrintTcpFlowInfo(const void *record, SessionQueryOutput *output);

/*
 * The session's id: the lengths of its address, index and create time in hexadecimal digits, these numbers
 * themselves, and "000" for the slot and the processor. Bytes written into `size` bytes at `buffer`, or -1
 * with a log line.
 */
QDT_API int32_t GenerateSessionId(const void *record, char *buffer, uint32_t size);

/* Name of an IP protocol. For a number without one it stands in protocolName until the next such call. */
QDT_API const char *OmaQuerySessionGetProtocolName(uint32_t number);
QDT_API extern char protocolName[32];

/*
 * Lists the record in the SessionQueryOutput at `output` when it passes the filter. A TbmTravCallback:
 * QDT_TBL_CONTINUE, or QDT_TBL_STOP when "session-number" sessions are listed, when a line cannot be printed
 * (the lines before it stay), and when the filter cannot be applied.
 */
QDT_API int32_t OmaQuerySessionGetInfo(void *record, void *output);

/*
 * Lists the sessions that pass the filter, in 20480 bytes. -1 with a log line when memory is short or the
 * table cannot be walked, and when the list cannot be sent.
 */
QDT_API int32_t QdtOmaQuerySessionProc(AgentRequest request);

/*
 * Makes the engine age out the sessions that pass the filter: without parameters every IPv4 session. Sends
 * nothing and always returns 0. Takes 10 ms for each 1000 sessions that the engine has room for.
 */
QDT_API int32_t QdtOmaResetSessionProc(AgentRequest request);

/* The same with the filter as it stands. */
QDT_API int32_t QdtSessResetProc(void);

/* Sets the aging time of one record (or none, when null) to 0 if it passes the filter. Returns 0. */
QDT_API int32_t QdtSessResetTrav(void *record);

/*
 * Calls `callback` for the sessions in the next `chunk` slots of the engine's flow partition, from slot
 * *cursor on, and moves the cursor behind them. 0, or -1 when there is no partition or no slot left.
 */
QDT_API int32_t QdtFlowPartScan(int32_t (*callback)(void *record), uint32_t chunk, uint32_t *cursor);

/*
 * Sends the engine's session statistics. -1 with a log line when memory is short or the engine fails, and
 * when the text cannot be sent.
 */
QDT_API int32_t QdtOmaSessionStatisticsProc(AgentRequest request);

/* Session rates. Storage for the engine, which the library neither reads nor writes. */
QDT_API extern uint64_t g_lastSaveFlowCreateNum;
QDT_API extern uint64_t g_lastRateCalTime;
QDT_API extern uint64_t g_curFlowNum;
QDT_API extern uint64_t g_curFlowRate;
QDT_API extern uint64_t g_maxFlowRate;
QDT_API extern uint64_t g_maxFlowNum;

#ifdef __cplusplus
}
#endif

#endif /* QDT_SESSION_H_ */
