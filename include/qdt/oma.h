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

/* How full the engine is. */

/*
 * Lists the engine's tables that are defined, in use and have a capacity: name, capacity, entries in use, use
 * in percent (rounded down), trap state. No parameters. A table whose entries cannot be counted is left out
 * when it reports QDT_TBL_EMPTY and else ends the list, as a row does that does not fit into 20480 bytes; all
 * three are logged, and what was listed before is sent. -1 with a log line when memory is short or there is
 * no room for the list's last line, and when it cannot be sent.
 */
QDT_API int32_t QdtOmaTblUsageProc(AgentRequest request);

/*
 * The row of one table of that list. Bytes written into `room` bytes at `text` (the terminating NUL not
 * counted); 0 for a table that is not listed, and then nothing is written; -1 with a log line when the
 * entries cannot be counted or the row does not fit.
 */
QDT_API int32_t TblUsagePrintUsageInfo(char *text, uint32_t room, uint32_t table);

/*
 * Management documents with one figure. 0: *document is the text, which the caller releases with free_ex, or
 * null when the document library could not format it. -1: *document is untouched.
 */

/* Packets dropped because buffers ran short: the discard counters of the four water lines, on all cores. */
QDT_API int32_t QdtOmaPacketDropNobuffProc(char **document);

/* Use of the engine's shared memory in percent, rounded down; 0 for a partition without memory. */
QDT_API int32_t QdtOmaMemoryUsage(char **document);

/*
 * Engine switches: requests that the engine answers to a command line. Words are compared exactly.
 *
 * The "egn" handlers set and show the application-identification engine. They return QdtOmSendMsg's result as
 * it came, or -1 when there is no memory or no reply, or a line gets too long. Without its parameters each of
 * them asks for "egn help".
 */

/* "info-type": what to display. */
QDT_API int32_t QdtOmaEgnInfoQueryProc(AgentRequest request);

/* "level" and "switch": turns debugging of that level on or off. */
QDT_API int32_t QdtOmaEgnDbgSwitchSetProc(AgentRequest request);

/* "switch": turns the statistics on or off. */
QDT_API int32_t QdtOmaEgnStatSwitchSetProc(AgentRequest request);

/* "threshold-value", 32 bits: the detection threshold. */
QDT_API int32_t QdtOmaEgnDetectThresholdSetProc(AgentRequest request);

/* "stat-type": the statistics to reset. */
QDT_API int32_t QdtOmaEgnStatResetProc(AgentRequest request);

/* The others return 0, or -1 when there is no reply or it cannot be sent. */

/*
 * Tasks of the scheduler trace. "sort-by-cycles": "average" or "total"; without it the recorded tasks are
 * shown, with another word the engine's usage.
 */
QDT_API int32_t QdtOmaPerfTaskQueryProc(AgentRequest request);

/* Clears what was recorded of the tasks. No parameters. */
QDT_API int32_t QdtOmaPerfTaskResetProc(AgentRequest request);

/* "trace-mode": "cycle", "icache" or "dcache" is what to record; else the engine's usage is shown. */
QDT_API int32_t QdtOmaPerfTaskSetProc(AgentRequest request);

/* "enable": turns the performance mode on; off when it is false or absent. */
QDT_API int32_t QdtOmaPerfModeSetProc(AgentRequest request);

/* Use of the NAT address groups; with "id", 32 bits, of that one. Goes over the message channel. */
QDT_API int32_t QdtOmaNatGroupUsageProc(AgentRequest request);

/*
 * Packets that wait for their next hop to be resolved, in the engine's ARP-miss and ND-miss caches. Entries
 * are as in the tables, 32 and 72 bytes; times are seconds of the monotonic clock.
 */

/*
 * Lists the cached packets by next hop, with their time to live and what is left of it. Parameter "next-hop":
 * an address; all next hops without it. An empty cache is not answered, and is success (0). The ND handler
 * does not answer (-1) when it is to show all next hops and the table manager says that entries remain; and
 * when the table manager fails then, the handler does not release its snapshot.
 */
QDT_API int32_t QdtOmaArpmissProc(AgentRequest request);
QDT_API int32_t QdtOmaNdmissProc(AgentRequest request);

