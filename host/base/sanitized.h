#ifndef HOST_BASE_SANITIZED_H_
#define HOST_BASE_SANITIZED_H_

namespace qdt::host {

// Whether this program is built with a sanitizer that wants memory and system calls of its own, so that
// bounds on these cannot be set.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

}  // namespace qdt::host

#endif  // HOST_BASE_SANITIZED_H_
