#ifndef HOST_WEB_ROUTES_H_
#define HOST_WEB_ROUTES_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <semaphore>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/text_out.h"
#include "host/web/message.h"

namespace qdt::host {

// One parameter of a route: of its path, or of the query.
struct WebParameter {
  enum class Kind : uint8_t {
    kText,
    kNumber,  // whole, from `least` to `most`
    kFlag,    // true or false; a name alone is true
    kChoice,  // one of `choices`, which a bar separates
  };
  std::string_view name;
  std::string_view about;
  Kind kind = Kind::kText;
  bool required = false;    // those of the path always are
  bool repeatable = false;  // may be given several times
  uint64_t least = 0;
  uint64_t most = UINT64_MAX;
  std::string_view choices = {};
  std::string_view example =
      {};  // a value that makes sense on an engine of any site; for the tests and the reader
};

class RouteCall;

// One thing that a client may ask. The reading and the refusal of its parameters, its description and its
// call all come from this row.
struct Route {
  std::string_view method = "GET";
  std::string_view path;   // "/api/v1/tables/{table}/fields"
  std::string_view about;  // one line
  std::vector<WebParameter> parameters = {};
  // The answer's schema: the name of one of the documents of nqecli (SchemaDocuments), or a JSON schema that
  // begins with a brace. Empty: no JSON.
  std::string_view document = {};
  std::string_view contentType = "application/json";
  std::function<WebAnswer(const RouteCall &call)> run = {};
  // Of a request that changes something: the schema of its body.
  std::string_view body = {};
  bool hidden = false;  // stands in no description: files of the page
  bool heavy = false;   // reads everything that the engine has; only few of them run at a time

  bool Changes() const { return method != "GET"; }
};

// A request on its route, with its parameters read and checked against the row.
class RouteCall {
 public:
  // Throws WebProblem for a parameter that the route does not take, or that is no such value.
  RouteCall(const Route &route, const WebRequest &request, std::vector<NamedText> ofPath);

  const WebRequest &request() const { return request_; }
  bool Has(std::string_view name) const;
  // Empty when it was not given.
  std::string_view Text(std::string_view name) const;
  std::vector<std::string_view> All(std::string_view name) const;
  std::optional<uint64_t> Number(std::string_view name) const;
  bool Flag(std::string_view name) const;

 private:
  const WebRequest &request_;
  std::vector<NamedText> values_;  // of the path, then of the query
};

// The table of all routes.
class Routes {
 public:
  void Add(Route route) { rows_.push_back(std::move(route)); }
  std::span<const Route> rows() const { return rows_; }

  // Finds the route and runs it. Whatever goes wrong becomes a problem document.
  WebAnswer Answer(const WebRequest &request) const;

 private:
  WebAnswer Run(const Route &route, const RouteCall &call) const;

  static constexpr int kHeavy = 2;  // heavy routes at a time
  std::vector<Route> rows_;
  mutable std::counting_semaphore<> heavy_{kHeavy};
};

// The OpenAPI 3.1 description of the routes that are not hidden. `version` is that of the interface's
// program.
void WriteOpenApi(TextOut *out, const Routes &routes, std::string_view version);

}  // namespace qdt::host

#endif  // HOST_WEB_ROUTES_H_
