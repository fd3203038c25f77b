#include <algorithm>
#include <ctime>

#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/session.h"
#include "src/om/common/address.h"
#include "src/om/common/clock.h"
#include "src/om/common/log.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/owned.h"
#include "src/om/engine/table_ids.h"
#include "src/om/oma/listing_end.h"
#include "src/om/oma/request.h"
#include "src/om/oma/session_filter.h"
#include "src/om/oma/session_flow.h"

// The list of sessions that the management agent asks for, and their statistics.
uint64_t g_lastSaveFlowCreateNum, g_lastRateCalTime;
uint64_t g_curFlowNum, g_curFlowRate, g_maxFlowRate, g_maxFlowNum;

namespace qdt {
namespace {

using SessionLine = ListingEnd<SessionQueryOutput>;

const SessionRecord &AsSession(const void *record) { return *static_cast<const SessionRecord *>(record); }

bool IsVerbose() { return g_sessionFilter[kFilterVerbose].words[0] == 1; }

bool PrintCreation(SessionLine &line, const SessionRecord &session, const char *id) {
  const time_t createTime = session.createTime;
  const tm *const date = std::localtime(&createTime);
  if (date == nullptr) return false;
  const auto field = [](int value) { return static_cast<uint32_t>(value); };
  return line.Print<"ID: %s\n Create Time: %04u-%02u-%02u %02u:%02u:%02u\n Slot: %u CPU: %u">(
      id, field(date->tm_year + 1900), field(date->tm_mon + 1), field(date->tm_mday), field(date->tm_hour),
      field(date->tm_min), field(date->tm_sec), 0u, 0u);
}

bool PrintTtl(SessionLine &line, const SessionRecord &session) {
  const uint32_t ttl = session.agingTime;
  if (ttl == kSessionNeverAges) return line.Print<"  TTL: --:--:--  Left: --:--:--">();
  const auto left = static_cast<int32_t>(SecondsLeft(ttl, session.timeStamp));
  return line.Print<"  TTL: %02u:%02u:%02u  Left: %02d:%02d:%02d">(ttl / 3600, ttl / 60 % 60, ttl % 60,
                                                                   left / 3600, left / 60 % 60, left % 60);
}

// An end of an IPv4 flow.
struct Endpoint {
  uint32_t address;
  uint16_t port;
  bool operator==(const Endpoint &) const = default;
};

// What translation makes of an end stands in brackets, unless it is the same.
bool PrintTranslated(SessionLine &line, const Endpoint &original, const Endpoint &translated) {
  if (translated == original) return true;
  return line.Print<"[%s:%u]">(Address(translated.address), translated.port);
}

bool PrintIpv4Flow(SessionLine &line, const SessionRecord &session, const SessionFlow &flow) {
  const Endpoint source = {flow.source[0], flow.sourcePort};
  const Endpoint newSource = {TranslatedSource(session, flow), TranslatedSourcePort(session, flow)};
  const Endpoint destination = {flow.destination[0], flow.destinationPort};
  const Endpoint newDestination = {TranslatedDestination(session, flow),
                                   TranslatedDestinationPort(session, flow)};
  return line.Print<"\n %s:%u">(Address(source.address), source.port) &&
         PrintTranslated(line, source, newSource) &&
         line.Print<" <--> %s:%u">(Address(destination.address), destination.port) &&
         PrintTranslated(line, destination, newDestination);
}

// The lines of one session.
bool PrintSession(const SessionRecord &session, SessionQueryOutput *output) {
  const bool verbose = IsVerbose();
  if (QuerySessionPrintProto(&session, output) < 0) return false;
  if (verbose && QuerySessionPrintIdTtl(&session, output) < 0) return false;
  const auto printFlow = session.isIpv6 ? QuerySessionPrintIpv6Port : QuerySessionPrintIpPort;
  if (printFlow(&session, output) < 0) return false;
  if (verbose && QuerySessionPrintTcpFlowInfo(&session, output) < 0) return false;
  return SessionLine(output).Print<"\n">();
}

// Writes the whole answer; false with a log line.
bool List(SessionQueryOutput *output) {
  const EngineMemoryScope memory;
  if (const int32_t code = TbmTblTrav(kEngineInstance, kTableSession, OmaQuerySessionGetInfo, output);
      code != 0) {
    QDT_LOG_ERROR("Query session get info failed, ret: %d\n", code);
    return false;
  }
  if (output->counter != 1) return true;
  Text text(output->text + output->length, output->capacity - output->length);
  if (text.Print<"Current Total Sessions : 0\n">()) return true;
  QDT_LOG_ERROR("Query session get info failed, when sess num is zero, ret: %d\n", kFailed);
  return false;
}

}  // namespace
}  // namespace qdt

using qdt::kFailed;
using qdt::ReadEngineMemory;
using qdt::SessionLine;

int32_t QuerySessionPrintProto(const void *record, SessionQueryOutput *output) {
  qdt::SessionFlow flow;
  if (qdt::ReadFlow(qdt::AsSession(record), flow) != qdt::FlowState::kRead) return kFailed;
  SessionLine line(output);
  return line.Result(line.Print<"\n %s VPN: %u <--> %u ">(OmaQuerySessionGetProtocolName(flow.protocol),
                                                          flow.vpn, flow.vpn));
}

