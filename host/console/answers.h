#ifndef HOST_CONSOLE_ANSWERS_H_
#define HOST_CONSOLE_ANSWERS_H_

#include <functional>
#include <string>
#include <vector>

#include "host/record/record_json.h"
#include "host/web/engines.h"
#include "host/web/routes.h"

namespace qdt::host {

// "nqecli --arena /run/nqe/arena list arp 'dmac=02:*'": words as a shell takes them, in printable ASCII.
std::string CommandText(const WebEngine *engine, const std::vector<std::string> &words);

// Adds what somebody asked for to a command's words. What follows the two dashes is never an option.
void AddAskedWord(const std::string &word, std::vector<std::string> *words);

// An answer that `write` writes, with the command that prints the same. What is longer than a browser bears
// is refused with a problem that names the command.
WebAnswer DocumentAnswer(const std::function<void(TextOut *out)> &write, const std::string &command);

inline WebEngine &EngineOf(WebEngines *engines, const RouteCall &call) {
  return engines->Find(call.Text("engine"));
}

// The parameter that most routes take.
WebParameter EngineParameter();

}  // namespace qdt::host

#endif  // HOST_CONSOLE_ANSWERS_H_
