/*
 * The command side of libqdt_util: the text buffer that every command answers into, the command entry points,
 * and the parsers for command words.
 *
 * Nothing here keeps state or takes locks; a buffer belongs to one command call at a time.
 */
#ifndef QDT_CLI_H_
#define QDT_CLI_H_

#include <stdint.h>

#include "qdt/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes behind OutputBuffer.buf, terminating NUL included. The caller allocates exactly this much. */
#define QDT_OUTPUT_CAPACITY 0x100000

/* A command's answer. The caller owns the area; the text is NUL-terminated at buf[len]. */
typedef struct OutputBuffer {
  char *buf;    /* QDT_OUTPUT_CAPACITY bytes */
  uint32_t len; /* bytes of text in buf, compared as a signed number */
} OutputBuffer;

/*
 * Appends formatted text (printf conventions) and returns the bytes appended. What does not fit is cut: a
 * full buffer stays full, and each further call appends nothing and returns 0. A `len` at or beyond the
 * capacity, or below 0, is logged and the buffer restarted from its beginning. A formatting failure is logged
 * and returns 0.
 */
QDT_API int32_t QdtCliPrintf(OutputBuffer *out, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

/*
 * Decimal number as strtol reads it. *ok (may be null) becomes 1 when the whole word was read, else 0. There
 * is no range check: the low 32 bits of the (clamped) 64-bit number are returned.
 */
QDT_API int32_t QdtCliParseInt(const char *text, uint8_t *ok);

/*
 * Number with a base by prefix: "0x" or "0X" hexadecimal, "0" octal, else decimal. *ok (may be null) becomes
 * 1 when the whole word was read and does not begin with '-'. The value is returned as strtoull converted it,
 * whatever *ok says. An empty word is 0.
 */
QDT_API uint64_t QdtCliParseUint64(const char *text, uint8_t *ok);

/* As QdtCliParseUint64, for values up to 0xFFFFFFFF; otherwise *ok (never null) becomes 0 and 0 is returned.
 */
QDT_API uint32_t QdtCliParseUint(const char *text, uint8_t *ok);

/*
 * Six hexadecimal fields of at most two digits, separated by colons, into the 6 bytes at `mac`; text behind
 * the sixth field is ignored. `macLen` must be 6. 0, or -1 with `mac` untouched.
 */
QDT_API int32_t QdtCliStr2Mac(const char *text, uint8_t *mac, int8_t macLen);

/*
 * Splits "first:second" at its first colon into two texts of at most size - 1 characters each. 0, or -1 with
 * a log line when a half is empty, the colon is missing or a half does not fit. The halves are not checked to
 * be addresses.
 */
QDT_API int32_t QdtCliGetIpsSeparatedByColon(const char *text, char *first, char *second, uint32_t size);

/*
 * The forwarding-interface index of a control-interface index, or the table manager's non-zero code (-3 when
 * it finds an entry that is nowhere). Callers treat a result that is negative as int32_t as a code.
 */
QDT_API uint32_t QdtCliGetFwdifIndexByCtrlIndex(uint32_t ctrlIfIndex);

/*
 * The "diag" command: words[0] is the command's own name and not looked at. Runs
 *   search nqpTable ID KEY1 KEY2 KEY3 KEY4    one engine table; the text's length is returned
 *   clear cpcar status                        the engine's QdtCpCarStatClearAll(), whose result is returned
 * and prints the usage list for anything else (the length of its last line is returned). `out` is emptied
 * first.
 */
QDT_API int32_t VrxDiagCmdRun(OutputBuffer *out, int32_t wordCount, char **words);

/*
 * The "pmc" command (qdt/pmu.h): a mode's number starts the fast statistics, "stop" stops and shows them, no
 * word shows the usage. 0; a negative code when the engine's region cannot be attached, the mode does not
 * start or stop, or the word is neither, which the answer says. `out` is emptied first.
 */
QDT_API int32_t VrxFastStatCmdRun(OutputBuffer *out, int32_t wordCount, char **words);

/*
 * The "perf" command (qdt/sched_trace.h), whose words begin with "task":
 *   set time|icache|dcache|task_path|snapshot      what the scheduler traces
 *   show, topdown avg|total, show_graph, show_active_node
 *   clear, disable
 * and the usage for anything else. 0, or -1 after the usage or when the engine's region cannot be attached,
 * which is logged. `out` is emptied first.
 */
QDT_API int32_t VrxSchedTraceCmdRun(OutputBuffer *out, int32_t wordCount, char **words);

#ifdef __cplusplus
}
#endif

#endif /* QDT_CLI_H_ */
