/* What libmix imports: shared memory. */
#ifndef MIX_PLATFORM_SHARED_MEM_H
#define MIX_PLATFORM_SHARED_MEM_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Creates or attaches the POSIX shared-memory object of that name, mapped read/write; NULL on failure. */
void *init_shared_mem(const char *name, size_t size);

#ifdef __cplusplus
}
#endif

#endif
