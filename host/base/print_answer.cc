#include "host/base/print_answer.h"

#include <cstdio>

#include "host/base/fd.h"

namespace qdt::host {

void PrintAnswer(const std::string &text) {
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    throw SystemError("cannot write the answer");
}

}  // namespace qdt::host