/*
 * Copies the entries of a next hop given as a text, or of all with "0.0.0.0" and "::". 0: *snapshot is
 * released by the caller with free_ex, *bytes is what is used of it. A text that is no address asks for
 * 255.255.255.255, or for the zero address. Failures are logged: -1, or the table manager's code when all
 * next hops were asked for; *bytes is untouched and *snapshot null.
 *
 * The ND cache asked for all next hops differs: 1 when entries were left behind, with *snapshot and *bytes as
 * for 0; and after the table manager's failure *snapshot is a buffer that the caller releases.
 */
QDT_API int32_t QdtGetArpMissData(void **snapshot, uint32_t *bytes, const char *nextHop);
QDT_API int32_t QdtGetNdMissData(void **snapshot, uint32_t *bytes, const char *nextHop);

/*
 * Write a block for each run of entries with the same next hop into `capacity` bytes at `text`, which must be
 * zeroed when `count` may be 0. 0, not a length; -1 when it does not fit.
 */
QDT_API int32_t QdtPrintArpMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count);
QDT_API int32_t QdtPrintNdMissInfo(char *text, uint32_t capacity, const void *entries, uint32_t count);

/* Write the header of one block, whose number counts from 1. Its length, or -1 when it does not fit. */
QDT_API int32_t QdtPrintArpMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                                   uint32_t groupSize);
QDT_API int32_t QdtPrintNdMissHdr(char *text, uint32_t capacity, const void *first, uint32_t groupNumber,
                                  uint32_t groupSize);

/*
 * Write the lines of the `groupSize` entries from `first` on, and the line that ends the block. Their length,
 * or -1 with a log line when they do not fit.
 */
QDT_API int32_t QdtPrintSingleNhpArpMissInfo(char *text, uint32_t capacity, const void *first,
                                             uint32_t groupSize);
QDT_API int32_t QdtPrintSingleNhpNdMissInfo(char *text, uint32_t capacity, const void *first,
                                            uint32_t groupSize);

/*
 * Packets that wait for fragments, in the engine's regions "IP_REASS_CTX_PTR" and "IP6_REASS_CTX_PTR". The
 * engine changes their lists while they are read: a link that leads nowhere, or round and round past the
 * list's head, ends a listing without failure.
 */

/* Parameter "type": "ipv6" runs the IPv6 handler; anything else, or nothing, the IPv4 handler. */
QDT_API int32_t QdtOmaFragReassProc(AgentRequest request);

/*
 * List the waiting packets. Parameters "source-ip" and "destination-ip", both optional: only the packets from
 * and to these addresses. An address of the other version is answered by the text of QdtOmaFragVerifyParam,
 * which counts as an answer (0). The IPv4 handler needs the engine's global table: it returns the table
 * manager's code when that cannot be searched.
 */
QDT_API int32_t QdtOmaIpv4FragReassProc(AgentRequest request);
QDT_API int32_t QdtOmaIpv6FragReassProc(AgentRequest request);

/*
 * 0 when the texts, each of which may be null, are of version `ipType` (4 or 6) as QdtOmaGetIpVer sees it.
 * -1: a line that names the first that is not stands in `buffer`, `size` bytes; nothing is written otherwise.
 */
QDT_API int32_t QdtOmaFragVerifyParam(char *buffer, uint32_t size, int32_t ipType, const char *sourceText,
                                      const char *destinationText);

/*
 * Write a block for each packet that passes the filters, addresses in host order (IPv6: four words, most
 * significant first) of which zero passes all. The length written, or -1 when a block cannot be written.
 */
QDT_API int32_t QdtOmaFragReassGetTbl(const void *region, char *buffer, uint32_t size, uint32_t source,
                                      uint32_t destination);
QDT_API int32_t QdtOmaIpv6FragReassGetTbl(const void *region, char *buffer, uint32_t size,
                                          const uint32_t *source, const uint32_t *destination);

/*
 * Write the block of one entry (104 bytes; IPv6: 128) behind the `offset` bytes of the buffer that are in
 * use. Its length, or -1 with a log line when it does not fit. The IPv4 operation also fails, with the table
 * manager's code, when the engine's global table cannot be searched.
 */
QDT_API int32_t QdtOmaFragReassPrintTblInfo(char *buffer, uint32_t size, uint32_t offset, const void *entry);
QDT_API int32_t QdtOmaIpv6FragReassPrintTblInfo(char *buffer, uint32_t size, uint32_t offset,
                                                const void *entry);

