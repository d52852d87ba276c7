/* MIX_TRACE=FILE: one JSON line for each exchange, appended to FILE. */
#ifndef MIX_APPLIANCE_PLATFORM_TRACE_H
#define MIX_APPLIANCE_PLATFORM_TRACE_H

#include <cstdint>
#include <ctime>

#include "appliance/platform/transport.h"
#include "appliance/wire/clock.h"
#include "appliance/wire/message.h"

namespace mixplatform
{

/* Whether this process writes a trace. */
bool tracing();

/* When an exchange began; asks for the time only while tracing. */
struct trace_clock {
    trace_clock();
    timespec real{};
    int64_t monotonic_ns = 0;
};

struct traced {
    mix::wire::message_kind kind;
    const message &sent;
    int32_t result;
    const reply &answer; /* counts when the result is 0 */
    const char *reason;
    const trace_clock &started;
};

void trace(const traced &what);

} // namespace mixplatform

#endif
