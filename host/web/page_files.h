#ifndef HOST_WEB_PAGE_FILES_H_
#define HOST_WEB_PAGE_FILES_H_

#include <span>
#include <string_view>

#include "host/web/routes.h"

namespace qdt::host {

// A file that is part of the program.
struct PageFile {
  std::string_view path;  // "/app.js"
  std::string_view contentType;
  std::string_view etag;  // with its quotation marks; another one for other bytes
  std::string_view bytes;
};

// Each file under its own path, "/index.html" under "/" as well. Who has it already is told so (304).
void AddPageRoutes(Routes *routes, std::span<const PageFile> files);

}  // namespace qdt::host

#endif  // HOST_WEB_PAGE_FILES_H_
