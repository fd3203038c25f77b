#include "host/web/routes.h"

#include <gtest/gtest.h>

#include "host/base/host_error.h"
#include "host/web/guard.h"
#include "host/web/page_files.h"

namespace qdt::host {
namespace {

WebAnswer Echo(const RouteCall &call) {
  WebAnswer answer;
  answer.body = std::string(call.Text("table")) + "|" + std::string(call.Text("text")) + "|" +
                std::to_string(call.Number("number").value_or(0)) + "|" + (call.Flag("flag") ? "on" : "off") +
                "|" + std::to_string(call.All("many").size());
  return answer;
}

class RoutesTest : public testing::Test {
 protected:
  RoutesTest() {
    routes_.Add(
        {.path = "/things/{table}",
         .about = "things",
         .parameters =
             {{.name = "table", .about = "t"},
              {.name = "text", .about = "t"},
              {.name = "number", .about = "n", .kind = WebParameter::Kind::kNumber, .least = 2, .most = 9},
              {.name = "flag", .about = "f", .kind = WebParameter::Kind::kFlag},
              {.name = "choice", .about = "c", .kind = WebParameter::Kind::kChoice, .choices = "one|two"},
              {.name = "many", .about = "m", .repeatable = true}},
         .document = "count",
         .run = Echo});
    routes_.Add({.path = "/needs",
                 .about = "needs",
                 .parameters = {{.name = "it", .about = "i", .required = true}},
                 .run = Echo});
    routes_.Add({.path = "/fails", .about = "f", .run = [](const RouteCall &) -> WebAnswer {
                   throw HostError("this is wrong");
                 }});
    routes_.Add(
        {.method = "POST", .path = "/fails", .about = "p", .run = Echo, .body = R"({"type":"object"})"});
  }

  WebAnswer Ask(const std::string &target, const std::string &method = "GET") const {
    WebRequest request;
    request.method = method;
    EXPECT_TRUE(ReadTarget(target, &request)) << target;
    return routes_.Answer(request);
  }
  std::string Body(const std::string &target) const { return Ask(target).body; }
  uint32_t Status(const std::string &target) const { return Ask(target).status; }

  Routes routes_;
};

TEST_F(RoutesTest, ReadsParameters) {
  EXPECT_EQ(Body("/things/arp"), "arp||0|off|0");
  EXPECT_EQ(
      Body("/things/a%2Fb"),
      R"({"type":"about:blank","title":"Not Found","status":404,"detail":"there is nothing at \"/things/a/b\""})"
      "\n");
  EXPECT_EQ(Body("/things/arp?text=a+b%2Bc&number=9&flag&many=1&many=2"), "arp|a b+c|9|on|2");
  EXPECT_EQ(Body("/things/arp?flag=false"), "arp||0|off|0");
}

TEST_F(RoutesTest, RefusesParametersThatTheRowDoesNotTake) {
  for (const char *target :
       {"/things/arp?other=1", "/things/arp?number=1", "/things/arp?number=10", "/things/arp?number=-3",
        "/things/arp?number=3x", "/things/arp?number=", "/things/arp?flag=maybe", "/things/arp?choice=three",
        "/things/arp?text=1&text=2", "/things/arp?table=fib", "/needs"}) {
    EXPECT_EQ(Status(target), 400u) << target;
  }
  EXPECT_EQ(Status("/things/arp?choice=two"), 200u);
  EXPECT_EQ(
      Body("/things/arp?number=10"),
      R"({"type":"about:blank","title":"Bad Request","status":400,"detail":"number=\"10\" is not a number from 2 to 9"})"
      "\n");
}

TEST_F(RoutesTest, TellsPathsFromMethods) {
  EXPECT_EQ(Status("/"), 404u);
  EXPECT_EQ(Status("/things"), 404u);
  EXPECT_EQ(Status("/things/"), 404u);
  EXPECT_EQ(Status("/things/arp/more"), 404u);
  EXPECT_EQ(Status("/things/../needs"), 404u);
  EXPECT_EQ(Ask("/things/arp", "HEAD").status, 200u);
  const WebAnswer refused = Ask("/things/arp", "DELETE");
  EXPECT_EQ(refused.status, 405u);
  ASSERT_EQ(refused.headers.size(), 1u);
  EXPECT_EQ(refused.headers[0], NamedText("Allow", "GET"));
}

TEST_F(RoutesTest, MakesProblemsOfWhatIsThrown) {
  EXPECT_EQ(Body("/fails"),
            R"({"type":"about:blank","title":"Bad Request","status":400,"detail":"this is wrong"})"
            "\n");
  EXPECT_EQ(Ask("/fails", "POST").status, 200u);
}

TEST_F(RoutesTest, AreDescribed) {
  StringOut out;
  WriteOpenApi(&out, routes_, "1.2");
  const std::string text = out.Take();
  for (const char *part :
       {R"("openapi":"3.1.0")", R"("/things/{table}":{"get":{"summary":"things")",
        R"({"name":"table","in":"path","description":"t","required":true,"schema":{"type":"string"}})",
        R"("schema":{"type":"integer","minimum":2,"maximum":9})", R"("schema":{"enum":["one","two"]})",
        R"("schema":{"type":"array","items":{"type":"string"}},"style":"form","explode":true)",
        R"("$ref":"#/components/schemas/count")", R"("/fails":{"get":)", R"("post":{"summary":"p")",
        R"("security":[{"token":[]}])"}) {
    EXPECT_NE(text.find(part), text.npos) << part;
  }
  EXPECT_EQ(text.find("#/$defs/"), text.npos);
}

