#include "sys/drv_route.h"

#include "platform/board.h"
#include "platform/ipcmsg.h"
#include "sys/drv_wire.h"

namespace mix::sys
{

static constexpr uint32_t direct_platform = 0x1050100;
static constexpr uint32_t direct_system_type = 0x1090100;

/* Which chassis branches there are. */
struct branches {
    bool switch_module;
    bool other_slot;
};

struct typed_branches {
    uint32_t platform_type;
    branches there;
};

static constexpr typed_branches branches_by_type[] = {
    {0x1120100, {true, true}},  {0x10f0100, {true, true}},  {0x10f0200, {true, true}},
    {0x1240100, {false, true}}, {0x1240200, {false, true}}, {0x1180100, {false, true}},
};

static branches chassis_branches(chassis_step step)
{
    if (step == chassis_step::on_multi_processor_chassis) {
        const bool chassis = tq_is_mcpu_hardware_platform() && !tq_is_platform(direct_platform);
        return {chassis, chassis};
    }
    const uint32_t platform_type = tq_platform_type();
    for (const typed_branches &each : branches_by_type)
        if (each.platform_type == platform_type)
            return each.there;
    return {false, false};
}

static uint32_t driver_of(uint32_t slot, uint16_t cpu)
{
    return mktipcid(slot + 1, cpu, wire::drv_daemon);
}

static bool is_direct(const route_rule &rule)
{
    return tq_platform_id() == direct_platform ||
           (rule.direct_on_system_type && tq_system_platform_type() == direct_system_type) ||
           (rule.direct_on_numa && tq_is_numa_platform());
}

route route_request(const route_rule &rule, uint16_t slot, uint16_t cpu)
{
    route way{wire::drv_daemon, slot};
    if (slot == 0)
        return way;
    const auto of = [cpu](route_cpu which) -> uint16_t { return which == route_cpu::of_request ? cpu : 0; };
    if (is_direct(rule))
        way = {driver_of(slot, of(rule.direct)), 0};

    const branches there = chassis_branches(rule.chassis);
    if (there.switch_module && !tq_is_mcpu_Mirel9_series_hardware_platform() && tq_is_mcpu_swm_slot(slot)) {
        if (tq_is_mcp_slave())
            way.destination = driver_of(tq_get_mcp_slot(), of(rule.switch_module));
        return way;
    }
    if (there.other_slot && slot != tq_get_slot()) {
        way.destination = driver_of(slot, of(rule.other_slot));
        if (slot != tq_get_scp_slot())
            way.slot = 0;
    }
    return way;
}

} // namespace mix::sys
