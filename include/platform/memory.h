/*
 * The allocator that the platform under libqdt_util supplies. The library only declares these symbols;
 * whoever links it (a device, the host platform, a test) defines them.
 *
 * All functions may be called from any thread.
 */
#ifndef PLATFORM_MEMORY_H_
#define PLATFORM_MEMORY_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The module handle under which the library's memory is accounted; passed through, never looked into. */
extern void *g_mallocHandle;

/*
 * Returns `size` bytes aligned for any type, or null on failure. `path` is the source path of the caller from
 * "src/" on, without the ending; `line` its line. The caller owns the memory until free_ex.
 */
void *malloc_ex(void *handle, const char *path, uint32_t line, size_t size);

/* As malloc_ex for `count` elements of `size` bytes, zeroed; null as well when the product overflows. */
void *calloc_ex(void *handle, const char *path, uint32_t line, size_t count, size_t size);

/*
 * Releases memory of malloc_ex or calloc_ex. Null does nothing. A pointer that the allocator did not hand out
 * is recognised, logged once and ignored.
 */
void free_ex(void *handle, void *pointer);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_MEMORY_H_ */