class GuardTest : public RoutesTest {
 protected:
  WebRequest Request(const std::string &method, const std::string &target) const {
    WebRequest request;
    request.method = method;
    EXPECT_TRUE(ReadTarget(target, &request));
    request.headers.emplace_back("host", "127.0.0.1:8080");
    return request;
  }
  uint32_t StatusOf(const GuardOptions &options, const WebRequest &request) const {
    return Guard(options).Answer(routes_, request).status;
  }

  GuardOptions open_{{"localhost", "box.example"}, "", false, false};
  GuardOptions closed_{{"localhost"}, "0123456789abcdef", true, false};
};

TEST_F(GuardTest, KnowsItsNames) {
  struct {
    const char *host;
    uint32_t status;
  } const kHosts[] = {{"localhost", 200},
                      {"localhost:8080", 200},
                      {"LOCALHOST:1", 200},
                      {"box.example:443", 200},
                      {"127.0.0.1", 200},
                      {"[::1]:8080", 200},
                      {"[::1]", 200},
                      {"192.0.2.7:80", 200},
                      {"evil.example", 421},
                      {"localhost.evil", 421},
                      {"evil.example:8080", 421},
                      {"", 421},
                      {"127.0.0.1.evil.example", 421},
                      {"127.0.0.1:x", 421}};
  for (const auto &each : kHosts) {
    WebRequest request = Request("GET", "/things/arp");
    request.headers[0].second = each.host;
    EXPECT_EQ(StatusOf(open_, request), each.status) << each.host;
  }
  WebRequest twice = Request("GET", "/things/arp");
  twice.headers.emplace_back("host", "localhost");
  EXPECT_EQ(StatusOf(open_, twice), 421u);
}

TEST_F(GuardTest, RefusesPagesOfOthers) {
  WebRequest request = Request("GET", "/things/arp");
  request.headers.emplace_back("origin", "http://127.0.0.1:8080");
  EXPECT_EQ(StatusOf(open_, request), 200u);
  for (const char *origin :
       {"http://evil.example", "null", "https://127.0.0.1:8080", "http://127.0.0.1:8081", ""}) {
    request.headers.back().second = origin;
    EXPECT_EQ(StatusOf(open_, request), 403u) << origin;
  }
  request.headers.pop_back();
  struct {
    const char *site, *mode, *into;
    uint32_t status;
  } const kFetches[] = {
      {"cross-site", "no-cors", "image", 403},    {"cross-site", "navigate", "document", 200},
      {"cross-site", "navigate", "iframe", 403},  {"same-site", "no-cors", "script", 403},
      {"same-site", "navigate", "document", 200}, {"same-origin", "cors", "empty", 200},
      {"same-origin", "no-cors", "script", 200},  {"none", "navigate", "document", 200}};
  for (const auto &each : kFetches) {
    WebRequest fetch = request;
    fetch.headers.emplace_back("sec-fetch-site", each.site);
    fetch.headers.emplace_back("sec-fetch-mode", each.mode);
    fetch.headers.emplace_back("sec-fetch-dest", each.into);
    EXPECT_EQ(StatusOf(open_, fetch), each.status) << each.site << ' ' << each.into;
  }
}

TEST_F(GuardTest, TakesChangesOnlyWithTheToken) {
  WebRequest request = Request("POST", "/fails");
  EXPECT_EQ(StatusOf(open_, request), 403u);
  EXPECT_EQ(StatusOf(closed_, request), 401u);
  request.headers.emplace_back("authorization", "Bearer 0123456789abcdef");
  EXPECT_EQ(StatusOf(closed_, request), 200u);
  request.headers.back().second = "bearer 0123456789abcdef";
  EXPECT_EQ(StatusOf(closed_, request), 200u);
  for (const char *wrong : {"Bearer 0123456789abcdeF", "Bearer 0123456789abcde", "Bearer ",
                            "0123456789abcdef", "Basic 0123456789abcdef", "Bearer 0123456789abcdef0"}) {
    request.headers.back().second = wrong;
    EXPECT_EQ(StatusOf(closed_, request), 401u) << wrong;
  }
  closed_.allowChanges = false;
  request.headers.back().second = "Bearer 0123456789abcdef";
  EXPECT_EQ(StatusOf(closed_, request), 403u);
}

TEST_F(GuardTest, AnswersAllCarryThePolicy) {
  WebRequest request = Request("GET", "/nothing");
  const WebAnswer answer = Guard(open_).Answer(routes_, request);
  std::string headers;
  for (const NamedText &header : answer.headers) headers += header.first + ": " + header.second + "\n";
  EXPECT_EQ(
      headers,
      "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' "
      "data:; "
      "connect-src 'self'; font-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'\n"
      "X-Content-Type-Options: nosniff\nX-Frame-Options: DENY\nReferrer-Policy: no-referrer\n"
      "Cross-Origin-Resource-Policy: same-origin\nCross-Origin-Opener-Policy: same-origin\n"
      "Cache-Control: no-store\n");
}

TEST(PageFilesTest, AreGivenOnceUntilTheyChange) {
  static constexpr PageFile kFiles[] = {{"/index.html", "text/html", "\"1a\"", "<p>"}};
  Routes routes;
  AddPageRoutes(&routes, kFiles);
  WebRequest request;
  request.method = "GET";
  for (const char *path : {"/", "/index.html"}) {
    request.headers.clear();
    ASSERT_TRUE(ReadTarget(path, &request));
    EXPECT_EQ(routes.Answer(request).Body(), "<p>");
    request.headers.emplace_back("if-none-match", "\"0\", W/\"1a\"");
    EXPECT_EQ(routes.Answer(request).status, 304u);
    request.headers.back().second = "\"1b\"";
    EXPECT_EQ(routes.Answer(request).status, 200u);
  }
}

}  // namespace
}  // namespace qdt::host
