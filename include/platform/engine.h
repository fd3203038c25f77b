/*
 * Services of the running engine and of the management agent that libqdt_util calls. The library only
 * declares these symbols; whoever links it defines them. Replies are heap texts, NUL-terminated, released by
 * the receiver with free_ex(g_mallocHandle, reply).
 */
#ifndef PLATFORM_ENGINE_H_
#define PLATFORM_ENGINE_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Delivers an answer to the management agent; 0 on success. */
int32_t QdtOmSendMsg(const char *reply);

/* Has the engine run a command line; 0 and a reply, or non-zero. */
int32_t QdtProcessCmdline(const char *cmdline, char **reply);

/* Sends a command line over the engine's channel; the reply's length, its NUL counted, or negative. */
int32_t QdtSendCmdToNqe(const char *cmdline, char **reply);

/*
 * Adds the engine's totals, summed over all cores, to `vector`, which holds 831 counters: those of the kinds
 * in `mask` (1 normal, 2 discard, 4 error).
 */
void QdtSysStatAccumulate(uint32_t mask, uint64_t *vector);

/* Number of run contexts (forwarding cores), and the 831 counters of one of them, or null. */
int32_t QdtSysStatGetNumRuncs(void);
uint64_t *QdtSysStatGetRuncStat(uint32_t core);

/* Protocol names: null when the id has no name; 254 when the name is unknown. */
const char *QdtGetNameByProId(uint32_t id);
uint32_t QdtGetProIdByName(const char *name);

/* Clears the statistics of the control-plane rate limits in the engine; 0 or a negative code. */
int32_t QdtCpCarStatClearAll(void);

/* Writes the engine's session statistics as text; negative on failure. */
int32_t QdtPrintSessStat(char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_ENGINE_H_ */
