#ifndef SRC_OM_ENGINE_FAST_STAT_H_
#define SRC_OM_ENGINE_FAST_STAT_H_

#include "qdt/pmu.h"
#include "src/om/engine/layout.h"

// The region of the fast statistics. Its creator is the engine, whose cores own the busy flags and the
// counters; commands write the mode, and clear counters before they start one. The public header names the
// records of cores and points, which therefore stand outside the namespace.

QDT_RECORD_SIZE(PmuEventSelect, 40);
QDT_FIELD_AT(PmuEventSelect, event, 0, 4);
QDT_FIELD_AT(PmuEventSelect, name, 8, 8);
QDT_FIELD_AT(PmuEventSelect, counter, 16, 4);

struct FastStatPoint {
  struct Event {
    uint64_t reserved0;
    uint64_t count;
  };
  uint32_t hits;
  uint32_t packets;
  Event events[QDT_PMU_EVENTS];  // in the order of the mode's event table
};
QDT_RECORD_SIZE(FastStatPoint, 136);
QDT_FIELD_AT(FastStatPoint, hits, 0, 4);
QDT_FIELD_AT(FastStatPoint, packets, 4, 4);
QDT_FIELD_AT(FastStatPoint, events, 8, 128);
QDT_RECORD_SIZE(FastStatPoint::Event, 16);
QDT_FIELD_AT(FastStatPoint::Event, count, 8, 8);

struct FastStatCore {
  uint32_t busy;  // set while the core measures; 0 once it has seen the stop
  uint32_t reserved4;
  FastStatPoint points[QDT_FAST_STAT_POINTS];
};
QDT_RECORD_SIZE(FastStatCore, 1096);
QDT_FIELD_AT(FastStatCore, busy, 0, 4);
QDT_FIELD_AT(FastStatCore, points, 8, 1088);

namespace qdt {

constexpr char kFastStatRegion[] = "FAST_STAT_SSMAP_PTR";

struct FastStatRegion {
  int32_t coreCount;  // of the engine; only the first QDT_FAST_STAT_CORES have records
  uint32_t mode;      // 0: stopped
  FastStatCore cores[QDT_FAST_STAT_CORES];
};
QDT_RECORD_SIZE(FastStatRegion, 4392);
QDT_FIELD_AT(FastStatRegion, coreCount, 0, 4);
QDT_FIELD_AT(FastStatRegion, mode, 4, 4);
QDT_FIELD_AT(FastStatRegion, cores, 8, 4384);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_FAST_STAT_H_
