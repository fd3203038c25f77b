#include "host/web/http_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

using Result = HttpReader::Result;

// Reads a request that comes in pieces of `size` bytes.
Result ReadIn(std::string text, size_t size, HttpReader *reader) {
  std::string bytes;
  Result result = Result::kMore;
  while (!text.empty() && result == Result::kMore) {
    bytes += text.substr(0, size);
    text.erase(0, size);
    result = reader->Read(&bytes);
  }
  return result;
}

uint32_t StatusOf(const std::string &text, const RequestLimits &limits = {}) {
  HttpReader reader(limits);
  const Result result = ReadIn(text, text.size(), &reader);
  if (result == Result::kMore) return 0;
  return result == Result::kWhole ? 200 : reader.refusal().status;
}

TEST(HttpReaderTest, ReadsARequestInAnyPieces) {
  const std::string text =
      "POST /api/v1/trace?engine=a%20b&filter=x%3D1&filter=y HTTP/1.1\r\nHost: localhost\r\nContent-Length: "
      "3\r\nX-One: 1\r\n\r\nabc";
  for (size_t size = 1; size <= text.size(); ++size) {
    HttpReader reader({});
    ASSERT_EQ(ReadIn(text, size, &reader), Result::kWhole) << size;
    const WebRequest &request = reader.request();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/api/v1/trace");
    ASSERT_EQ(request.parameters.size(), 3u);
    EXPECT_EQ(request.parameters[0], NamedText("engine", "a b"));
    EXPECT_EQ(request.parameters[1], NamedText("filter", "x=1"));
    EXPECT_EQ(request.parameters[2], NamedText("filter", "y"));
    EXPECT_EQ(request.Header("host"), "localhost");
    EXPECT_EQ(request.Header("x-one"), "1");
    EXPECT_EQ(request.body, "abc");
    EXPECT_TRUE(reader.keepsAlive());
  }
}

TEST(HttpReaderTest, LeavesWhatBelongsToTheNextRequest) {
  std::string bytes = "GET / HTTP/1.1\r\n\r\nGET /two HTTP/1.1\r\n\r\n";
  HttpReader first({});
  ASSERT_EQ(first.Read(&bytes), Result::kWhole);
  HttpReader second({});
  ASSERT_EQ(second.Read(&bytes), Result::kWhole);
  EXPECT_EQ(second.request().path, "/two");
  EXPECT_EQ(bytes, "");
}

TEST(HttpReaderTest, RefusesWhatIsNoRequestOrTooMuchOfOne) {
  struct {
    std::string text;
    uint32_t status;
  } const kRequests[] = {
      {"GET / HTTP/1.1\r\n\r\n", 200},
      {"nonsense\r\n\r\n", 400},
      {"GET / HTTP/3.7\r\n\r\n", 400},
      {"GET http://elsewhere/ HTTP/1.1\r\n\r\n", 400},
      {"OPTIONS * HTTP/1.1\r\n\r\n", 400},
      {"GET /%zz HTTP/1.1\r\n\r\n", 400},
      {"GET /%00 HTTP/1.1\r\n\r\n", 400},
      {"GET /%ff HTTP/1.1\r\n\r\n", 400},
      {"GET /?a=%c0%af HTTP/1.1\r\n\r\n", 400},
      {"GET /#part HTTP/1.1\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\nBad Header: 1\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\nA: 1\r\n folded\r\n\r\n", 200},
      {"POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n", 400},
      {"POST / HTTP/1.1\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", 400},
      {"POST / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", 400},
      {"POST / HTTP/1.1\r\nContent-Length: 65537\r\n\r\n", 413},
      {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", 411},
      {"GET /" + std::string(20000, 'a') + " HTTP/1.1\r\n\r\n", 431},
      {"GET / HTTP/1.1\r\nA: " + std::string(20000, 'a'), 431},
      {std::string(20000, 'G'), 431},
  };
  for (const auto &each : kRequests) EXPECT_EQ(StatusOf(each.text), each.status) << each.text.substr(0, 80);
}

TEST(HttpReaderTest, CountsHeaders) {
  std::string text = "GET / HTTP/1.1\r\n";
  for (int i = 0; i < 64; ++i) text += "A" + std::to_string(i) + ": 1\r\n";
  EXPECT_EQ(StatusOf(text + "\r\n"), 200u);
  EXPECT_EQ(StatusOf(text + "B: 1\r\n\r\n"), 431u);
}

TEST(AnswerHeadTest, KeepsAHeaderInItsLine) {
  WebAnswer answer;
  answer.contentType = "text/plain";
  answer.headers.emplace_back("Nqe-Command", "a\r\nSet-Cookie: b");
  EXPECT_EQ(AnswerHead(answer, 3, true),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 3\r\n"
            "Nqe-Command: a??Set-Cookie: b\r\nConnection: keep-alive\r\n\r\n");
}

}  // namespace
}  // namespace qdt::host
