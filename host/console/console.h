#ifndef HOST_CONSOLE_CONSOLE_H_
#define HOST_CONSOLE_CONSOLE_H_

#include <memory>
#include <string>
#include <vector>

#include "host/console/child.h"
#include "host/web/engines.h"
#include "host/web/routes.h"

namespace qdt::host {

struct ConsoleOptions {
  std::string programs;              // the folder of nqecli and its companions
  std::vector<std::string> trusted;  // users whose engines are believed
  bool allowChanges = false;
  bool curves = false;  // also while nobody looks
  ChildLimits child;    // for what is asked of nqecli, statements of SQL among them
};

class History;

// What /api/v1/ offers.
class Console {
 public:
  Console(ConsoleOptions options, WebEngines *engines);
  ~Console();

  // Both outlive the routes' use.
  void AddTo(Routes *routes);
  // Ends all streams and what runs in the background.
  void Stop();

 private:
  void AddEngineRoutes(Routes *routes, const Routes *all);
  void AddTableRoutes(Routes *routes);
  WebAnswer AnswerRecord(const RouteCall &call);
  void AddInspectRoutes(Routes *routes);
  void AddCommandRoutes(Routes *routes);
  void AddLiveRoutes(Routes *routes);
  void AddChangeRoutes(Routes *routes);

  const ConsoleOptions options_;
  WebEngines &engines_;
  std::unique_ptr<History> history_;
};

}  // namespace qdt::host

#endif  // HOST_CONSOLE_CONSOLE_H_
