/* Whether a daemon answers, and how fast. Exported by libmixplatform.so beside what libmix imports. */
#ifndef MIX_APPLIANCE_PLATFORM_PING_H
#define MIX_APPLIANCE_PLATFORM_PING_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Asks the daemon at an address for a sign of life, which costs it no request. Waits at most timeout_ms.
 *
 * nanoseconds: receives the time of one question and answer on an open connection; written only on success.
 * Returns 0, or a negative error number; mixplatform_last_reason() then has the words.
 */
int32_t mixplatform_ping(uint32_t destination, uint32_t timeout_ms, uint64_t *nanoseconds);

#ifdef __cplusplus
}
#endif

#endif
