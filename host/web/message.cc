#include "host/web/message.h"

#include <algorithm>

#include "host/record/record_json.h"

namespace qdt::host {

size_t Utf8CharacterAt(std::string_view text) {
  const auto first = static_cast<uint8_t>(text[0]);
  if (first < 0x80) return 1;
  const size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < size) return 0;
  uint32_t code = first & (0x7fu >> size);
  for (size_t i = 1; i < size; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xc0) != 0x80) return 0;
    code = code << 6 | (next & 0x3fu);
  }
  constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  return code < kLeast[size] || code > 0x10ffff || surrogate ? 0 : size;
}

namespace {

int DigitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Appends the text with its percent codes resolved; false when one of them is none, or stands for a byte 0.
bool Decode(std::string_view text, bool plusIsBlank, std::string *decoded) {
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size()) return false;
      const int high = DigitOf(text[i + 1]), low = DigitOf(text[i + 2]);
      if (high < 0 || low < 0) return false;
      c = static_cast<char>(high * 16 + low);
      i += 2;
    } else if (c == '+' && plusIsBlank) {
      c = ' ';
    } else if (c <= ' ' || c == 0x7f) {  // beyond ASCII as well: such a byte is written as a code
      return false;
    }
    if (c == 0) return false;
    decoded->push_back(c);
  }
  return true;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t size = Utf8CharacterAt(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

bool ReadParameters(std::string_view query, std::vector<NamedText> *parameters) {
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(part.size() + 1, query.size()));
    if (part.empty()) continue;
    const size_t equals = std::min(part.find('='), part.size());
    NamedText parameter;
    if (!Decode(part.substr(0, equals), true, &parameter.first) ||
        !Decode(part.substr(std::min(equals + 1, part.size())), true, &parameter.second) ||
        !IsUtf8(parameter.first) || !IsUtf8(parameter.second)) {
      return false;
    }
    parameters->push_back(std::move(parameter));
  }
  return true;
}

}  // namespace

std::string_view WebRequest::Header(std::string_view name) const {
  const auto is = [name](const NamedText &header) { return header.first == name; };
  const auto found = std::ranges::find_if(headers, is);
  return found == headers.end() || HeaderCount(name) != 1 ? std::string_view() : found->second;
}

size_t WebRequest::HeaderCount(std::string_view name) const {
  return static_cast<size_t>(
      std::ranges::count_if(headers, [name](const NamedText &header) { return header.first == name; }));
}

bool ReadTarget(std::string_view target, WebRequest *request) {
  const size_t query = std::min(target.find('?'), target.size());
  request->path.clear();
  request->parameters.clear();
  if (!target.starts_with('/') || target.find('#') != target.npos) return false;
  if (!Decode(target.substr(0, query), false, &request->path) || !IsUtf8(request->path)) return false;
  return ReadParameters(target.substr(std::min(query + 1, target.size())), &request->parameters);
}

std::string_view StatusText(uint32_t status) {
  struct Named {
    uint32_t status;
    std::string_view text;
  };
  static constexpr Named kTexts[] = {
      {200, "OK"},
      {304, "Not Modified"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {408, "Request Timeout"},
      {409, "Conflict"},
      {411, "Length Required"},
      {413, "Content Too Large"},
      {414, "URI Too Long"},
      {415, "Unsupported Media Type"},
      {421, "Misdirected Request"},
      {429, "Too Many Requests"},
      {431, "Request Header Fields Too Large"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
  };
  const auto found = std::ranges::find(kTexts, status, &Named::status);
  return found == std::end(kTexts) ? "Unknown" : found->text;
}

WebAnswer ProblemAnswer(uint32_t status, std::string_view detail, std::string_view kind) {
  StringOut out;
  JsonWriter json(out);
  json.StartObject();
  JsonKey(&json, "type");
  JsonText(&json, kind.empty() ? "about:blank" : "urn:qdt:problem:" + std::string(kind));
  JsonKey(&json, "title");
  JsonText(&json, StatusText(status));
  JsonKey(&json, "status");
  json.Uint(status);
  JsonKey(&json, "detail");
  JsonEscaped(&json, detail);
  json.EndObject();
  out.Put('\n');
  WebAnswer answer;
  answer.status = status;
  answer.contentType = "application/problem+json";
  answer.body = out.Take();
  return answer;
}

}  // namespace qdt::host
