#ifndef TOOLS_NQEWEB_PAGE_H_
#define TOOLS_NQEWEB_PAGE_H_

#include <span>

#include "host/web/page_files.h"

namespace qdt::nqeweb {

// The files of the page and the libraries that it uses, which the build has made part of the program.
std::span<const host::PageFile> PageFiles();

}  // namespace qdt::nqeweb

#endif  // TOOLS_NQEWEB_PAGE_H_
