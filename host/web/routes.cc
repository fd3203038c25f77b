#include "host/web/routes.h"

#include <algorithm>
#include <new>

#include "host/base/host_error.h"
#include "host/base/numbers.h"
#include "host/web/lost_pages.h"

namespace qdt::host {
namespace {

constexpr std::chrono::seconds kHeavyQueue{5};

// The parts of a path between slashes.
std::vector<std::string_view> PartsOf(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    path.remove_prefix(1);
    const size_t end = std::min(path.find('/'), path.size());
    parts.push_back(path.substr(0, end));
    path.remove_prefix(end);
  }
  return parts;
}

bool IsVariable(std::string_view part) { return part.starts_with('{'); }

// Whether the path is the route's; `values` become those of the variables in it.
bool Fits(std::string_view pattern, const std::vector<std::string_view> &parts,
          std::vector<NamedText> *values) {
  const std::vector<std::string_view> wanted = PartsOf(pattern);
  if (wanted.size() != parts.size()) return false;
  values->clear();
  for (size_t i = 0; i < wanted.size(); ++i) {
    if (!IsVariable(wanted[i])) {
      if (wanted[i] != parts[i]) return false;
      continue;
    }
    if (parts[i].empty()) return false;
    values->emplace_back(wanted[i].substr(1, wanted[i].size() - 2), parts[i]);
  }
  return true;
}

bool IsChoice(std::string_view choices, std::string_view value) {
  while (!choices.empty()) {
    const std::string_view choice = choices.substr(0, choices.find('|'));
    if (choice == value) return true;
    choices.remove_prefix(std::min(choice.size() + 1, choices.size()));
  }
  return false;
}

[[noreturn]] void Refuse(const WebParameter &parameter, std::string_view value, const std::string &wanted) {
  throw WebProblem(400, std::string(parameter.name) + "=" + Quoted(value) + " is not " + wanted);
}

void CheckValue(const WebParameter &parameter, std::string_view value) {
  switch (parameter.kind) {
    case WebParameter::Kind::kText:
      return;
    case WebParameter::Kind::kFlag:
      if (!value.empty() && value != "true" && value != "false") Refuse(parameter, value, "true or false");
      return;
    case WebParameter::Kind::kChoice:
      if (!IsChoice(parameter.choices, value))
        Refuse(parameter, value, "one of " + std::string(parameter.choices));
      return;
    case WebParameter::Kind::kNumber:
      break;
  }
  const std::optional<uint64_t> number = ReadNumber(value);
  if (number && *number >= parameter.least && *number <= parameter.most) return;
  Refuse(parameter, value,
         "a number from " + std::to_string(parameter.least) + " to " + std::to_string(parameter.most));
}

}  // namespace

RouteCall::RouteCall(const Route &route, const WebRequest &request, std::vector<NamedText> ofPath)
    : request_(request), values_(std::move(ofPath)) {
  for (const NamedText &given : request.parameters) {
    const auto row = std::ranges::find(route.parameters, given.first, &WebParameter::name);
    const bool ofPathOnly = row != route.parameters.end() && Has(given.first) && !row->repeatable;
    if (row == route.parameters.end())
      throw WebProblem(400, "unknown parameter " + Quoted(given.first) +
                                "; /api/v1/openapi.json tells those of this path");
    if (ofPathOnly) throw WebProblem(400, "the parameter " + given.first + " is given twice");
    values_.push_back(given);
  }
  for (const WebParameter &parameter : route.parameters) {
    if (parameter.required && !Has(parameter.name))
      throw WebProblem(400, "the parameter " + std::string(parameter.name) + " is missing");
    for (const std::string_view value : All(parameter.name)) CheckValue(parameter, value);
  }
}

bool RouteCall::Has(std::string_view name) const {
  return std::ranges::find(values_, name, &NamedText::first) != values_.end();
}

std::string_view RouteCall::Text(std::string_view name) const {
  const auto found = std::ranges::find(values_, name, &NamedText::first);
  return found == values_.end() ? std::string_view() : found->second;
}

std::vector<std::string_view> RouteCall::All(std::string_view name) const {
  std::vector<std::string_view> all;
  for (const NamedText &value : values_) {
    if (value.first == name) all.push_back(value.second);
  }
  return all;
}

std::optional<uint64_t> RouteCall::Number(std::string_view name) const {
  return Has(name) ? ReadNumber(Text(name)) : std::nullopt;
}

bool RouteCall::Flag(std::string_view name) const { return Has(name) && Text(name) != "false"; }

WebAnswer Routes::Run(const Route &route, const RouteCall &call) const {
  struct Permit {
    explicit Permit(std::counting_semaphore<> *semaphore) : heavy(semaphore) {
      if (heavy == nullptr || heavy->try_acquire_for(kHeavyQueue)) return;
      throw WebProblem(503, "too many long questions are being answered; ask again", "busy");
    }
    ~Permit() {
      if (heavy != nullptr) heavy->release();
    }
    Permit(const Permit &) = delete;
    std::counting_semaphore<> *const heavy;
  } const permit(route.heavy ? &heavy_ : nullptr);
  WebAnswer answer;
  if (Survive([&] { answer = route.run(call); })) return answer;
  throw WebProblem(503, "an arena was cut short while it was read", "engine-damaged");
}

WebAnswer Routes::Answer(const WebRequest &request) const {
  const std::vector<std::string_view> parts = PartsOf(request.path);
  const std::string_view method = request.method == "HEAD" ? "GET" : std::string_view(request.method);
  std::vector<NamedText> values;
  std::string others;  // methods that the path takes
  for (const Route &route : rows_) {
    if (!Fits(route.path, parts, &values)) continue;
    if (route.method != method) {
      others += (others.empty() ? "" : ", ") + std::string(route.method);
      continue;
    }
    try {
      return Run(route, RouteCall(route, request, std::move(values)));
    } catch (const WebProblem &problem) {
      return problem.Answer();
    } catch (const HostError &error) {
      // What a handler has not told apart itself is wrong in what was asked.
      return ProblemAnswer(400, error.what());
    } catch (const std::bad_alloc &) {
      return ProblemAnswer(503, "this answer takes more memory than there is; ask for less");
    } catch (const std::exception &error) {
      return ProblemAnswer(500, error.what());
    }
  }
  if (others.empty()) return ProblemAnswer(404, "there is nothing at " + Quoted(request.path));
  WebAnswer refusal =
      ProblemAnswer(405, Quoted(request.method) + " is no method of this path; it takes " + others);
  refusal.headers.emplace_back("Allow", others);
  return refusal;
}

}  // namespace qdt::host
