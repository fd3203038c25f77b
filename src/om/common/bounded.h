#ifndef SRC_OM_COMMON_BOUNDED_H_
#define SRC_OM_COMMON_BOUNDED_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace qdt {

// Bounds-checked memory and text operations. All but the truncating formatter are all or nothing: what does
// not fit (or a null argument) gives a negative result and an empty destination: an empty text, or zeroed
// memory. Texts are always NUL-terminated, and their rooms count the NUL. Source and destination must not
// overlap.

// Copies `count` bytes into a destination of `room` bytes; 0 or negative.
int32_t memcpy_s(void *dest, size_t room, const void *src, size_t count);

// Copies a text; 0 or negative.
int32_t strcpy_s(char *dest, size_t room, const char *src);

// Copies at most `count` characters of a text and terminates them; 0, or negative when they and the NUL do
// not fit.
int32_t strncpy_s(char *dest, size_t room, const char *src, size_t count);

// Formats; the number of characters written, or negative.
int32_t sprintf_s(char *dest, size_t room, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Formats and cuts the text at room - 1 characters, which is success; the number of characters written, or
// negative on a null argument, a room of 0 or above INT32_MAX, or a formatting failure.
int32_t vsnprintf_truncated_s(char *dest, size_t room, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));

// Reads fields as scanf does; the number of fields converted, or negative. A text conversion must carry its
// width.
int32_t sscanf_s(const char *text, const char *format, ...) __attribute__((format(scanf, 2, 3)));

}  // namespace qdt

#endif  // SRC_OM_COMMON_BOUNDED_H_
