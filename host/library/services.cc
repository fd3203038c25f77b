#include "host/library/services.h"

#include <cstring>
#include <new>
#include <utility>

#include "platform/engine.h"
#include "platform/memory.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

EngineChannel g_channel;
std::string g_failure;
bool g_refused = false;

// Runs `line` and, when `reply` is not null, hands over the answer as heap text. Returns the engine's status.
int32_t RunInEngine(const char *line, char **reply) {
  g_failure.clear();
  if (g_channel == nullptr) return QDT_TBL_NOT_READY;
  EngineReply answer;
  try {
    answer = g_channel(line);
  } catch (const HostError &error) {
    g_failure = error.what();
    return QDT_TBL_NOT_READY;
  } catch (const std::bad_alloc &) {
    g_failure = "out of memory";  // so short that it takes none
    return QDT_TBL_NO_MEMORY;
  }
  g_refused = g_refused || answer.status != kReplyOk;
  if (reply != nullptr) {
    const size_t size = answer.text.size() + 1;
    *reply = static_cast<char *>(malloc_ex(g_mallocHandle, "host/library/services", __LINE__, size));
    if (*reply == nullptr) return QDT_TBL_NO_MEMORY;
    std::memcpy(*reply, answer.text.c_str(), size);
  }
  return answer.status;
}

}  // namespace

void SetEngineChannel(EngineChannel channel) { g_channel = std::move(channel); }

bool TakeEngineRefusal() { return std::exchange(g_refused, false); }

std::string TakeEngineFailure() { return std::exchange(g_failure, {}); }

}  // namespace qdt::host

extern "C" {

int32_t QdtCpCarStatClearAll(void) { return qdt::host::RunInEngine(qdt::host::kClearCpcarCommand, nullptr); }

int32_t QdtProcessCmdline(const char *cmdline, char **reply) {
  *reply = nullptr;
  return qdt::host::RunInEngine(cmdline, reply);
}

int32_t QdtSendCmdToNqe(const char *cmdline, char **reply) {
  *reply = nullptr;
  const int32_t status = qdt::host::RunInEngine(cmdline, reply);
  return status < 0 ? status : static_cast<int32_t>(std::strlen(*reply) + 1);
}

}  // extern "C"
