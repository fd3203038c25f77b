#ifndef HOST_AGENT_RECORD_H_
#define HOST_AGENT_RECORD_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "host/base/fd.h"

namespace qdt::host {

// The record of who did what: a line of syslog as RFC 5424 has it for each event, with what belongs to it as
// structured data. Nothing of what clients send can end a line, a value or the data.
class Record {
 public:
  enum class Severity : uint8_t { kWarning = 4, kNotice = 5 };
  using Values = std::span<const std::pair<const char *, std::string>>;

  // `path`: the socket of a log daemon, or a file that lines are added to, which only its owner may read.
  // Throws HostError for a file that cannot be written.
  explicit Record(std::string path);

  // `event`: "LOGIN". `text` is for readers.
  void Write(Severity severity, const char *event, Values values, std::string_view text);

  // The next line goes to the file of this name even when another has been moved there.
  void Reopen();

  // Why lines are lost, or empty.
  const std::string &failure() const { return failure_; }

 private:
  void Send(const std::string &line);

  const std::string path_;
  bool isSocket_ = false;
  UniqueFd fd_;
  std::string failure_;
};

// The line of an event, without an end. `time` is in microseconds since 1970.
std::string RecordLine(Record::Severity severity, const char *event, Record::Values values,
                       std::string_view text, int64_t time, std::string_view host, int64_t process);

}  // namespace qdt::host

#endif  // HOST_AGENT_RECORD_H_
