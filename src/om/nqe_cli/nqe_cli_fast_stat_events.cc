#include "qdt/pmu.h"

// The event tables: what each mode counts. Names are the common event mnemonics of the Arm PMU.

#define QDT_PMU_CYCLES_ROW                                    \
  {                                                           \
    QDT_PMU_EVENT_CYCLES, "CYCLES", QDT_PMU_CYCLE_COUNTER, {} \
  }
#define QDT_PMU_END_ROW               \
  {                                   \
    QDT_PMU_EVENT_END, nullptr, 0, {} \
  }

const PmuEventSelect evt_select_mode1[8] = {
    {0x05, "L1D_TLB_REFILL", 0, {}},
    {0x03, "L1D_CACHE_REFILL", 1, {}},
    {0x04, "L1D_CACHE", 2, {}},
    {0x17, "L2D_CACHE_REFILL", 3, {}},
    {0x16, "L2D_CACHE", 4, {}},
    {0x13, "MEM_ACCESS", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode2[8] = {
    {0x02, "L1I_TLB_REFILL", 0, {}},
    {0x01, "L1I_CACHE_REFILL", 1, {}},
    {0x14, "L1I_CACHE", 2, {}},
    {0x10, "BR_MIS_PRED", 3, {}},
    {0x12, "BR_PRED", 4, {}},
    {0x08, "INST_RETIRED", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode3[2] = {
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_stall1[8] = {
    {0x08, "INST_RETIRED", 0, {}},
    {0x1B, "INST_SPEC", 1, {}},
    {0x23, "STALL_FRONTEND", 2, {}},
    {0x24, "STALL_BACKEND", 3, {}},
    {0xE7, "STALL_BACKEND_LD", 4, {}},
    {0xE8, "STALL_BACKEND_ST", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode4_stall2[5] = {
    {0xE2, "STALL_FRONTEND_TLB", 0, {}},
    {0xEA, "STALL_BACKEND_LD_TLB", 1, {}},
    {0xEC, "STALL_BACKEND_ST_TLB", 2, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_cache1[8] = {
    {0x03, "L1D_CACHE_REFILL", 0, {}},
    {0x04, "L1D_CACHE", 1, {}},
    {0x42, "L1D_CACHE_REFILL_RD", 2, {}},
    {0x40, "L1D_CACHE_RD", 3, {}},
    {0x43, "L1D_CACHE_REFILL_WR", 4, {}},
    {0x41, "L1D_CACHE_WR", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_cache2[8] = {
    {0x17, "L2D_CACHE_REFILL", 0, {}},
    {0x16, "L2D_CACHE", 1, {}},
    {0x52, "L2D_CACHE_REFILL_RD", 2, {}},
    {0x50, "L2D_CACHE_RD", 3, {}},
    {0x53, "L2D_CACHE_REFILL_WR", 4, {}},
    {0x51, "L2D_CACHE_WR", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_cache3[8] = {
    {0x2A, "L3D_CACHE_REFILL", 0, {}},
    {0x2B, "L3D_CACHE", 1, {}},
    {0xA2, "L3D_CACHE_REFILL_RD", 2, {}},
    {0xA0, "L3D_CACHE_RD", 3, {}},
    {0x37, "LL_CACHE_MISS_RD", 4, {}},
    {0x36, "LL_CACHE_RD", 5, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_tlb1[6] = {
    {0x02, "L1I_TLB_REFILL", 0, {}}, {0x26, "L1I_TLB", 1, {}}, {0x05, "L1D_TLB_REFILL", 2, {}},
    {0x25, "L1D_TLB", 3, {}},        QDT_PMU_CYCLES_ROW,       QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_tlb2[4] = {
    {0x2D, "L2D_TLB_REFILL", 0, {}},
    {0x2F, "L2D_TLB", 1, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_mem1[5] = {
    {0x66, "MEM_ACCESS_RD", 0, {}},
    {0x67, "MEM_ACCESS_WR", 1, {}},
    {0x13, "MEM_ACCESS", 2, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect evt_select_mode_bus1[4] = {
    {0x19, "BUS_ACCESS", 0, {}},
    {0x1D, "BUS_CYCLES", 1, {}},
    QDT_PMU_CYCLES_ROW,
    QDT_PMU_END_ROW,
};

const PmuEventSelect *evt_define[QDT_PMU_MODES + 1] = {
    nullptr,
    evt_select_mode1,
    evt_select_mode2,
    evt_select_mode3,
    evt_select_mode_stall1,
    evt_select_mode4_stall2,
    evt_select_mode_cache1,
    evt_select_mode_cache2,
    evt_select_mode_cache3,
    evt_select_mode_tlb1,
    evt_select_mode_tlb2,
    evt_select_mode_mem1,
    evt_select_mode_bus1,
};
