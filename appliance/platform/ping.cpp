#include "appliance/platform/ping.h"

#include <ctime>

#include "appliance/platform/transport.h"

namespace
{

uint64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

} // namespace

extern "C" int32_t mixplatform_ping(uint32_t destination, uint32_t timeout_ms, uint64_t *nanoseconds)
{
    /* The first one may have to open the connection; the second one is what an exchange waits. */
    const mixplatform::message question{destination, 0, {}, timeout_ms};
    if (const int32_t result = mixplatform::ping(question); result < 0)
        return result;
    const uint64_t before = now();
    if (const int32_t result = mixplatform::ping(question); result < 0)
        return result;
    *nanoseconds = now() - before;
    return 0;
}
