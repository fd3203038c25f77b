#include "src/om/common/bounded.h"

#include <cstdio>
#include <cstring>

namespace qdt {
namespace {

constexpr int32_t kFailed = -1;

// Rooms above this are taken for a negative number that was widened.
constexpr size_t kMaxRoom = INT32_MAX;

bool IsRoom(const void *dest, size_t room) { return dest != nullptr && room != 0 && room <= kMaxRoom; }

int32_t Empty(char *dest, size_t room) {
  if (IsRoom(dest, room)) dest[0] = '\0';
  return kFailed;
}

}  // namespace

int32_t memcpy_s(void *dest, size_t room, const void *src, size_t count) {
  if (!IsRoom(dest, room)) return kFailed;
  if (src == nullptr || count > room) {
    std::memset(dest, 0, room);
    return kFailed;
  }
  std::memcpy(dest, src, count);
  return 0;
}

int32_t strcpy_s(char *dest, size_t room, const char *src) { return strncpy_s(dest, room, src, kMaxRoom); }

int32_t strncpy_s(char *dest, size_t room, const char *src, size_t count) {
  if (!IsRoom(dest, room) || src == nullptr) return Empty(dest, room);
  // No more of the source is looked at than decides the question.
  const size_t length = strnlen(src, count < room ? count : room);
  if (length >= room) return Empty(dest, room);
  std::memcpy(dest, src, length);
  dest[length] = '\0';
  return 0;
}

int32_t sprintf_s(char *dest, size_t room, const char *format, ...) {
  if (!IsRoom(dest, room) || format == nullptr) return Empty(dest, room);
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(dest, room, format, args);
  va_end(args);
  if (length < 0 || static_cast<size_t>(length) >= room) return Empty(dest, room);
  return length;
}

int32_t vsnprintf_truncated_s(char *dest, size_t room, const char *format, va_list args) {
  if (!IsRoom(dest, room) || format == nullptr) return Empty(dest, room);
  const int length = std::vsnprintf(dest, room, format, args);
  if (length < 0) return Empty(dest, room);
  return static_cast<size_t>(length) < room ? length : static_cast<int32_t>(room - 1);
}

int32_t sscanf_s(const char *text, const char *format, ...) {
  if (text == nullptr || format == nullptr) return kFailed;
  va_list args;
  va_start(args, format);
  const int fields = std::vsscanf(text, format, args);
  va_end(args);
  return fields;
}

}  // namespace qdt
