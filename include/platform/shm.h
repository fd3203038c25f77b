/*
 * Named shared memory of the platform under libqdt_util. The library only declares these symbols; whoever
 * links it defines them. Regions are created by the engine and stay mapped for the life of the process.
 */
#ifndef PLATFORM_SHM_H_
#define PLATFORM_SHM_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Maps the region `name`; size 0 means "as created", flags are 0. Null when there is no such region. */
void *VRX_Smmap(const char *name, uint32_t size, uint32_t flags);

/* Attaches the shared-memory partition `name` and stores its handle; 0 on success. */
int32_t DHF_ShmPtAttach(const char *name, uint16_t *handle);

/* Size of the attached partition, and how much of it is allocated, in bytes. */
uint32_t DHF_ShmPtTotalSizeGet(uint16_t handle);
uint32_t DHF_ShmPtAllocedSizeGet(uint16_t handle);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SHM_H_ */
