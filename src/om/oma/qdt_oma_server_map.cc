#include <arpa/inet.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/server_map.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/clock.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/owned.h"
#include "src/om/common/record_copy.h"
#include "src/om/engine/server_map.h"
#include "src/om/oma/listing_end.h"
#include "src/om/oma/request.h"

// The list of server maps that the management agent asks for, and their reset.
namespace qdt {
namespace {

constexpr int32_t kMatches = 0;
constexpr int32_t kDiffers = 1;

// Buckets of one walk; a reset then leaves the memory to the forwarding cores.
constexpr uint32_t kQueryBuckets = 204;
constexpr uint32_t kResetBuckets = 256;
constexpr useconds_t kResetPause = 10000;
constexpr int32_t kMoreBuckets = 1;

using ServerMapLine = ListingEnd<ServerMapQuery>;

ServerMapEntry AsEntry(const void *entry) { return CopyOf<ServerMapEntry>(entry); }

// The kind of entries of a type, or one that no request means.
uint32_t KindOf(ServerMapType type) {
  switch (type) {
    case ServerMapType::kAspf:
    case ServerMapType::kAspf16:
      return QDT_SERVER_MAP_ASPF;
    case ServerMapType::kNatServer:
    case ServerMapType::kNatServerReverse:
      return QDT_SERVER_MAP_NAT_SERVER;
    case ServerMapType::kNoPat:
    case ServerMapType::kNoPat15:
      return QDT_SERVER_MAP_NO_PAT;
    default:
      return QDT_SERVER_MAP_ALL;
  }
}

// Whether the entry translates to the address.
bool TranslatesTo(const ServerMapEntry &entry, uint32_t address) {
  const auto isOneOf = [address](const uint32_t(&addresses)[2]) {
    return addresses[0] == address || addresses[1] == address;
  };
  switch (KindOf(entry.type)) {
    case QDT_SERVER_MAP_NAT_SERVER:
      return entry.nat.address == address;
    case QDT_SERVER_MAP_NO_PAT:
      return isOneOf(entry.noPat.addresses);
    case QDT_SERVER_MAP_ASPF:
      return isOneOf(entry.aspf.addresses);
    default:
      return false;
  }
}

// Whether a request concerns the entry.
bool IsMeant(const ServerMapQuery *query, const ServerMapEntry &entry) {
  return entry.type <= ServerMapType::kLast && QueryServerMapMatch(query, &entry) == kMatches &&
         entry.ttl != kServerMapAgedOut;
}

bool IsReset(ServerMapType type) {
  return KindOf(type) != QDT_SERVER_MAP_NAT_SERVER && type != ServerMapType::kNoPat;
}

ServerMapQuery ReadQuery(AgentRequest request) {
  const char *const address = FindText(request, "ip");
  return {nullptr, 0, 0, GetQueryType(request), address == nullptr ? 0 : ntohl(inet_addr(address))};
}

TbmHashMap *ServerMaps() { return g_tbmGlobalInfo == nullptr ? nullptr : g_tbmGlobalInfo->serverMaps; }

// Visits the next buckets from *bucket on and moves it behind them.
int32_t WalkBuckets(TbmTravCallback visit, ServerMapQuery *query, uint32_t count, uint32_t *bucket) {
  TbmHashMap *const map = ServerMaps();
  if (map == nullptr) return QDT_TBL_NOT_READY;
  return TbmHashMapTravBuckets(map, visit, query, *bucket, count, bucket, 1);
}

// Walks fail with any status but "finished" and "more buckets", negative ones too.
bool WalkFailed(int32_t status) { return static_cast<uint32_t>(status) > kMoreBuckets; }

// Sends the text of `size` bytes and makes the listing an empty one.
bool SendAndClear(ServerMapQuery *query, char *text, uint32_t size) {
  if (QdtOmSendMsg(text) != 0) return false;
  std::memset(text, 0, size);
  query->length = 0;
  return true;
}

// Sends everything; false when that failed.
bool List(ServerMapQuery *query) {
  if (QdtOmaQueryServerMapStatistics(query, query->text, query->capacity) != 0) return false;
  uint32_t bucket = 0;
  int32_t status;
  do {
    status = WalkBuckets(OmaQueryServerMapGetInfo, query, kQueryBuckets, &bucket);
    if (WalkFailed(status)) {
      QDT_LOG_ERROR("Query server map trav bucket failed, ret: %d\n", status);
      return false;
    }
    if (!SendAndClear(query, query->text, query->capacity)) return false;
  } while (status == kMoreBuckets);
  return true;
}

// What a NAT server's address is translated to, behind each of its ends.
bool PrintTranslation(ServerMapLine &line, const ServerMapEntry &entry) {
  if (entry.nat.address == 0) return true;
  const Ipv4Text address = ToText(entry.nat.address);
  return entry.nat.port != 0 ? line.Print<"[%s:%d]">(address.c_str(), entry.nat.port)
                             : line.Print<"[%s]">(address.c_str());
}

// Port and translation of an end whose address is not any.
bool PrintRestOfEnd(ServerMapLine &line, const ServerMapEntry &entry, uint16_t port) {
  return (port == 0 || line.Print<":%d">(port)) && PrintTranslation(line, entry);
}

}  // namespace
}  // namespace qdt

