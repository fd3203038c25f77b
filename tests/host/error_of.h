#ifndef TESTS_HOST_ERROR_OF_H_
#define TESTS_HOST_ERROR_OF_H_

#include <functional>
#include <string>

#include "host/base/host_error.h"

namespace qdt::host {

// The line that `work` fails with, or "no error".
inline std::string ErrorOf(const std::function<void()> &work) {
  try {
    work();
  } catch (const HostError &error) {
    return error.what();
  }
  return "no error";
}

}  // namespace qdt::host

#endif  // TESTS_HOST_ERROR_OF_H_
