#ifndef HOST_TBM_STATUS_H_
#define HOST_TBM_STATUS_H_

#include <cstdint>

// The table manager's statuses.
namespace qdt::host::tbm {

constexpr int32_t kTbmOk = 0;
constexpr int32_t kTbmMore = 1;
constexpr int32_t kTbmBadParam = -2;
constexpr int32_t kTbmNoMemory = -3;
constexpr int32_t kTbmExists = -5;
constexpr int32_t kTbmNotSupported = -6;
constexpr int32_t kTbmNotFound = -7;
constexpr int32_t kTbmFull = -8;
constexpr int32_t kTbmStop = -10;
constexpr int32_t kTbmCursorDeleted = -11;
constexpr int32_t kTbmWalkLost = -12;
constexpr int32_t kTbmInternal = -115;
constexpr int32_t kTbmNotReady = -116;

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_STATUS_H_
