#ifndef HOST_WEB_MESSAGE_H_
#define HOST_WEB_MESSAGE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qdt::host {

using NamedText = std::pair<std::string, std::string>;

// What an HTTP client asks. Everything in it comes from strangers; it has passed the limits on sizes, and no
// more.
struct WebRequest {
  std::string method;
  std::string path;                   // decoded, begins with a slash
  std::vector<NamedText> parameters;  // of the query, decoded, in their order
  std::vector<NamedText> headers;     // names in small letters
  std::string body;

  // The value of a header; empty where there is none, or more than one.
  std::string_view Header(std::string_view name) const;
  size_t HeaderCount(std::string_view name) const;
};

// Reads a request's target, "/PATH?NAME=VALUE&...". False when it is not one: no path that begins with a
// slash, a percent sign that is no code, a byte that belongs into no address, a byte 0, or text that is no
// UTF-8.
bool ReadTarget(std::string_view target, WebRequest *request);

// Bytes of the UTF-8 character that the text, not empty, begins with; 0 when it begins with none.
size_t Utf8CharacterAt(std::string_view text);

// Where an answer that has no end yet is written to. False when nobody reads it any longer.
using SendPart = std::function<bool(std::string_view part)>;

struct WebAnswer {
  uint32_t status = 200;
  std::string contentType;
  std::vector<NamedText> headers;
  std::string body;
  // The body's storage where it is part of the program; `body` is empty then.
  std::string_view constant;
  // Of an answer that goes on for as long as somebody listens: called once, returns when it is over.
  std::function<void(const SendPart &send)> stream;

  std::string_view Body() const { return constant.empty() ? std::string_view(body) : constant; }
};

// The standard text of a status: "Not Found".
std::string_view StatusText(uint32_t status);

// A problem document (RFC 9457): {"type": "about:blank", "title": "Not Found", "status": 404, "detail":
// "..."}, the detail one line that says what is wrong and how to mend it. `kind` is the last part of the type
// where there is more to tell than the status, as "engine-gone"; then the type is "urn:qdt:problem:KIND".
WebAnswer ProblemAnswer(uint32_t status, std::string_view detail, std::string_view kind = {});

// What a handler throws to answer with a problem.
class WebProblem : public std::exception {
 public:
  WebProblem(uint32_t status, std::string detail, std::string kind = {})
      : status_(status), detail_(std::move(detail)), kind_(std::move(kind)) {}
  const char *what() const noexcept override { return detail_.c_str(); }
  WebAnswer Answer() const { return ProblemAnswer(status_, detail_, kind_); }

 private:
  uint32_t status_;
  std::string detail_;
  std::string kind_;
};

}  // namespace qdt::host

#endif  // HOST_WEB_MESSAGE_H_
