/*
 * The engine's statistics: what its cores count, and the names under which operators see it.
 *
 * A statistics vector holds QDT_STAT_COUNTERS counters of 64 bits in six consecutive ranges. The rate-limit
 * range is named at run time, by protocol id; the others share one table of names, index for index.
 */
#ifndef QDT_STATS_H_
#define QDT_STATS_H_

#include <stdint.h>

#include "qdt/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Normal events. */
#define QDT_STAT_NORMAL 0
#define QDT_STAT_NORMAL_COUNT 100
/* Internal operations that failed. */
#define QDT_STAT_ERROR 100
#define QDT_STAT_ERROR_COUNT 87
/* Discarded packets, by drop reason: reason i is counter QDT_STAT_DISCARD + i. */
#define QDT_STAT_DISCARD 187
#define QDT_STAT_DISCARD_COUNT 274
/* Packets received and protocol events; these are normal events, too. */
#define QDT_STAT_RECEIVED 461
#define QDT_STAT_RECEIVED_COUNT 80
/* Packets transmitted; likewise. */
#define QDT_STAT_TRANSMITTED 541
#define QDT_STAT_TRANSMITTED_COUNT 36
/* Packets that a rate limit discarded, by the engine's protocol id, 0 to 253. */
#define QDT_STAT_CAR 577
#define QDT_STAT_CAR_COUNT 254

#define QDT_STAT_COUNTERS 831
/* Counters that the name table covers: all but the last range. */
#define QDT_STAT_NAMES 577

/* Kinds of counters, as bits of the masks that select them. */
#define QDT_STAT_KIND_NORMAL 1u
#define QDT_STAT_KIND_DISCARD 2u
#define QDT_STAT_KIND_ERROR 4u

/*
 * The names of the counters 0 to QDT_STAT_NAMES - 1; null for a counter without a name, which is shown by its
 * number. The table is constant and the library's.
 */
QDT_API const char *const *QdtOmaSysStatDescGet(void);

#ifdef __cplusplus
}
#endif

#endif /* QDT_STATS_H_ */
