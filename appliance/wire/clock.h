/* The clock that no setting of the time moves. */
#ifndef MIX_APPLIANCE_WIRE_CLOCK_H
#define MIX_APPLIANCE_WIRE_CLOCK_H

#include <cstdint>
#include <ctime>

namespace mix::wire
{

inline int64_t monotonic_ns()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace mix::wire

#endif