using qdt::AsEntry;
using qdt::kDiffers;
using qdt::kFailed;
using qdt::kMatches;
using qdt::ServerMapLine;
using qdt::ServerMapType;

uint32_t GetQueryType(AgentRequest request) {
  const char *const type = qdt::FindText(request, "type");
  const std::string_view word = type == nullptr ? "all" : type;
  if (word == "aspf") return QDT_SERVER_MAP_ASPF;
  if (word == "nat-server") return QDT_SERVER_MAP_NAT_SERVER;
  if (word == "no-pat") return QDT_SERVER_MAP_NO_PAT;
  return QDT_SERVER_MAP_ALL;
}

int32_t QueryServerMapIpMatch(const ServerMapQuery *query, const void *entry) {
  const qdt::ServerMapEntry &map = AsEntry(entry);
  const uint32_t address = query->address;
  const bool matches =
      address == 0 || address == map.source || address == map.destination || qdt::TranslatesTo(map, address);
  return matches ? kMatches : kDiffers;
}

int32_t QueryServerMapMatch(const ServerMapQuery *query, const void *entry) {
  const bool isOfKind = query->kind == QDT_SERVER_MAP_ALL || query->kind == qdt::KindOf(AsEntry(entry).type);
  return isOfKind ? QueryServerMapIpMatch(query, entry) : kDiffers;
}

int32_t SvrmapIpAddrToStr(uint32_t address, char *buffer, uint32_t size) {
  qdt::Text text(buffer, size);
  if (text.Print<"%s">(qdt::Address(address))) return text.Result();
  return qdt::FailPrint();
}

int32_t QueryServerMapNatShowTypeInfo(const void *entry, ServerMapQuery *query) {
  ServerMapLine line(query);
  switch (AsEntry(entry).type) {
    case ServerMapType::kNatServer:
      return line.Result(line.Print<"\n Type: Nat Server">());
    case ServerMapType::kNatServerReverse:
      return line.Result(line.Print<"\n Type: Nat Server Reverse">());
    default:
      return line.Result(line.Print<"\n Type: Unknown">());
  }
}

int32_t QueryServerMapNatShowSrcInfo(const void *entry, ServerMapQuery *query) {
  const qdt::ServerMapEntry &map = AsEntry(entry);
  ServerMapLine line(query);
  if (map.source == 0) return line.Result(line.Print<",  ANY">());
  return line.Result(line.Print<",  %s">(qdt::Address(map.source)) &&
                     qdt::PrintRestOfEnd(line, map, map.sourcePort));
}

int32_t QueryServerMapNatShowDstInfo(const void *entry, ServerMapQuery *query) {
  const qdt::ServerMapEntry &map = AsEntry(entry);
  ServerMapLine line(query);
  if (map.destination == 0) return line.Result(line.Print<"ANY">());
  return line.Result(line.Print<"%s">(qdt::Address(map.destination)) &&
                     qdt::PrintRestOfEnd(line, map, map.destinationPort));
}

int32_t QueryServerMapNatShowProtocolInfo(const void *entry, ServerMapQuery *query) {
  const qdt::ServerMapEntry &map = AsEntry(entry);
  ServerMapLine line(query);
  bool printed =
      map.protocol != 0 ? line.Print<",  protocol:%d">(map.protocol) : line.Print<",  protocol:---">();
  if (printed && map.type == ServerMapType::kNatServerReverse)
    printed = line.Print<",  counter: %d">(static_cast<int32_t>(map.nat.hits));
  return line.Result(printed && line.Print<"\n">());
}

