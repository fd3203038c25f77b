/*
 * Session aging times: how long the engine keeps an idle session, by IP protocol and by application protocol.
 * The engine publishes the times in force in two shared regions; a 0 there means that the default applies.
 *
 * All times are seconds. The defaults are zero until the Init operations have set them. The engine writes the
 * current times while they are read; a reader sees the old or the new value.
 */
#ifndef QDT_AGING_H_
#define QDT_AGING_H_

#include <stdint.h>

#include "qdt/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Application protocols with ids from 0 to QDT_AGING_APPS - 1 have a default ... */
#define QDT_AGING_APPS 106
/* ... and those below QDT_AGING_CURRENT_APPS a current time: the region holds no more. */
#define QDT_AGING_CURRENT_APPS 53
/* Values of one application's entry; the last is its time. */
#define QDT_AGING_APP_VALUES 3

/* [0] TCP, [1] UDP and every other protocol, [2] ICMP. */
QDT_API extern uint16_t g_qdtProtoTtlDefault[3];
QDT_API extern uint16_t g_qdtAppTtlDefault[QDT_AGING_APPS][QDT_AGING_APP_VALUES];

/* The engine's regions "IPP_SESSION_AGING_TIME" and "APP_SESSION_AGING_TIME"; null until attached. */
QDT_API extern uint16_t *g_qdtProtoTtlCur;
QDT_API extern uint16_t (*g_qdtAppTtlCur)[QDT_AGING_APP_VALUES];

/* How often defaults and regions have been set up: 0, then 1 for the rest of the process's life. */
QDT_API extern uint32_t g_sessInfoInitCnt;

/* Set the defaults. */
QDT_API void QdtProtoInfoInit(void);
QDT_API void QdtAppInfoTtlInit(void);

/* Attaches both regions; 0, or -1 at the first that the engine does not offer. */
QDT_API int32_t QdtSessionAgingTimeAttach(void);

/* The time of an IP protocol: TCP (6) and ICMP (1) have their own, all others share UDP's. */
QDT_API uint32_t QdtFwdGetAgingTime(uint8_t protocol);

/* The time of an application protocol; 0 for an id that has none. */
QDT_API uint32_t QdtGetAppProtoTtl(uint32_t appId);

#ifdef __cplusplus
}
#endif

#endif /* QDT_AGING_H_ */
