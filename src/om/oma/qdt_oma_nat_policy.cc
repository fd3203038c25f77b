#include "platform/engine.h"
#include "qdt/oma.h"
#include "src/om/common/owned.h"
#include "src/om/common/text.h"
#include "src/om/oma/command_line.h"

int32_t PolicyRuleDataSearchByName(const char *ruleName, char **reply, int32_t *length) {
  *reply = nullptr;
  const qdt::OwnedText line = qdt::AllocateCommandLine(QDT_HERE);
  if (line == nullptr) return -1;
  qdt::Text text(line.get(), qdt::kCommandLineRoom);
  text.Print<"nat query-nat-policy ">();
  text.Print<"ruleName %s">(ruleName);
  if (text.failed()) return -1;
  *length = QdtSendCmdToNqe(line.get(), reply);
  return *length < 0 || *reply == nullptr ? -1 : 0;
}