int32_t QueryServerMapShowNat(const void *entry, ServerMapQuery *query) {
  ServerMapLine line(query);
  return line.Result(QueryServerMapNatShowTypeInfo(entry, query) >= 0 &&
                     QueryServerMapNatShowSrcInfo(entry, query) >= 0 && line.Print<" -> ">() &&
                     QueryServerMapNatShowDstInfo(entry, query) >= 0 &&
                     QueryServerMapNatShowProtocolInfo(entry, query) >= 0);
}

int32_t QueryServerMapPrintBasic(const void *entry, ServerMapQuery *query) {
  const qdt::ServerMapEntry &map = AsEntry(entry);
  ServerMapLine line(query);
  const auto type = static_cast<uint8_t>(map.type);
  bool printed = line.Print<"\n vrf: %d, pro: %u, 0x%08x:%u -> 0x%08x:%u">(
      map.vrf, map.protocol, map.source, map.sourcePort, map.destination, map.destinationPort);
  if (printed && map.ttl < qdt::kServerMapNeverAges) {
    const uint32_t left = qdt::SecondsLeft(map.ttl, map.timeStamp);
    printed = line.Print<"\n zone: %d, type: %d, flag: 0x%08x, ttl: %u, left-time: %d\n">(
        map.zone, type, map.flag, map.ttl, static_cast<int32_t>(left));
  } else if (printed) {
    printed = line.Print<"\n zone: %d, type: %d, flag: 0x%08x\n">(map.zone, type, map.flag);
  }
  return line.Result(printed);
}

int32_t OmaQueryServerMapGetInfo(void *entry, void *context) {
  auto *const query = static_cast<ServerMapQuery *>(context);
  const qdt::ServerMapEntry &map = AsEntry(entry);
  if (!qdt::IsMeant(query, map)) return QDT_TBL_CONTINUE;
  const auto print =
      qdt::KindOf(map.type) == QDT_SERVER_MAP_NAT_SERVER ? QueryServerMapShowNat : QueryServerMapPrintBasic;
  return print(&map, query) < 0 ? QDT_TBL_STOP : QDT_TBL_CONTINUE;
}

int32_t OmaResetServerMapGetInfo(void *entry, void *context) {
  const qdt::ServerMapEntry map = AsEntry(entry);
  if (qdt::IsMeant(static_cast<ServerMapQuery *>(context), map) && qdt::IsReset(map.type)) {
    const uint64_t ttl = reinterpret_cast<uint64_t>(entry) + offsetof(qdt::ServerMapEntry, ttl);
    qdt::WriteEngineMemory(ttl, &qdt::kServerMapAgedOut, sizeof(qdt::kServerMapAgedOut));
  }
  return QDT_TBL_CONTINUE;
}

int32_t QdtOmaQueryServerMapStatistics(ServerMapQuery *query, char *buffer, uint32_t size) {
  uint32_t count = 0;
  if (TbmHashMap *const map = qdt::ServerMaps(); map != nullptr) TbmHashMapEntryNum(map, &count);
  qdt::Text text(buffer, size);
  if (!text.Print<"Total servermap number : %u \n">(count)) return qdt::FailPrint();
  return qdt::SendAndClear(query, buffer, size) ? 0 : kFailed;
}

int32_t QdtOmaQueryServerMapProc(AgentRequest request) {
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kListingRoom);
  if (answer == nullptr) {
    QDT_LOG_ERROR("malloc buf for server map failed\n");
    return kFailed;
  }
  ServerMapQuery query = qdt::ReadQuery(request);
  query.text = answer.get();
  query.capacity = qdt::kListingRoom;
  return qdt::List(&query) ? 0 : kFailed;
}

int32_t QdtOmaResetServerMapProc(AgentRequest request) {
  ServerMapQuery query = qdt::ReadQuery(request);
  uint32_t bucket = 0;
  int32_t status;
  do {
    const qdt::EngineMemoryScope memory;
    status = qdt::WalkBuckets(OmaResetServerMapGetInfo, &query, qdt::kResetBuckets, &bucket);
    usleep(qdt::kResetPause);
  } while (status == qdt::kMoreBuckets);
  return 0;
}

int32_t QdtOmaResetServerMapGetParam(AgentRequest request, char *buffer, uint32_t size) {
  const char *const address = qdt::FindText(request, "ip");
  if (address == nullptr) {
    QDT_LOG_ERROR("Get reset server map ip failed\n");
    return kFailed;
  }
  qdt::Text line(buffer, size);
  if (line.Print<"server-map reset-server-map ip %s">(address)) return 0;
  QDT_LOG_ERROR("sprintfs reset ip failed\n");
  return kFailed;
}
