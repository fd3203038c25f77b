#include "qdt/aging.h"

#include "platform/shm.h"
#include "src/om/common/shared_word.h"
#include "src/om/engine/protocol.h"

namespace {

constexpr int kTcp = 0;
constexpr int kUdp = 1;
constexpr int kIcmp = 2;
constexpr int kAppTime = QDT_AGING_APP_VALUES - 1;

uint32_t InForce(uint16_t current, uint16_t fallback) { return current != 0 ? current : fallback; }

}  // namespace

uint16_t g_qdtProtoTtlDefault[3];
uint16_t g_qdtAppTtlDefault[QDT_AGING_APPS][QDT_AGING_APP_VALUES];
uint16_t *g_qdtProtoTtlCur;
uint16_t (*g_qdtAppTtlCur)[QDT_AGING_APP_VALUES];
uint32_t g_sessInfoInitCnt;

void QdtProtoInfoInit() {
  g_qdtProtoTtlDefault[kTcp] = 240;
  g_qdtProtoTtlDefault[kUdp] = 120;
  g_qdtProtoTtlDefault[kIcmp] = 20;
}

void QdtAppInfoTtlInit() {
  g_qdtAppTtlDefault[qdt::kAppHttp][kAppTime] = 240;
  g_qdtAppTtlDefault[qdt::kAppDns][kAppTime] = 30;
  g_qdtAppTtlDefault[qdt::kAppFtp][kAppTime] = 240;
  g_qdtAppTtlDefault[qdt::kAppRtsp][kAppTime] = 240;
  g_qdtAppTtlDefault[qdt::kAppSip][kAppTime] = 600;
  g_qdtAppTtlDefault[qdt::kAppPptp][kAppTime] = 240;
}

int32_t QdtSessionAgingTimeAttach() {
  constexpr uint32_t kAppRegion = QDT_AGING_CURRENT_APPS * sizeof(g_qdtAppTtlDefault[0]);
  g_qdtProtoTtlCur =
      static_cast<uint16_t *>(VRX_Smmap("IPP_SESSION_AGING_TIME", sizeof(g_qdtProtoTtlDefault), 0));
  if (g_qdtProtoTtlCur == nullptr) return -1;
  g_qdtAppTtlCur =
      static_cast<uint16_t(*)[QDT_AGING_APP_VALUES]>(VRX_Smmap("APP_SESSION_AGING_TIME", kAppRegion, 0));
  return g_qdtAppTtlCur == nullptr ? -1 : 0;
}

uint32_t QdtFwdGetAgingTime(uint8_t protocol) {
  const int kind = protocol == qdt::kProtocolTcp ? kTcp : protocol == qdt::kProtocolIcmp ? kIcmp : kUdp;
  const uint16_t current =
      g_qdtProtoTtlCur == nullptr ? uint16_t{0} : qdt::ReadShared(g_qdtProtoTtlCur[kind]);
  return InForce(current, g_qdtProtoTtlDefault[kind]);
}

uint32_t QdtGetAppProtoTtl(uint32_t appId) {
  if (appId >= QDT_AGING_APPS) return 0;
  const bool published = g_qdtAppTtlCur != nullptr && appId < QDT_AGING_CURRENT_APPS;
  const uint16_t current = published ? qdt::ReadShared(g_qdtAppTtlCur[appId][kAppTime]) : uint16_t{0};
  return InForce(current, g_qdtAppTtlDefault[appId][kAppTime]);
}
