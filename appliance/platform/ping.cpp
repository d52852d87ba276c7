#include "appliance/platform/ping.h"

#include "appliance/platform/transport.h"
#include "appliance/wire/clock.h"

extern "C" int32_t mixplatform_ping(uint32_t destination, uint32_t timeout_ms, uint64_t *nanoseconds)
{
    /* The first one may have to open the connection; the second one is what an exchange waits. */
    const mixplatform::message question{destination, 0, {}, timeout_ms};
    if (const int32_t result = mixplatform::ping(question); result < 0)
        return result;
    const int64_t before = mix::wire::monotonic_ns();
    if (const int32_t result = mixplatform::ping(question); result < 0)
        return result;
    *nanoseconds = static_cast<uint64_t>(mix::wire::monotonic_ns() - before);
    return 0;
}
