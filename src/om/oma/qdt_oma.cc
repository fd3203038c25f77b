#include "qdt/oma.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/engine.h"
#include "platform/omcc.h"
#include "src/om/common/bounded.h"
#include "src/om/common/log.h"
#include "src/om/common/owned.h"
#include "src/om/oma/command_line.h"
#include "src/om/oma/request.h"

namespace qdt {
namespace {

int32_t Fold(int32_t status) { return status == 0 ? kDone : kFailed; }

template <typename T>
int32_t ParseNarrow(AgentRequest request, const char *name, T *value) {
  uint64_t wide = 0;
  if (omcc_parse_uint(request, name, &wide) != 0) return kFailed;
  *value = static_cast<T>(wide);
  return kDone;
}

// What the engine runs for a line typed at the agent.
const char *DiagOnly(const char *line) {
  constexpr char kPrefix[] = "diag ";
  constexpr size_t kLength = sizeof(kPrefix) - 1;
  const bool isDiag = std::strncmp(line, kPrefix, kLength) == 0 && line[kLength] != '\0';
  return isDiag ? line : "diag";
}

// Runs `line` and sends the reply that it brings, whatever status came with it. The send's result, or -1 when
// there is nothing to send.
int32_t RunAndSend(const char *line) {
  const EngineAnswer answer = Ask(QdtProcessCmdline, line);
  return answer.reply == nullptr ? kFailed : QdtOmSendMsg(answer.reply.get());
}

}  // namespace

int32_t RunTraceCommandLine(const char *line) { return RunAndSend(line) == kFailed ? kFailed : kDone; }

}  // namespace qdt

using qdt::kDone;
using qdt::kFailed;

uint8_t QdtOmaGetBool(AgentRequest request, const char *name) {
  uint8_t flag = 0;
  return omcc_parse_bool(request, name, &flag) == 0 ? flag : uint8_t{0};
}

int32_t QdtOmaParseBool(AgentRequest request, const char *name, uint8_t *flag) {
  uint8_t parsed = 0;
  if (omcc_parse_bool(request, name, &parsed) != 0) return kFailed;
  *flag = parsed & 1;
  return kDone;
}

int32_t QdtOmaParseU64(AgentRequest request, const char *name, uint64_t *value) {
  return qdt::Fold(omcc_parse_uint(request, name, value));
}

int32_t QdtOmaParseU32(AgentRequest request, const char *name, uint32_t *value) {
  return qdt::ParseNarrow(request, name, value);
}

int32_t QdtOmaParseU16(AgentRequest request, const char *name, uint16_t *value) {
  return qdt::ParseNarrow(request, name, value);
}

int32_t QdtOmaParseU8(AgentRequest request, const char *name, uint8_t *value) {
  return qdt::ParseNarrow(request, name, value);
}

int32_t QdtOmaParseStr(AgentRequest request, const char *name, const char **text) {
  return qdt::Fold(omcc_parse_str(request, name, text));
}

int32_t QdtOmaParseMac(AgentRequest request, const char *name, uint8_t *mac) {
  const char *const text = qdt::FindText(request, name);
  return text == nullptr ? kFailed : QdtOmaStrToMac(text, mac);
}

int32_t QdtOmaParseIp(AgentRequest request, const char *name, OmaIpAddr *address) {
  const char *const text = qdt::FindText(request, name);
  return text == nullptr ? kFailed : QdtOmaStrToIp(text, address);
}

int32_t QdtOmaStrToMac(const char *text, uint8_t *mac) {
  uint8_t b[6];
  const int32_t fields =
      qdt::sscanf_s(text, "%2hhx%2hhx-%2hhx%2hhx-%2hhx%2hhx", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]);
  if (fields != 6) return kFailed;
  std::copy(std::begin(b), std::end(b), mac);
  return kDone;
}

int32_t QdtOmaStrToIp4(const char *text, uint32_t *value) {
  uint32_t network;
  if (inet_pton(AF_INET, text, &network) != 1) return kFailed;
  *value = ntohl(network);
  return kDone;
}

int32_t QdtOmaStrToIp6(const char *text, uint8_t *bytes) {
  uint8_t address[16];
  if (inet_pton(AF_INET6, text, address) != 1) return kFailed;
  std::copy(std::begin(address), std::end(address), bytes);
  return kDone;
}

uint8_t QdtOmaGetIpVer(const char *text) {
  const char *const mark = std::strpbrk(text, ".:");
  if (mark == nullptr) return 0;
  return *mark == '.' ? 4 : 6;
}

int32_t QdtOmaStrToIp(const char *text, OmaIpAddr *address) {
  address->version = QdtOmaGetIpVer(text);
  if (address->version == 4) return QdtOmaStrToIp4(text, &address->addr[0]);
  if (address->version != 6) return kFailed;
  // Whether the text was an address is not asked: callers count on success for all that has a colon.
  inet_pton(AF_INET6, text, address->addr);
  for (uint32_t &word : address->addr) word = ntohl(word);
  return kDone;
}

int32_t QdtOmaAllocCmdline(char **buffer) {
  *buffer = qdt::AllocateCommandLine(QDT_HERE).release();
  return *buffer == nullptr ? kFailed : kDone;
}

int32_t QdtOmaRunCmdline(const char *cmdline) { return qdt::Fold(qdt::RunAndSend(cmdline)); }

int32_t QdtOmaRunOwnedCmdline(const char *cmdline) {
  const qdt::OwnedText line(const_cast<char *>(cmdline));
  return qdt::RunAndSend(line.get());
}

int32_t QdtOmaChanByName(AgentRequest request, CmdlineBuilder builder) {
  const qdt::OwnedText line = qdt::AllocateCommandLine(QDT_HERE);
  if (line == nullptr) {
    QDT_LOG_ERROR("malloc buf for qdt channel msg failed\n");
    return kFailed;
  }
  if (builder(line.get(), qdt::kCommandLineRoom, request) != 0) return kFailed;
  const qdt::EngineAnswer answer = qdt::Ask(QdtSendCmdToNqe, line.get());
  if (answer.status < 0 || answer.reply == nullptr) return kFailed;
  return qdt::Fold(QdtOmSendMsg(answer.reply.get()));
}

int32_t QdtOmaCmdlineProc(AgentRequest request) {
  const char *const typed = qdt::FindText(request, "cmdline");
  if (typed == nullptr) return kFailed;
  const qdt::EngineAnswer answer = qdt::Ask(QdtProcessCmdline, qdt::DiagOnly(typed));
  if (answer.status != 0 || answer.reply == nullptr) return kFailed;
  return qdt::Fold(QdtOmSendMsg(answer.reply.get()));
}
