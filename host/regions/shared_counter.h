#ifndef HOST_REGIONS_SHARED_COUNTER_H_
#define HOST_REGIONS_SHARED_COUNTER_H_

#include <atomic>
#include <type_traits>

namespace qdt::host {

// Adds to a counter of a shared region, which others may clear at any time.
template <typename T>
void AddTo(T *counter, std::type_identity_t<T> amount) {
  std::atomic_ref<T>(*counter).fetch_add(amount, std::memory_order_relaxed);
}

}  // namespace qdt::host

#endif  // HOST_REGIONS_SHARED_COUNTER_H_
