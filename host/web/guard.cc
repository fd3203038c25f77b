#include "host/web/guard.h"

#include <sys/stat.h>

#include <algorithm>

#include "host/base/host_error.h"
#include "host/base/text_file.h"
#include "host/web/server.h"

namespace qdt::host {
namespace {

constexpr size_t kLeastToken = 16;
constexpr size_t kMostToken = 1024;
constexpr uint64_t kMostFile = 4096;

// No script, style, picture or connection but this server's own; nothing inline, nothing evaluated, no frame.
constexpr char kPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "font-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

// In a time that does not tell how much of it was right.
bool SameSecret(std::string_view a, std::string_view b) {
  uint8_t differs = a.size() == b.size() ? 0 : 1;
  for (size_t i = 0; i < a.size(); ++i) differs |= static_cast<uint8_t>(a[i] ^ b[i % b.size()]);
  return differs == 0;
}

// As the browser tells it. A page of this machine's other ports is of the same site, and another page all the
// same.
bool IsAskedByPageOfOthers(const WebRequest &request) {
  const std::string_view site = request.Header("sec-fetch-site");
  if (site != "cross-site" && site != "same-site") return false;
  // A link that leads here is followed by who clicks on it; a frame is loaded by the page alone.
  const std::string_view into = request.Header("sec-fetch-dest");
  return request.Header("sec-fetch-mode") != "navigate" || (!into.empty() && into != "document");
}

}  // namespace

void AddSafeHeaders(WebAnswer *answer) {
  const auto add = [answer](const char *name, const char *value) {
    answer->headers.emplace_back(name, value);
  };
  add("Content-Security-Policy", kPolicy);
  add("X-Content-Type-Options", "nosniff");
  add("X-Frame-Options", "DENY");
  add("Referrer-Policy", "no-referrer");
  add("Cross-Origin-Resource-Policy", "same-origin");
  add("Cross-Origin-Opener-Policy", "same-origin");
  const auto isCache = [](const NamedText &header) { return header.first == "Cache-Control"; };
  // What an engine holds is nothing for a cache on the way.
  if (std::ranges::none_of(answer->headers, isCache)) add("Cache-Control", "no-store");
}

std::string ReadToken(const std::string &file) {
  struct stat info = {};
  if (stat(file.c_str(), &info) != 0) throw SystemError("cannot read the token in " + file);
  if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    throw HostError("others may read the token in " + file + " (chmod 600 " + file + ")");
  std::string token = ReadTextFile(file, kMostFile);
  token.resize(std::min(token.find_first_of("\r\n"), token.size()));
  const auto isPlain = [](char c) { return c > ' ' && c < 0x7f; };
  if (token.size() >= kLeastToken && token.size() <= kMostToken && std::ranges::all_of(token, isPlain))
    return token;
  throw HostError("the first line of " + file + " is no token: it takes " + std::to_string(kLeastToken) +
                  " to " + std::to_string(kMostToken) +
                  " characters without blanks (openssl rand -hex 32 makes one)");
}

// A name can be made to lead anywhere, a number cannot.
bool Guard::IsOwnHost(const std::string &host) const {
  if (std::ranges::find(options_.names, host.substr(0, host.find(':'))) != options_.names.end()) return true;
  const size_t colon = host.rfind(':');
  const bool hasPort = colon != host.npos && host.find(']', colon) == host.npos;
  return IsWebAddress(hasPort ? host : host + ":0");
}

bool Guard::HasToken(const WebRequest &request) const {
  constexpr std::string_view kScheme = "bearer ";  // names of schemes know no capitals
  const std::string_view given = request.Header("authorization");
  return !options_.token.empty() &&
         std::ranges::equal(given.substr(0, kScheme.size()), kScheme, {}, LowerOf) &&
         SameSecret(given.substr(kScheme.size()), options_.token);
}

void Guard::Check(const WebRequest &request) const {
  // Names of machines know no capitals.
  std::string host(request.Header("host"));
  std::ranges::transform(host, host.begin(), LowerOf);
  if (!IsOwnHost(host))
    throw WebProblem(421,
                     "this server is not called " + Quoted(host) + " (add --name to allow another name)");
  if (request.HeaderCount("origin") != 0) {
    const std::string_view origin = request.Header("origin");
    if (origin != (options_.tls ? "https://" : "http://") + host)
      throw WebProblem(403, "a page of " + Quoted(origin) + " may not ask this server");
  }
  if (IsAskedByPageOfOthers(request)) throw WebProblem(403, "a page of another site may not ask this server");
  const bool changes = request.method != "GET" && request.method != "HEAD";
  if (changes && !options_.allowChanges)
    throw WebProblem(403, "this server only shows (start nqeweb with --allow-changes to let it change)");
}

WebAnswer Guard::Answer(const Routes &routes, const WebRequest &request) const {
  WebAnswer answer;
  try {
    Check(request);
    const bool changes = request.method != "GET" && request.method != "HEAD";
    // The page itself is no secret, and asks its user for the token.
    const bool isData =
        request.path.starts_with("/api/") || request.path == "/metrics" || request.path == "/probe";
    const bool needsToken = changes || (!options_.token.empty() && isData);
    if (needsToken && !HasToken(request)) {
      answer = ProblemAnswer(401, "this takes the server's token (Authorization: Bearer TOKEN)");
      answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    } else {
      answer = routes.Answer(request);
    }
  } catch (const WebProblem &problem) {
    answer = problem.Answer();
  }
  AddSafeHeaders(&answer);
  if (options_.tls) answer.headers.emplace_back("Strict-Transport-Security", "max-age=31536000");
  return answer;
}

}  // namespace qdt::host
