/*
 * Packet trace: the engine prints the packets that match conditions which stand in a block of shared memory.
 * The "pkt_trace" command sets conditions one by one, shows and clears them, and switches the trace.
 *
 * The engine's cores read the block while it is written. Writes are plain stores, the bit that makes the
 * engine look at a field last; no lock is taken. All operations run in the caller's thread; the pointer to
 * the block is the only state, and it is kept for the life of the process.
 */
#ifndef QDT_TRACE_H_
#define QDT_TRACE_H_

#include <stdint.h>

#include "qdt/api.h"
#include "qdt/cli.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of the block, which is the shared region "PKT_TRACE_CTX_PTR", and where its print controls stand. */
#define QDT_PKT_TRACE_BLOCK_SIZE 224
#define QDT_PKT_TRACE_PRINT_CONTROLS 104

/* What a setter finds wrong with its argument. */
enum {
  QDT_PKT_TRACE_INPUT = 1, /* missing, or not of the kind that the condition takes */
  QDT_PKT_TRACE_ADDRESS = 2,
  QDT_PKT_TRACE_SOURCE_V6 = 3,
  QDT_PKT_TRACE_DESTINATION_V6 = 4,
  QDT_PKT_TRACE_SOURCE_PORT = 5,
  QDT_PKT_TRACE_DESTINATION_PORT = 6,
  QDT_PKT_TRACE_PROTOCOL = 7,
  QDT_PKT_TRACE_RANGE = 8
};

/*
 * The "pkt_trace" command: words[0] is the command's own name and not looked at. Runs
 *   enable, disable, show, counter, clear   the operations below
 *   set KEYWORD [ARGUMENT]                  PktTraceSet, whose result is returned
 * and prints the help for anything else. `out` is emptied first. 0 otherwise, and -1 with a log line and a
 * message in `out` when the engine does not offer the block.
 */
QDT_API int32_t VrxPktTraceCmdRun(OutputBuffer *out, int32_t wordCount, char **words);

/* Attaches the block unless it is attached; 0, or -1 with a log line. All that follows needs it attached. */
QDT_API int32_t PktTraceAttach(void);

/* VrxPktTraceCmdRun behind the attaching and the emptying. */
QDT_API int32_t CliCmdPktTrace(OutputBuffer *out, int32_t wordCount, char **words);

/* Appends the list of the command's forms. */
QDT_API void CliCmdPktTraceHelp(OutputBuffer *out);

/* Switch the trace; PktTraceDisable also leaves no packet to print. They append their confirmation. */
QDT_API void PktTraceEnable(OutputBuffer *out);
QDT_API void PktTraceDisable(OutputBuffer *out);

/* Appends print controls and conditions: all of them if any is set, else the line that says that none is. */
QDT_API void PktTraceShow(OutputBuffer *out);

/* Parts of PktTraceShow: the conditions, and those of layer 4. Every line begins with its newline. */
QDT_API void PktTraceShowCondition(OutputBuffer *out);
QDT_API void PktTraceShowL4Condition(OutputBuffer *out);

/* Appends the engine's packet counters. */
QDT_API void PktTraceShowCounter(OutputBuffer *out);

/* Zeroes conditions, print controls and counters, ends the trace and appends its confirmation. */
QDT_API void PktTraceClear(OutputBuffer *out);

/*
 * Sets one condition; `argument` is null when there is none. -1 when the condition is set, its confirmation
 * appended. 0 when it is not: the block is unchanged, and what is wrong is appended as a line.
 */
QDT_API int32_t PktTraceSet(OutputBuffer *out, const char *keyword, const char *argument);

/*
 * Setters: write one condition into `block` (QDT_PKT_TRACE_BLOCK_SIZE bytes, aligned to 8), then its mask
 * bit, and append the confirmation. `printControls` is block + QDT_PKT_TRACE_PRINT_CONTROLS. 0, or a code of
 * the list above, whose message they do not append, with the block unchanged. `keyword` is not looked at.
 */

/* "1" to "6000". The unit is the engine's. */
QDT_API int32_t PktTraceSetTimeout(OutputBuffer *out, const char *keyword, const char *argument, void *block,
                                   void *printControls);

/* Source IPv4 address, "10.1.0.7". */
QDT_API int32_t PktTraceSetSip(OutputBuffer *out, const char *keyword, const char *argument, void *block,
                               void *printControls);

/* CAPWAP control (UDP port 5246), CAPWAP data (5247) and CAPWAP fragments. No argument, and no keyword. */
QDT_API int32_t PktTraceSetCapwapCtrl(OutputBuffer *out, const char *keyword, const char *argument,
                                      void *block, void *printControls);
QDT_API int32_t PktTraceSetCapwapData(OutputBuffer *out, const char *keyword, const char *argument,
                                      void *block, void *printControls);
QDT_API int32_t PktTraceSetCapwapFrag(OutputBuffer *out, const char *keyword, const char *argument,
                                      void *block, void *printControls);

#ifdef __cplusplus
}
#endif

#endif /* QDT_TRACE_H_ */
