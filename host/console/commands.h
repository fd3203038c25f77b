#ifndef HOST_CONSOLE_COMMANDS_H_
#define HOST_CONSOLE_COMMANDS_H_

#include <string>
#include <string_view>
#include <vector>

#include "host/console/console.h"
#include "host/record/record_json.h"

// What nqecli answers in a process of its own.
namespace qdt::host {

// The table of a name, whose fields are known. Throws WebProblem 404.
const TableLayout &ReadableTable(std::string_view name);

// The words behind "nqecli show" that show one record as exact text, the view's name first; none where no
// view shows just it.
std::vector<std::string> ViewWords(const RecordSource &source, const RecordBytes &record,
                                   const TableLayout &table);

struct ViewText {
  std::string text;
  bool failed = false;  // the text is the message of a query that found nothing or was refused
};
// Throws WebProblem when there is no answer.
ViewText TextOfView(const ConsoleOptions &options, const WebEngine &engine,
                    const std::vector<std::string> &words);

// Runs nqecli, or a companion of it, on the engine; a change needs the engine to be a running one.
ChildAnswer RunTool(const ConsoleOptions &options, const WebEngine &engine, const char *program,
                    const std::vector<std::string> &words, std::string_view input, const ChildLimits &limits,
                    const WatchOutput &watch = {});

// A text of several lines; bytes that are no UTF-8 or steer a terminal are replaced.
void JsonLines(JsonWriter *json, std::string_view text);

}  // namespace qdt::host

#endif  // HOST_CONSOLE_COMMANDS_H_
