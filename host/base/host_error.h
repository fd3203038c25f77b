#ifndef HOST_BASE_HOST_ERROR_H_
#define HOST_BASE_HOST_ERROR_H_

#include <stdexcept>
#include <string>
#include <string_view>

namespace qdt::host {

// A condition that the user of a tool has to hear about. what() is one complete line without the tool's name
// and without a newline: what is wrong and how to mend it. Tools print it to standard error and exit with 2.
class HostError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A user's text as such a line shows it: in quotation marks, cut to a readable length, control characters
// replaced.
std::string Quoted(std::string_view text);

}  // namespace qdt::host

#endif  // HOST_BASE_HOST_ERROR_H_