/*
 * Asks the engine for the NAT policy rule of this name. 0: *reply is the engine's text, which the caller
 * releases with free_ex, and *length its length, the terminating NUL counted. -1: there is no rule text;
 * *reply is what the engine may have left (or null) and still the caller's.
 */
QDT_API int32_t PolicyRuleDataSearchByName(const char *ruleName, char **reply, int32_t *length);

/*
 * Packet trace (qdt/trace.h). A parameter that is there and cannot be used, such as an unknown word or an
 * address that is none, is passed over as if it were absent.
 */

/*
 * Replaces all conditions of the packet-trace block by those of the request and switches the trace: "enable",
 * "packet-number" (packets to print, 5 unless given), "time-out" (300), "invert", "inner", "chip-tx-trace",
 * and the conditions "packet-from-cp", "ingress-ifindex", "max-packet-len", "min-packet-len", "cause-id",
 * "discard-type" (a name or "all"; an unknown one is logged), "source-mac", "destination-mac", "eth-type"
 * (hexadecimal), "vlan-id", "source-ip" and "destination-ip" (either version), "protocol", "ip-type",
 * "source-port", "destination-port", "tcp-flag-value", "icmp-type", "packet-type", "fragment-type" and
 * "fragment-protocol". The packet counters start again at 0. Sends no reply. -1 with a log line when the
 * engine does not offer the block, which is kept for the life of the process; nothing else fails. IPv4
 * addresses are stored in host order. The engine reads the block while it is written; no lock is taken.
 */
QDT_API int32_t QdtOmaDebugPktProc(AgentRequest request);

/*
 * Zeroes conditions, print controls and packet counters of the block and ends the trace. Traced stations and
 * other switches stay. Does nothing before QdtOmaDebugPktProc has attached the block.
 */
QDT_API void DebugPktClear(void);

/*
 * Sets the engine's own trace with a line "trace-pkt-nqe set " and the options that the builders below write,
 * in their order, and sends its reply. -1 with a log line when memory is short, the options do not fit into
 * 400 bytes, there is no reply, or sending it returns -1.
 */
QDT_API int32_t QdtOmaTracePktSetProc(AgentRequest request);

/*
 * Sends the engine's reply to "trace-pkt-nqe display index N" for an "index" from 0 to 3. -1 when there is no
 * reply or sending it returns -1; without "index", and then nothing is asked; and for any other index,
 * whatever becomes of the engine's reply to the bare "trace-pkt-nqe", which is sent.
 */
QDT_API int32_t QdtOmaTracePktQueryProc(AgentRequest request);

/*
 * Builders: write options such as "--source-port=80 " for the parameters of the request into the `room` bytes
 * at `text`. The characters written, 0 when there are none to write, -1 when they do not fit.
 */

/*
 * "destination-ip", "source-ip": IPv4 only. With a source that is no IPv4 address the length of the
 * destination's option counts twice, so that what is written behind it never reaches the engine.
 */
QDT_API int32_t FormatTypeIp(char *text, uint32_t room, AgentRequest request);

/* "destination-mac", "source-mac": passed on with colons between the bytes. */
QDT_API int32_t FormatTypeMac(char *text, uint32_t room, AgentRequest request);

/* "destination-port", "source-port", 32 bits. */
QDT_API int32_t FormatTypePort(char *text, uint32_t room, AgentRequest request);

/* "eth-type": hexadecimal digits, kept to 16 bits. */
QDT_API int32_t FormatTypeEthType(char *text, uint32_t room, AgentRequest request);

/* "protocol" and "time-out", 32 bits. */
QDT_API int32_t FormatTypeProto(char *text, uint32_t room, AgentRequest request);
QDT_API int32_t FormatTypeTimeOut(char *text, uint32_t room, AgentRequest request);

/* "enable", as 1 or 0; 0 when it is absent. */
QDT_API int32_t FormatTypeEnable(char *text, uint32_t room, AgentRequest request);

/* "index", 16 bits. */
QDT_API int32_t FormatTypeIndex(char *text, uint32_t room, AgentRequest request);

#ifdef __cplusplus
}
#endif

#endif /* QDT_OMA_H_ */