int32_t GenerateSessionId(const void *record, char *buffer, uint32_t size) {
  const qdt::SessionRecord &session = qdt::AsSession(record);
  const auto address = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(record));
  const auto high = static_cast<uint32_t>(address >> 32);
  const auto low = static_cast<uint32_t>(address);
  const uint32_t index = session.index;
  const uint32_t createTime = session.createTime;

  char digits[17];
  qdt::Text addressDigits(digits, sizeof(digits));
  high != 0 ? addressDigits.Print<"%x%08x">(high, low) : addressDigits.Print<"%x">(low);
  const uint32_t addressLength = addressDigits.size();
  const auto count = [&digits](uint32_t number) {
    qdt::Text text(digits, sizeof(digits));
    text.Print<"%x">(number);
    return text.size();
  };
  const uint32_t indexLength = count(index), timeLength = count(createTime);

  qdt::Text id(buffer, size);
  if (high != 0) {
    id.Print<"%x%x%x%x%08x%x%x%02x%x">(addressLength, indexLength, timeLength, high, low, index, createTime,
                                       0u, 0u);
  } else {
    id.Print<"%x%x%x%x%x%x%02x%x">(addressLength, indexLength, timeLength, low, index, createTime, 0u, 0u);
  }
  if (!id.failed()) return id.Result();
  return qdt::FailPrint();
}

int32_t QuerySessionPrintIdTtl(const void *record, SessionQueryOutput *output) {
  const qdt::SessionRecord &session = qdt::AsSession(record);
  char id[64];
  if (GenerateSessionId(record, id, sizeof(id)) < 0) return kFailed;
  SessionLine line(output);
  return line.Result(qdt::PrintCreation(line, session, id) && qdt::PrintTtl(line, session));
}

int32_t QuerySessionPrintSacSess(const void *record, SessionQueryOutput *output) {
  qdt::SacSubSession sac;
  if (!ReadEngineMemory(qdt::AsSession(record).sac, &sac, sizeof(sac))) return 0;
  SessionLine line(output);
  return line.Result(line.Print<"\n [sac info] appId: %u, protocolId %u, classId %u">(
      sac.appId, sac.protocolId, sac.classId));
}

int32_t QuerySessionPrintIpPort(const void *record, SessionQueryOutput *output) {
  const qdt::SessionRecord &session = qdt::AsSession(record);
  qdt::SessionFlow flow;
  if (qdt::ReadFlow(session, flow) != qdt::FlowState::kRead) return kFailed;
  SessionLine line(output);
  if (!qdt::PrintIpv4Flow(line, session, flow)) return line.Result(false);
  QuerySessionPrintSacSess(record, output);  // a session whose classification does not fit is listed without
  return line.Result(line.Print<"\n">());
}

int32_t QuerySessionPrintIpv6Port(const void *record, SessionQueryOutput *output) {
  qdt::SessionFlow flow;
  if (qdt::ReadFlow(qdt::AsSession(record), flow) != qdt::FlowState::kRead) return kFailed;
  SessionLine line(output);
  const bool printed = line.Print<"\n %s.%u">(qdt::Address(flow.source), flow.sourcePort) &&
                       line.Print<" <--> %s.%u">(qdt::Address(flow.destination), flow.destinationPort);
  if (printed) QuerySessionPrintSacSess(record, output);
  return line.Result(printed);
}

int32_t QuerySessionPrintTcpFlowInfo(const void *record, SessionQueryOutput *output) {
  qdt::TcpFlow flow;
  if (!ReadEngineMemory(qdt::AsSession(record).tcpFlow, &flow, sizeof(flow))) return 0;
  SessionLine line(output);
  return line.Result(
      line.Print<"\n UpTcpFlow:\n Wscale: %u  Up: %u  Action: %u\n BrakeCount: %u  AccCount: %u  "
                 "HoldCount: %u\n Cwnd: %u Rwnd: %u RwndMin: %u Seq: 0x%08x Ack: 0x%08x">(
          flow.windowScale, flow.up, flow.action, flow.brakeCount, flow.accelerateCount, flow.holdCount,
          flow.congestionWindow, flow.receiveWindow, flow.receiveWindowMin, flow.sequence, flow.ack));
}

int32_t OmaQuerySessionGetInfo(void *record, void *context) {
  auto *const output = static_cast<SessionQueryOutput *>(context);
  if (output->counter > qdt::g_sessionFilter[qdt::kFilterLimit].words[0]) return QDT_TBL_STOP;
  qdt::EngineMemoryScope::NoteDelivered(record, sizeof(qdt::SessionRecord));
  const int32_t matched = QuerySessionNodeMatch(record);
  if (matched == kFailed) return QDT_TBL_STOP;
  if (matched != 0) return QDT_TBL_CONTINUE;
  if (!qdt::PrintSession(qdt::AsSession(record), output)) return QDT_TBL_STOP;
  ++output->counter;
  return QDT_TBL_CONTINUE;
}

int32_t QdtOmaQuerySessionProc(AgentRequest request) {
  SessionParamValuelClear();
  QuerySessionGetParam(request, 1);
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kListingRoom);
  if (answer == nullptr) {
    QDT_LOG_ERROR("malloc buf for query session failed\n");
    return kFailed;
  }
  SessionQueryOutput output = {answer.get(), qdt::kListingRoom, 0, 1};
  if (!qdt::List(&output)) return kFailed;
  return QdtOmSendMsg(answer.get()) == 0 ? 0 : kFailed;
}

int32_t QdtOmaSessionStatisticsProc(AgentRequest) {
  const qdt::OwnedText answer = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kListingRoom);
  if (answer == nullptr) {
    QDT_LOG_ERROR("malloc buf for session statistics failed\n");
    return kFailed;
  }
  if (QdtPrintSessStat(answer.get(), qdt::kListingRoom) < 0) {
    QDT_LOG_ERROR("Print session statistics info failed\n");
    return kFailed;
  }
  return QdtOmSendMsg(answer.get()) == 0 ? 0 : kFailed;
}
