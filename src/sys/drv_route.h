/* Which board a port-driver request goes to. */
#ifndef MIX_SYS_DRV_ROUTE_H
#define MIX_SYS_DRV_ROUTE_H

#include <cstdint>

namespace mix::sys
{

/* Which processor of the board a step addresses. */
enum class route_cpu : uint8_t { first, of_request };

enum class chassis_step : uint8_t {
    on_multi_processor_chassis,
    by_platform_type /* the platform type alone decides which branches there are */
};

/* What differs between the functions: a row of their table. */
struct route_rule {
    bool direct_on_system_type = false; /* also by the system platform type */
    bool direct_on_numa = false;
    route_cpu direct = route_cpu::first;
    route_cpu switch_module = route_cpu::first;
    route_cpu other_slot = route_cpu::first;
    chassis_step chassis = chassis_step::on_multi_processor_chassis;
};

struct route {
    uint32_t destination;
    uint16_t slot; /* what the request's slot field is to hold */
};

route route_request(const route_rule &rule, uint16_t slot, uint16_t cpu);

} // namespace mix::sys

#endif
