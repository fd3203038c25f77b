#include "host/web/http_reader.h"

#include <algorithm>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

namespace qdt::host {
namespace {

namespace http = boost::beast::http;

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char &c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
  return lower;
}

std::string_view View(boost::beast::string_view text) { return {text.data(), text.size()}; }

}  // namespace

struct HttpReader::Parser : http::request_parser<http::string_body> {};

HttpReader::HttpReader(const RequestLimits &limits) : limits_(limits), parser_(std::make_unique<Parser>()) {
  parser_->header_limit(limits.headerBytes);
  parser_->body_limit(limits.bodyBytes);
  parser_->eager(true);
}

HttpReader::~HttpReader() = default;

HttpReader::Result HttpReader::Refuse(uint32_t status, std::string_view detail) {
  refusal_ = ProblemAnswer(status, detail);
  return Result::kRefused;
}

HttpReader::Result HttpReader::Read(std::string *bytes) {
  if (bytes->empty()) return Result::kMore;
  boost::beast::error_code error;
  const size_t taken = parser_->put(boost::asio::buffer(*bytes), error);
  bytes->erase(0, taken);
  if (error && error != http::error::need_more) {
    if (error == http::error::header_limit) return Refuse(431, "the request's headers are too long");
    if (error == http::error::body_limit) return Refuse(413, "the request's body is too long");
    return Refuse(400, "this is no HTTP request: " + error.message());
  }
  if (!parser_->is_header_done())
    return bytes->size() > limits_.headerBytes ? Refuse(431, "the request's headers are too long")
                                               : Result::kMore;
  // Whoever writes a body says how long it is, and its length is what everybody takes it for.
  if (parser_->chunked() || parser_->get().count(http::field::transfer_encoding) != 0)
    return Refuse(411, "a body is taken only with its Content-Length");
  if (!parser_->is_done()) return Result::kMore;
  return TakeRequest();
}

HttpReader::Result HttpReader::TakeRequest() {
  const auto &message = parser_->get();
  if (message.version() != 10 && message.version() != 11) return Refuse(400, "this server speaks HTTP/1.1");
  for (const auto &field : message) {
    if (request_.headers.size() == limits_.headers) return Refuse(431, "the request has too many headers");
    request_.headers.emplace_back(Lower(View(field.name_string())), View(field.value()));
  }
  request_.method = View(message.method_string());
  request_.body = std::move(parser_->get().body());
  keepsAlive_ = message.keep_alive();
  if (!ReadTarget(View(message.target()), &request_))
    return Refuse(400, "the request's target is no path with parameters");
  return Result::kWhole;
}

std::string AnswerHead(const WebAnswer &answer, int64_t length, bool keepsAlive) {
  std::string head =
      "HTTP/1.1 " + std::to_string(answer.status) + " " + std::string(StatusText(answer.status));
  const auto add = [&head](std::string_view name, std::string_view value) {
    head += "\r\n";
    head += name;
    head += ": ";
    // What stands in a header stays in it.
    for (const char c : value) head += static_cast<uint8_t>(c) < ' ' || c == 0x7f ? '?' : c;
  };
  if (!answer.contentType.empty()) add("Content-Type", answer.contentType);
  if (length >= 0 && answer.status != 304) add("Content-Length", std::to_string(length));
  for (const NamedText &header : answer.headers) add(header.first, header.second);
  add("Connection", keepsAlive ? "keep-alive" : "close");
  return head + "\r\n\r\n";
}

}  // namespace qdt::host
