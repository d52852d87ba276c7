#include <libmix/drv.h>

#include "unit/sys/sys_cases.h"

using namespace mixtest;

namespace
{

/* All that routing looks at. */
struct chassis {
    bool platform_direct;    /* the platform id is 0x1050100 */
    bool system_type_direct; /* the system platform type is 0x1090100 */
    bool numa;
    bool hardware_chassis;
    bool is_platform_1050100;
    bool mirel9;
    bool switch_slot; /* the slot is a switch module's */
    bool slave;
    uint32_t platform_type;
};

constexpr uint16_t own_slot = 4, standby_slot = 6, main_slot = 2, other_slot = 9;

void describe(const chassis &with, uint16_t slot)
{
    auto &board = platform().board;
    board["tq_platform_id"] = with.platform_direct ? 0x1050100 : 0x1050101;
    board["tq_system_platform_type"] = with.system_type_direct ? 0x1090100 : 0x1090101;
    board["tq_is_numa_platform"] = with.numa;
    board["tq_is_mcpu_hardware_platform"] = with.hardware_chassis;
    platform().board_of[{"tq_is_platform", 0x1050100}] = with.is_platform_1050100;
    board["tq_is_mcpu_Mirel9_series_hardware_platform"] = with.mirel9;
    platform().board_of[{"tq_is_mcpu_swm_slot", slot}] = with.switch_slot;
    board["tq_is_mcp_slave"] = with.slave;
    board["tq_platform_type"] = with.platform_type;
    board["tq_get_slot"] = own_slot;
    board["tq_get_scp_slot"] = standby_slot;
    board["tq_get_mcp_slot"] = main_slot;
}

/* A row of the functions' table, in the model's own terms. */
struct routed_function {
    const char *name;
    bool by_system_type, by_numa;
    bool cpu_direct, cpu_switch, cpu_other; /* the request's processor, or 0 */
    bool by_platform_type;
    size_t slot_offset;
    bool takes_cpu;
    std::function<void(uint16_t slot, uint16_t cpu)> call;
};

struct routed {
    uint32_t destination;
    uint16_t slot;
    bool operator==(const routed &) const = default;
};

uint32_t at(uint32_t slot, uint32_t cpu)
{
    return slot + 1 > 255 ? 0xffffffff : (slot + 1) << 24 | cpu << 8 | 1;
}

/* An independent model: the last rule that applies decides, each rule written out. */
routed expected(const routed_function &function, const chassis &with, uint16_t slot, uint16_t cpu)
{
    if (slot == 0)
        return {1, 0};
    const bool direct = with.platform_direct || (function.by_system_type && with.system_type_direct) ||
                        (function.by_numa && with.numa);
    routed result{direct ? at(slot, function.cpu_direct ? cpu : 0) : 1u, direct ? uint16_t{0} : slot};

    bool first_branch = false, second_branch = false;
    if (function.by_platform_type) {
        const std::map<uint32_t, int> branches = {{0x1120100, 2}, {0x10f0100, 2}, {0x10f0200, 2},
                                                  {0x1240100, 1}, {0x1240200, 1}, {0x1180100, 1}};
        const auto found = branches.find(with.platform_type);
        first_branch = found != branches.end() && found->second == 2;
        second_branch = found != branches.end();
    } else if (with.hardware_chassis && !with.is_platform_1050100) {
        first_branch = second_branch = true;
    }
    const bool takes_first = first_branch && !with.mirel9 && with.switch_slot;
    if (takes_first && with.slave)
        result.destination = at(main_slot, function.cpu_switch ? cpu : 0);
    if (!takes_first && second_branch && slot != own_slot) {
        result.destination = at(slot, function.cpu_other ? cpu : 0);
        if (slot != standby_slot)
            result.slot = 0;
    }
    return result;
}

uint8_t message[12568];

void fill(uint16_t slot, uint16_t cpu)
{
    drv_port_stats_msg_init(message, slot, cpu, 3, 1, 2);
}

const routed_function functions[] = {
    {"port_stats", true, false, true, false, true, true, 8, true,
     [](uint16_t slot, uint16_t cpu) {
         fill(slot, cpu);
         EXPECT_EQ(drv_get_port_stats(message, sizeof message), 0);
         EXPECT_EQ(message[8] | message[9] << 8, slot) << "the caller's slot is put back";
     }},
    {"port_stats_with_cpuindex", false, false, true, true, true, false, 8, true,
     [](uint16_t slot, uint16_t cpu) {
         fill(slot, cpu);
         EXPECT_EQ(drv_get_port_stats_with_cpuindex(message, sizeof message), 0);
         EXPECT_EQ(message[8] | message[9] << 8, slot);
     }},
    {"port_eye_stats", false, false, true, false, false, false, 8, true,
     [](uint16_t slot, uint16_t cpu) {
         fill(slot, cpu);
         EXPECT_EQ(drv_get_port_eye_stats(message, sizeof message), 0);
     }},
    {"bridge_stats", true, false, false, false, false, false, 8, false,
     [](uint16_t slot, uint16_t) {
         void *out = nullptr;
         EXPECT_EQ(drv_get_bridge_stats(&out, slot, 1, 2), 0);
         platform().free_as_caller(out);
     }},
    {"remote_dev_ioctl", true, true, false, false, false, false, 4, false,
     [](uint16_t slot, uint16_t) {
         uint32_t data = 0;
         EXPECT_EQ(remote_dev_ioctl(slot, 1, 62, &data), 0);
     }},
    {"remote_hwif_ioctl", true, true, false, false, false, false, 4, false,
     [](uint16_t slot, uint16_t) {
         uint32_t data = 0;
         EXPECT_EQ(remote_hwif_ioctl(slot, 1, 1, &data), 0);
     }},
};

struct drv_routing : platform_test, testing::WithParamInterface<routed_function> {
    void check(const chassis &with, uint16_t slot, uint16_t cpu)
    {
        platform().messages.clear();
        platform().board_calls.clear();
        platform().allocation_sizes.clear();
        describe(with, slot);
        GetParam().call(slot, cpu);
        ASSERT_EQ(platform().messages.size(), 1u);
        const sent_message &sent = platform().messages[0];
        const size_t offset = GetParam().slot_offset;
        const routed went{sent.destination,
                          static_cast<uint16_t>(sent.request.at(offset) | sent.request.at(offset + 1) << 8)};
        const routed wanted = expected(GetParam(), with, slot, cpu);
        ASSERT_EQ(went, wanted) << std::hex << "to " << went.destination << " not " << wanted.destination
                                << ", slot field " << went.slot << " not " << wanted.slot << ", slot " << slot
                                << ", type " << with.platform_type << ", predicates " << with.platform_direct
                                << with.system_type_direct << with.numa << with.hardware_chassis
                                << with.is_platform_1050100 << with.mirel9 << with.switch_slot << with.slave;
    }
};

TEST_P(drv_routing, agrees_with_the_model_on_every_combination)
{
    constexpr uint32_t types[] = {0,         0x1120100, 0x10f0100, 0x10f0200,
                                  0x1240100, 0x1240200, 0x1180100, 0x1050100};
    constexpr uint16_t slots[] = {0, 1, main_slot, own_slot, standby_slot, other_slot, 254, 255, 0xffff};
    platform().fallback = {0, 0, {}, {}};
    const bool typed = GetParam().by_platform_type;
    for (unsigned bits = 0; bits < 256; bits++)
        for (const uint32_t type : types) {
            if (!typed && type != types[0] && type != types[1])
                continue; /* two types show that it is not looked at */
            for (const uint16_t slot : slots) {
                const chassis with{(bits & 1) != 0,  (bits & 2) != 0,   (bits & 4) != 0,
                                   (bits & 8) != 0,  (bits & 16) != 0,  (bits & 32) != 0,
                                   (bits & 64) != 0, (bits & 128) != 0, type};
                check(with, slot, 0);
                if (GetParam().takes_cpu)
                    check(with, slot, 0x0102);
                if (HasFatalFailure())
                    return;
            }
        }
}

INSTANTIATE_TEST_SUITE_P(drv, drv_routing, testing::ValuesIn(functions),
                         [](const auto &one) { return one.param.name; });

} // namespace
