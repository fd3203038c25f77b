/*
 * Fast statistics: what the engine's forwarding cores count at their measurement points with the processor's
 * performance-monitoring unit, and the event tables that say what is counted.
 *
 * The engine and this library share the region "FAST_STAT_SSMAP_PTR". A mode from 1 to QDT_PMU_MODES, written
 * into the region, makes every core count the events of that mode's table; 0 stops them. The engine's cores
 * update the counters while this library reads them; a stop waits for the cores before it reads.
 *
 * Texts for the operator go to the buffers given; what is wrong with a mode or a buffer is told on standard
 * output. One command runs at a time: nothing here takes locks.
 */
#ifndef QDT_PMU_H_
#define QDT_PMU_H_

#include <stdint.h>

#include "qdt/api.h"
#include "qdt/cli.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One row of an event table, 40 bytes. */
typedef struct PmuEventSelect {
  uint32_t event;       /* event number of the Arm PMU, or one of the two numbers below */
  const char *name;     /* the event's mnemonic; null in an end row */
  uint32_t counter;     /* counter index: 0 to 5, or QDT_PMU_CYCLE_COUNTER */
  uint32_t reserved[5]; /* 0 */
} PmuEventSelect;

#define QDT_PMU_EVENT_CYCLES 0xC0BE /* the cycle counter, which is no event of its own */
#define QDT_PMU_EVENT_END 0xC0BF    /* the row behind a table's last event */
#define QDT_PMU_CYCLE_COUNTER 31

/* Events that a core counts at one time, and so the most that a table holds before its end row. */
#define QDT_PMU_EVENTS 8

/* Modes are 1 to QDT_PMU_MODES. */
#define QDT_PMU_MODES 12

/*
 * The event tables, one a mode: rows of events, then an end row. The engine reads the event number and the
 * counter index of each row to program its counters; the statistics of row i are a point's event entry i.
 */
QDT_API extern const PmuEventSelect evt_select_mode1[8];        /*  1 data caches and memory */
QDT_API extern const PmuEventSelect evt_select_mode2[8];        /*  2 instructions and branches */
QDT_API extern const PmuEventSelect evt_select_mode3[2];        /*  3 cycles alone */
QDT_API extern const PmuEventSelect evt_select_mode_stall1[8];  /*  4 stalls, by side and access */
QDT_API extern const PmuEventSelect evt_select_mode4_stall2[5]; /*  5 stalls for address translation */
QDT_API extern const PmuEventSelect evt_select_mode_cache1[8];  /*  6 level-1 data cache */
QDT_API extern const PmuEventSelect evt_select_mode_cache2[8];  /*  7 level-2 cache */
QDT_API extern const PmuEventSelect evt_select_mode_cache3[8];  /*  8 level-3 and last-level cache */
QDT_API extern const PmuEventSelect evt_select_mode_tlb1[6];    /*  9 level-1 address translation */
QDT_API extern const PmuEventSelect evt_select_mode_tlb2[4];    /* 10 level-2 address translation */
QDT_API extern const PmuEventSelect evt_select_mode_mem1[5];    /* 11 memory accesses */
QDT_API extern const PmuEventSelect evt_select_mode_bus1[4];    /* 12 bus */

/*
 * The tables by mode; entry 0 is null. A mode whose entry has been set to null is refused.
 */
QDT_API extern const PmuEventSelect *evt_define[QDT_PMU_MODES + 1];

/* The region's records: of one measurement point (136 bytes), and of one core (1096 bytes, eight points). */
typedef struct FastStatPoint FastStatPoint;
typedef struct FastStatCore FastStatCore;

/* Cores and points that the region has records for. */
#define QDT_FAST_STAT_CORES 4
#define QDT_FAST_STAT_POINTS 8

/*
 * The attached region: the number of forwarding cores, the mode word, and the first of QDT_FAST_STAT_CORES
 * core records. Null until attached, then kept for the life of the process.
 */
QDT_API extern int32_t *g_nqe_core_num;
QDT_API extern uint32_t *g_fast_stat_mode;
QDT_API extern FastStatCore *g_fast_stat_lcore;

/*
 * Attaches the region: 0, 1 when it is attached already, or -1 with a line on standard output. All operations
 * below but the help need it attached.
 */
QDT_API int32_t get_fast_stat_SSMAP(void);

/*
 * Clears all counters and starts the mode. 0; -10 while a mode is running, whose counters stay; -1 for a mode
 * without a table, after the counters were cleared.
 */
QDT_API int32_t fast_pmc_start(int32_t mode);

/*
 * Stops the mode, waits for the cores and writes their statistics, then the line of the stop, into the `size`
 * bytes at `buffer`. The bytes written (the terminating NUL not counted), or -1 when they do not fit; the
 * mode is stopped even so.
 */
QDT_API int32_t fast_pmc_stop(char *buffer, uint32_t size);

/* Waits until no core is busy measuring, in at most 1000 passes without a pause. */
QDT_API void wait_fast_pmc_stop(void);

/*
 * Statistics as comma-separated lines that end with "\r\n": of all cores, of one core (a header that names
 * the columns, then its points that were hit), of one point. `table` says which events were counted. The
 * bytes written into the `size` bytes at `buffer` (the terminating NUL not counted), or -1 when they do not
 * fit.
 */
QDT_API int32_t fast_stat_AllDump(const PmuEventSelect *table, char *buffer, uint32_t size);
QDT_API int32_t fast_stat_lcore_dump(int32_t core, const FastStatCore *record, const PmuEventSelect *table,
                                     char *buffer, uint32_t size);
QDT_API int32_t fast_stat_dump(int32_t point, const FastStatPoint *record, const PmuEventSelect *table,
                               char *buffer, uint32_t size);

/* Zero the counters of every core record, however many cores there are, and of one. Busy flags stay. */
QDT_API void fast_stat_AllClear(void);
QDT_API void fast_stat_lcore_clear(FastStatCore *record);

/* Appends the usage of the "pmc" command. */
QDT_API void FastStatHelp(OutputBuffer *out);

/* The "pmc" command behind its attachment; see VrxFastStatCmdRun. Appends its answer. */
QDT_API int32_t VrxFastStatCmdRunInner(OutputBuffer *out, int32_t wordCount, char **words);

#ifdef __cplusplus
}
#endif

#endif /* QDT_PMU_H_ */
