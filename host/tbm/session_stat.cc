#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/arena/arena.h"
#include "host/arena/table_spec.h"
#include "host/tbm/status.h"
#include "host/tbm/walk.h"
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
constexpr size_t kMostStored = 1024;

struct Totals {
  uint32_t sessions, ipv4, ipv6, tcp, udp, icmp, other, translated, classified, leaving;
};

// A session as it was at one moment, with what is attached to it.
struct Copy {
  const Session &session;
  const uint8_t *address;  // where the original stands
  uint32_t size;

  // The byte at an address, which leads into what is attached to the session; -1 when it does not.
  int At(uint64_t wanted) const {
    const uint64_t offset = wanted - reinterpret_cast<uint64_t>(address);
    return offset < size ? reinterpret_cast<const uint8_t *>(&session)[offset] : -1;
  }
};

// The protocol that the session's key tells, or -1.
int ProtocolOf(const Copy &copy) {
  const Session &session = copy.session;
  const auto key = reinterpret_cast<uint64_t>(session.positiveKey);
  return copy.At(key + ((session.flags & kIpv6) != 0 ? kProtocolAt6 : kProtocolAt));
}

void Count(const Copy &copy, Totals *totals) {
  const Session &session = copy.session;
  if ((session.flags & kValid) == 0) return;
  ++totals->sessions;
  ++((session.flags & kIpv6) != 0 ? totals->ipv6 : totals->ipv4);
  totals->translated += (session.translated & kAnyTranslation) != 0;
  totals->classified += session.application != nullptr;
  totals->leaving += session.agingTime == 0;
  switch (ProtocolOf(copy)) {
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

// A session that ends under the walk takes nothing from the count of the others.
bool CountAll(Totals *totals) {
  using namespace qdt::host::tbm;
  TableView table;
  if (TableView::OpenCurrent(0, kFlowPartitionTable, &table) != kTbmOk) return false;
  alignas(Session) uint8_t bytes[kMostStored];
  const uint32_t size = table.StoredSize();
  if (size < sizeof(Session) || size > sizeof(bytes)) return false;
  const uint64_t end = table.state().lastSerial.load(std::memory_order_acquire);
  const TableOrder order(table);
  for (Place place;;) {
    const Step step = order.Next(&place);
    if (step == Step::kLost) return false;
    if (step == Step::kEnd || place.serial > end) return true;
    switch (table.Copy(place, bytes, size)) {
      case TableView::Copied::kRestless:
        return false;
      case TableView::Copied::kGone:
        break;
      case TableView::Copied::kWhole:
        Count({*reinterpret_cast<const Session *>(bytes),
               reinterpret_cast<const uint8_t *>(table.Record(place.ref)), size},
              totals);
    }
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
