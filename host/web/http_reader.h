#ifndef HOST_WEB_HTTP_READER_H_
#define HOST_WEB_HTTP_READER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/web/message.h"

namespace qdt::host {

// What one request may be.
struct RequestLimits {
  uint32_t headerBytes = 16 << 10;  // its first line and headers
  uint32_t headers = 64;
  uint32_t bodyBytes = 64 << 10;
};

// Reads one HTTP/1.1 request out of the bytes of a connection, in any pieces.
class HttpReader {
 public:
  explicit HttpReader(const RequestLimits &limits);
  ~HttpReader();

  enum class Result : uint8_t {
    kMore,     // the request goes on
    kWhole,    // request() is there
    kRefused,  // refusal() is the answer; nothing can be read behind it
  };
  // Takes from the beginning of *bytes what belongs to the request.
  Result Read(std::string *bytes);

  WebRequest &request() { return request_; }
  // Whether the client wants to ask more on the connection.
  bool keepsAlive() const { return keepsAlive_; }
  WebAnswer &refusal() { return refusal_; }

 private:
  struct Parser;
  Result Refuse(uint32_t status, std::string_view detail);
  Result TakeRequest();

  const RequestLimits limits_;
  std::unique_ptr<Parser> parser_;
  WebRequest request_;
  WebAnswer refusal_;
  bool keepsAlive_ = false;
};

// The first line and headers of an answer, with the blank line behind them. `length` is that of the body, or
// -1 where the body ends with the connection.
std::string AnswerHead(const WebAnswer &answer, int64_t length, bool keepsAlive);

}  // namespace qdt::host

#endif  // HOST_WEB_HTTP_READER_H_
