#include "host/web/page_files.h"

namespace qdt::host {
namespace {

// Whether a list of tags ("a", W/"b", *) has this one.
bool Lists(std::string_view tags, std::string_view etag) {
  return tags == "*" || tags.find(etag) != tags.npos;
}

WebAnswer AnswerFile(const PageFile &file, const RouteCall &call) {
  WebAnswer answer;
  answer.headers.emplace_back("ETag", file.etag);
  answer.headers.emplace_back("Cache-Control", "no-cache");
  if (Lists(call.request().Header("if-none-match"), file.etag)) {
    answer.status = 304;
    return answer;
  }
  answer.contentType = file.contentType;
  answer.constant = file.bytes;
  return answer;
}

}  // namespace

void AddPageRoutes(Routes *routes, std::span<const PageFile> files) {
  const auto add = [routes](std::string_view path, const PageFile &file) {
    Route route;
    route.path = path;
    route.hidden = true;
    route.run = [&file](const RouteCall &call) { return AnswerFile(file, call); };
    routes->Add(std::move(route));
  };
  for (const PageFile &file : files) {
    add(file.path, file);
    if (file.path == "/index.html") add("/", file);
  }
}

}  // namespace qdt::host
