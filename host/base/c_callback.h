#ifndef HOST_BASE_C_CALLBACK_H_
#define HOST_BASE_C_CALLBACK_H_

#include <new>

namespace qdt::host {

// Runs what the library calls through the platform's C interface, of which no exception may come: where
// memory runs out it is told `failure`.
template <typename Result, typename Run>
Result UnlessShort(Result failure, const Run &run) {
  try {
    return run();
  } catch (const std::bad_alloc &) {
    return failure;
  }
}

}  // namespace qdt::host

#endif  // HOST_BASE_C_CALLBACK_H_
