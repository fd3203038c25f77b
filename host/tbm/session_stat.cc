#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/arena/arena.h"
#include "host/arena/table_spec.h"
#include "host/tbm/status.h"
#include "platform/engine.h"
#include "platform/tbm.h"

// The engine's session statistics, counted in its session table.
using qdt::host::Arena;
using qdt::host::kFlowPartitionTable;

namespace {

// What is looked at of a session.
struct Session {
  uint8_t reserved0[8];
  uint8_t flags;
  uint8_t state;
  uint16_t agingTime;
  uint8_t reserved12[4];
  uint32_t translated;
  uint8_t reserved20[92];
  const uint8_t *positiveKey;
  uint8_t reserved120[48];
  const void *application;
  uint8_t reserved176[16];
};
static_assert(sizeof(Session) == 192 && offsetof(Session, positiveKey) == 112);
static_assert(offsetof(Session, translated) == 16 && offsetof(Session, application) == 168);

constexpr uint8_t kIpv6 = 1 << 0;
constexpr uint8_t kValid = 1 << 5;
constexpr uint32_t kAnyTranslation = 0xf;
constexpr uint32_t kProtocolAt = 12;  // in the keys
constexpr uint32_t kProtocolAt6 = 36;

struct Totals {
  uint32_t sessions, ipv4, ipv6, tcp, udp, icmp, other, translated, classified, leaving;
};

// The protocol that the session's key tells, or -1.
int ProtocolOf(const Session &session) {
  // A record may lead anywhere, also to null: what lies behind is no pointer before it has been checked.
  const auto key = reinterpret_cast<uintptr_t>(session.positiveKey);
  const auto *const protocol =
      reinterpret_cast<const uint8_t *>(key + ((session.flags & kIpv6) != 0 ? kProtocolAt6 : kProtocolAt));
  return Arena::Current()->Contains(protocol, 1) ? *protocol : -1;
}

void Count(const Session &session, Totals *totals) {
  if ((session.flags & kValid) == 0) return;
  ++totals->sessions;
  ++((session.flags & kIpv6) != 0 ? totals->ipv6 : totals->ipv4);
  totals->translated += (session.translated & kAnyTranslation) != 0;
  totals->classified += session.application != nullptr;
  totals->leaving += session.agingTime == 0;
  switch (ProtocolOf(session)) {
    case 6:
      ++totals->tcp;
      break;
    case 17:
      ++totals->udp;
      break;
    case 1:
    case 58:
      ++totals->icmp;
      break;
    default:
      ++totals->other;
  }
}

bool CountAll(Totals *totals) {
  constexpr uint32_t kBatch = 64;
  Session batch[kBatch];
  TbmTravContext walk;
  TbmTblTravContextInit(&walk);
  for (;;) {
    uint32_t bytes = sizeof(batch);
    const int32_t status = TbmTblTravNext(0, kFlowPartitionTable, &walk, batch, &bytes);
    for (uint32_t i = 0; i < bytes / sizeof(Session); ++i) Count(batch[i], totals);
    if (status == qdt::host::tbm::kTbmOk) return true;
    // A session that ends under the walk takes nothing from the count of the others.
    if (status != qdt::host::tbm::kTbmMore && status != qdt::host::tbm::kTbmCursorDeleted) return false;
  }
}

}  // namespace

int32_t QdtPrintSessStat(char *buffer, uint32_t size) {
  const TbmGlobalInfo *info = g_tbmGlobalInfo;
  if (Arena::Current() == nullptr || info->flowPartition == nullptr || buffer == nullptr) return -1;
  Totals totals = {};
  uint32_t serverMaps = 0;
  if (!CountAll(&totals)) return -1;
  if (info->serverMaps != nullptr) TbmHashMapEntryNum(info->serverMaps, &serverMaps);
  const int written = std::snprintf(buffer, size,
                                    "Session statistics:\n"
                                    "  Sessions            :  %u\n  Capacity            :  %u\n"
                                    "  Ipv4                :  %u\n  Ipv6                :  %u\n"
                                    "  Tcp                 :  %u\n  Udp                 :  %u\n"
                                    "  Icmp                :  %u\n  Other               :  %u\n"
                                    "  Translated          :  %u\n  Classified          :  %u\n"
                                    "  AgingOut            :  %u\n  ServerMaps          :  %u\n",
                                    totals.sessions, TbmTblGetSpec(0, kFlowPartitionTable), totals.ipv4,
                                    totals.ipv6, totals.tcp, totals.udp, totals.icmp, totals.other,
                                    totals.translated, totals.classified, totals.leaving, serverMaps);
  return written < 0 || static_cast<uint32_t>(written) >= size ? -1 : written;
}
