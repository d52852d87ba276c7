/* Slots, processors, memory, modules, storage figures. */
#include <libmix/chassisd.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

constexpr uint32_t slot_table_capacity = 5000;
const uint8_t card[6] = {1, 2, 3, 4, 5, 6};

bytes slot_entry(uint16_t slot, uint32_t state)
{
    return record_of(48, {{0, le16(slot)}, {4, le32(0x1234)}, {40, le32(state)}, {44, le32(6)}});
}

/* Slots 1 and 2, both online. */
bytes slot_table()
{
    return join({le16(1), le32(0), le16(96), slot_entry(1, 15), slot_entry(2, 15)});
}

shape reads_slots(failures fails = always(-1), int64_t good = 0)
{
    return answers(slot_table_capacity, slot_table(), fails, good);
}

/* A status query into the output; the capacity survives a failure. */
template <class Ask>
int64_t ask_slots(given &g, Ask ask)
{
    uint32_t length = 480;
    const int result = ask(g.output, &length);
    if (result == 0)
        *g.as<uint32_t>(1000) = length;
    return result != 0 && length != 480 ? -99 : result;
}

bytes cpu_record(uint32_t busy)
{
    return join({some_bytes(12), le32(1), le32(busy), some_bytes(13)});
}

/* The slot table, then the record of each processor; without the table the local record is asked for. */
shape reads_busiest()
{
    shape is = reads_slots();
    is.exchanges.push_back({.capacity = 33, .reply = cpu_record(70)});
    is.exchanges.push_back({.capacity = 33, .reply = cpu_record(90)});
    for (exchange &each : is.exchanges)
        each.tolerated = true;
    return std::move(is).on({{"tq_is_mcpu_platform", 1}});
}

shape asks_module(failures fails = always(-1), int64_t good = 0)
{
    return answers(4000, some_bytes(220), fails, good);
}

/* The module list's queries tell a failed exchange from a missing buffer. */
shape asks_module_list(failures fails)
{
    return answers(221, some_bytes(220), fails);
}

shape notifies_card()
{
    return answers(3, {7, 0, 0}, accepts::reaches, 2);
}

shape figures()
{
    return answers(25, some_bytes(25), accepts::reaches, 24);
}

/* The length of a buffer that was handed over stands behind its pointer. */
template <class Get>
int64_t take_counted(given &g, Get get)
{
    uint32_t length = 4711;
    const int result = get(g.no_buffer(), &length);
    if (result != 0)
        return length != 4711 ? -99 : result;
    return g.take_buffer(result, length, length);
}

} // namespace

std::vector<client> chassis_clients()
{
    const failures exchange_is_2 = {-1, -1, -2, -2, -2};
    return {
        {MIX_BODY(get_slot_status,
                  return ask_slots(
                      g, [](void *out, uint32_t *length) { return get_slot_status(0, 0, out, length); });),
         reads_slots()},
        {MIX_BODY(chassisd_get_slot_status, return ask_slots(g, chassisd_get_slot_status);), reads_slots()},
        {MIX_BODY(chassisd_get_slot_status2, return ask_slots(g,
                                                              [](void *out, uint32_t *length) {
                                                                  return chassisd_get_slot_status2(1, 2, out,
                                                                                                   length);
                                                              });),
         reads_slots()},
        {MIX_CALL(get_chassis_specified_slot_status, 2), reads_slots(always(-1), 15)},
        {MIX_CALL(chassisd_card_is_present, 2), reads_slots(always(0), 1)},
        {MIX_CALL(chassisd_card_is_enter_booting, 2), reads_slots(always(0), 1)},
        {MIX_CALL(chassisd_card_is_online, 2), reads_slots(always(-1), 1)},
        {MIX_CALL(qsm_is_available), reads_slots(always(0), 1).on({{"tq_is_qsm_id", 1}})},
        {MIX_BODY(chassisd_get_cpu_info, return take_counted(g,
                                                             [](void **out, uint32_t *length) {
                                                                 return chassisd_get_cpu_info(0, 0, 7, out,
                                                                                              length);
                                                             });),
         answers(597, some_bytes(597)).set(&shape::hands_over, true)},
        {MIX_CALL(chassisd_get_slot_cpu_info, 0, 0, g.as<uint32_t>()), answers(33, cpu_record(70))},
        {MIX_CALL(chassisd_get_local_cpu_info, g.as<uint32_t>()), answers(33, cpu_record(70))},
        {MIX_CALL(chassisd_get_system_current_cpu_info, g.as<uint32_t>()), reads_busiest()},
        {MIX_CALL(chassisd_get_slot_mem, 0, 0, g.as<uint64_t>()),
         answers(81, some_bytes(81), accepts::reaches, 80, {-1, -1, result_of_send, 0, 0})
             .set(&shape::refused_by, refuses::nothing)},
        {MIX_CALL(chassisd_set_slot_mem_calc_mode, 0, 0, 1), answers(84, {})},
        {MIX_BODY(chassisd_get_bypass_info, return take_counted(g,
                                                                [](void **out, uint32_t *length) {
                                                                    return chassisd_get_bypass_info(1, out,
                                                                                                    length);
                                                                });),
         answers(4176, some_bytes(300)).set(&shape::hands_over, true)},
        {MIX_CALL(chassisd_get_cpu_temp, 1, 2, g.as<uint32_t>()), answers(12, some_bytes(12))},
        {MIX_CALL(libchassisd_get_module_number, g.as<uint32_t>()),
         asks_module_list(always(-1)).leaves(le32(0))},
        {MIX_CALL(libchassisd_get_module_info, g.as<uint32_t>(), 1), asks_module_list(exchange_is_2)},
        {MIX_CALL(libchassisd_get_module_plat_id, 1), asks_module(always(0), 0x6a635c55)},
        {MIX_CALL(libchassisd_get_module_slot_state, 1, g.as<uint32_t>()), asks_module()},
        {MIX_CALL(libchassisd_get_module_fru_entry, 1, g.output, 208), asks_module()},
        {MIX_CALL(libchassisd_is_slot_cfg_removable, 1, g.as<uint32_t>()), answers(12, some_bytes(12))},
        {MIX_CALL(libchassisd_clear_slot_cfg, 1), answers(12, some_bytes(12))},
        {MIX_CALL(libchassisd_detach_slot, 1), sends().on({{"tq_is_vfw_platform", 1}})},
        {MIX_CALL(libchassisd_vchassis_notify_boot_pic, card, g.as<uint16_t>()), notifies_card()},
        {MIX_CALL(libchassisd_vchassis_notify_stop_pic, card, g.as<uint16_t>()), notifies_card()},
        {MIX_CALL(libchassisd_vchassis_notify_reboot_pic, card, g.as<uint16_t>()), notifies_card()},
        {MIX_CALL(libchassisd_get_data_pak_buffer_pool_info, g.as<uint32_t>(), 1),
         answers(24, some_bytes(24), exchange_is_2)},
        {MIX_CALL(chassisd_get_harddisk_info, g.as<uint64_t>()), figures()},
        {MIX_CALL(chassisd_get_slot_flash_info, 0, 0, g.as<uint64_t>()), figures()},
    };
}

} // namespace mixtest
