/* Slot table, processors, memory, slot operations. */
#include <libmix/chassisd.h>

#include <iterator>

#include "frame/frame.h"
#include "platform/board.h"
#include "platform/services.h"
#include "sys/chassisd_wire.h"
#include "sys/virtual_platform.h"

namespace
{

using namespace mix;

/* --- slot table --- */

constexpr frame::exchange slot_status{
    .daemon = wire::chassis_manager,
    .type = wire::slot_status_type,
    .timeout_ms = 3000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::slot_status_header),
    .reply_capacity = wire::slot_status_capacity,
};

int take_slot_status(frame::reply_view &reply, void *out, uint32_t *outlen)
{
    const uint16_t subtype = reply.u16(offsetof(wire::slot_status_header, subtype));
    if (subtype != wire::slot_status_answer) {
        console_print("rsp sub type is %d\n", subtype);
        return -1;
    }
    const uint32_t length = reply.u16(offsetof(wire::slot_status_header, data_length));
    if (*outlen < length) {
        console_print("*outbuf len is %u,rsp->datalen is %u\n", *outlen, length);
        return -1;
    }
    reply.copy(out, sizeof(wire::slot_status_header), length);
    *outlen = length;
    return 0;
}

constexpr size_t most_slots = 32;

/* The local slot table, as far as this library looks at it. */
struct slot_table {
    wire::slot_entry entries[most_slots];
    size_t count = 0;

    [[nodiscard]] const wire::slot_entry *begin() const { return entries; }
    [[nodiscard]] const wire::slot_entry *end() const { return entries + count; }
};

bool read_slot_table(slot_table &table)
{
    uint32_t length = sizeof table.entries;
    if (get_slot_status(0, 0, table.entries, &length) != 0)
        return false;
    table.count = length / sizeof(wire::slot_entry);
    return true;
}

/* --- processors and memory --- */

constexpr frame::exchange chassis_query{
    .daemon = wire::chassis_manager,
    .type = wire::chassis_query_type,
    .timeout_ms = 3000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::chassis_query_request),
};

template <class Deliver>
frame::outcome query(const frame::exchange &what, const frame::target &where, uint32_t subtype,
                     Deliver &&deliver)
{
    return frame::run<wire::chassis_query_request>(
        what, where, nullptr, [=](wire::chassis_query_request &request) { request.subtype = subtype; },
        deliver);
}

template <class Deliver>
int query_cpu(uint32_t slot, uint32_t cpu, uint32_t subtype, Deliver &&deliver)
{
    if (tq_is_numa_ioc())
        return -1;
    frame::exchange what = chassis_query;
    what.reply_capacity = wire::cpu_reply_capacity(subtype);
    if (what.reply_capacity == 0)
        return -1;
    const auto where = frame::node_or_local(slot, cpu);
    return query(what, where, subtype, deliver).ok() ? 0 : -1;
}

constexpr size_t cpu_record_fields = 5;
constexpr size_t compared_field = 1;
constexpr uint32_t uncounted_card_types[] = {0x1052300, 0x1052400, 0x1190300};

bool counts_for_system(const wire::slot_entry &entry)
{
    if (entry.state != wire::slot_online || entry.role != wire::slot_role_counted)
        return false;
    const uint32_t type = entry.card_type;
    return std::find(std::begin(uncounted_card_types), std::end(uncounted_card_types), type) ==
           std::end(uncounted_card_types);
}

bool busiest_card(uint32_t (&best)[cpu_record_fields])
{
    slot_table table;
    if (!read_slot_table(table))
        return false;
    bool found = false;
    for (const wire::slot_entry &entry : table) {
        uint32_t record[cpu_record_fields];
        if (!counts_for_system(entry) ||
            chassisd_get_slot_cpu_info(uint32_t{entry.slot} + 1, entry.cpu, record) != 0)
            continue;
        if (!found || record[compared_field] > best[compared_field])
            std::copy(std::begin(record), std::end(record), best);
        found = true;
    }
    return found;
}

constexpr frame::exchange slot_mem = [] {
    frame::exchange what = chassis_query;
    what.reply_capacity = sizeof(wire::slot_mem_reply);
    what.refusal = frame::refused_when::never; /* the figures count, whatever the status */
    what.length = frame::length_rule::reaches;
    what.length_value = sizeof(wire::slot_mem_reply::figures);
    return what;
}();

constexpr frame::exchange mem_mode = [] {
    frame::exchange what = chassis_query;
    what.request_size = what.reply_capacity = sizeof(wire::mem_mode_request);
    what.reply_in_request = true;
    return what;
}();

constexpr frame::exchange bypass = [] {
    frame::exchange what = chassis_query;
    what.reply_capacity = wire::bypass_capacity;
    return what;
}();

constexpr frame::text bypass_failure{"[%s]some error occured: rc=%d, retval=%d, outlen=%d\n",
                                     frame::shows::function_sent_status_length};
constexpr frame::texts bypass_texts{
    .function = "chassisd_get_bypass_info",
    .no_request = bypass_failure,
    .no_reply = bypass_failure,
    .not_sent = bypass_failure,
    .refused = bypass_failure,
};

constexpr frame::text temp_failure{"ipc error, rc is %d, ret is %d, outlen is %d.\n",
                                   frame::shows::sent_status_length};
constexpr frame::exchange cpu_temp{
    .daemon = wire::chassis_manager,
    .type = wire::chassis_query_type,
    .timeout_ms = 2000,
    .request_size = sizeof(wire::cpu_temp_message),
    .reply_capacity = sizeof(wire::cpu_temp_message),
    .reply_in_request = true,
    .say = {.not_sent = temp_failure, .refused = temp_failure},
};

/* --- slot operations --- */

constexpr frame::exchange slot_cfg{
    .daemon = wire::chassis_manager,
    .type = wire::slot_cfg_type,
    .timeout_ms = 3000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::slot_cfg_message),
    .reply_capacity = sizeof(wire::slot_cfg_message),
    .reply_in_request = true,
};

template <class Deliver>
int configure_slot(wire::slot_cfg_code code, uint16_t slot, Deliver &&deliver)
{
    const frame::outcome got = frame::run<wire::slot_cfg_message>(
        slot_cfg, frame::local(), nullptr,
        [=](wire::slot_cfg_message &request) {
            request.code = code;
            request.slot = slot;
        },
        deliver);
    return got.ok() ? 0 : -1;
}

constexpr frame::notice detach{
    .daemon = wire::chassis_main,
    .type = wire::slot_detach_type,
    .request_size = sizeof(wire::slot_detach_request),
    .say = {.no_request = {"Alloc ipcmsg buffer failed.\n"}},
};

constexpr frame::exchange card_notice{
    .daemon = wire::chassis_manager,
    .type = wire::card_notice_type,
    .timeout_ms = 3000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::card_notice_request),
    .reply_capacity = sizeof(wire::card_notice_reply),
    .length = frame::length_rule::reaches,
    .length_value = sizeof(wire::card_notice_reply::answer),
    .say = {.no_request = {"Alloc ipcmsg buffer failed\n"}, .no_reply = {"Alloc ipcmsg buffer failed\n"}},
};

int notify_card(wire::card_notice_code code, const void *card, uint16_t *answer)
{
    const frame::outcome got = frame::run<wire::card_notice_request>(
        card_notice, frame::local(), console_print,
        [=](wire::card_notice_request &request) {
            request.code = code;
            frame::put_bytes(request.card, card);
        },
        [=](frame::reply_view &reply) { *answer = reply.u16(offsetof(wire::card_notice_reply, answer)); });
    return got.ok() ? 0 : -1;
}

constexpr frame::exchange buffer_pool{
    .daemon = wire::chassis_main,
    .type = wire::buffer_pool_type,
    .timeout_ms = 2000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::buffer_pool_message),
    .reply_capacity = sizeof(wire::buffer_pool_message),
    .reply_in_request = true,
};

constexpr uint32_t usb_bridge_platforms[] = {0x10f0200, 0x10f0100, 0x1120100};

} // namespace

int get_slot_status(uint32_t slot, uint32_t cpu, void *out, uint32_t *outlen) noexcept
{
    if (tq_is_numa_ioc())
        return -1;
    int result = -1;
    const frame::outcome got = frame::run<wire::slot_status_header>(
        slot_status, frame::node_or_local(slot, cpu), nullptr,
        [](wire::slot_status_header &request) { request.subtype = wire::slot_status_ask; },
        [&](frame::reply_view &reply) { result = take_slot_status(reply, out, outlen); });
    return got.ok() ? result : -1;
}

int chassisd_get_slot_status(void *out, uint32_t *outlen) noexcept
{
    return get_slot_status(0, 0, out, outlen);
}

int chassisd_get_slot_status2(uint32_t slot, uint32_t cpu, void *out, uint32_t *outlen) noexcept
{
    return get_slot_status(slot, cpu, out, outlen);
}

int get_chassis_specified_slot_status(int slot) noexcept
{
    slot_table table;
    if (!read_slot_table(table))
        return -1;
    for (const wire::slot_entry &entry : table)
        if ((uint32_t{entry.cpu} << 16 | entry.slot) == static_cast<uint32_t>(slot))
            return static_cast<int>(entry.state);
    return 0;
}

int chassisd_card_is_present(int slot) noexcept
{
    return get_chassis_specified_slot_status(slot) > static_cast<int>(wire::slot_last_absent);
}

int chassisd_card_is_enter_booting(int slot) noexcept
{
    return get_chassis_specified_slot_status(slot) > static_cast<int>(wire::slot_last_present);
}

int chassisd_card_is_online(int slot) noexcept
{
    const int state = get_chassis_specified_slot_status(slot);
    return state < 0 ? state : state == static_cast<int>(wire::slot_online);
}

int qsm_is_available(void) noexcept
{
    slot_table table;
    if (!read_slot_table(table))
        return 0;
    return std::any_of(table.begin(), table.end(), [](const wire::slot_entry &entry) {
        return entry.state > wire::slot_last_absent && tq_is_qsm_id(entry.card_type);
    });
}

int chassisd_get_cpu_info(uint32_t slot, uint32_t cpu, uint32_t subtype, void **out,
                          uint32_t *outlen) noexcept
{
    return query_cpu(slot, cpu, subtype, [=](frame::reply_view &reply) {
        *outlen = reply.received();
        *out = reply.keep();
    });
}

int chassisd_get_slot_cpu_info(uint32_t slot, uint32_t cpu, uint32_t record[5]) noexcept
{
    return query_cpu(slot, cpu, wire::chassis_cpu_record, [=](frame::reply_view &reply) {
        reply.copy(record, offsetof(wire::cpu_record_reply, record), sizeof(wire::cpu_record_reply::record));
    });
}

int chassisd_get_local_cpu_info(uint32_t record[5]) noexcept
{
    return chassisd_get_slot_cpu_info(0, 0, record);
}

int chassisd_get_system_current_cpu_info(uint32_t record[5]) noexcept
{
    uint32_t best[cpu_record_fields];
    if (tq_is_mcpu_platform() && busiest_card(best)) {
        std::copy(std::begin(best), std::end(best), record);
        return 0;
    }
    return chassisd_get_local_cpu_info(record);
}

int chassisd_get_slot_mem(uint32_t slot, uint32_t cpu, uint64_t out[10]) noexcept
{
    if (tq_is_numa_ioc())
        return -1;
    const frame::outcome got = query(
        slot_mem, frame::node_or_local(slot, cpu), wire::chassis_slot_mem, [=](frame::reply_view &reply) {
            reply.copy(out, offsetof(wire::slot_mem_reply, figures), sizeof(wire::slot_mem_reply::figures));
        });
    if (got.ok())
        return 0;
    return got.had_buffers() ? got.sent : -1; /* a short reply is not an error, on purpose */
}

int chassisd_set_slot_mem_calc_mode(uint32_t slot, uint32_t cpu, uint32_t mode) noexcept
{
    if (tq_is_numa_ioc())
        return -1;
    const frame::outcome got = frame::run<wire::mem_mode_request>(
        mem_mode, frame::node_or_local(slot, cpu), nullptr, [=](wire::mem_mode_request &request) {
            request.subtype = wire::chassis_set_mem_mode;
            request.mode = mode;
        });
    return got.ok() ? 0 : -1;
}

int chassisd_get_bypass_info(uint32_t which, void **out, uint32_t *outlen) noexcept
{
    frame::outcome got = query(bypass, frame::local(), which, [=](frame::reply_view &reply) {
        *outlen = reply.received();
        *out = reply.keep();
    });
    if (got.ok())
        return 0;
    if (got.at == frame::stage::no_request)
        got.sent = -2;
    else if (got.at == frame::stage::no_reply)
        got.sent = -3;
    frame::report(bypass_texts, got, console_print);
    return -1;
}

int chassisd_get_cpu_temp(uint32_t slot, uint32_t cpu, uint32_t *temp) noexcept
{
    if (temp == nullptr)
        return -1;
    const bool numa = tq_is_numa_platform() != 0;
    const frame::outcome got = frame::run<wire::cpu_temp_message>(
        cpu_temp, frame::local(), console_print,
        [=](wire::cpu_temp_message &request) {
            request.subtype = wire::chassis_cpu_temp;
            request.slot = static_cast<uint16_t>(numa ? 9 : slot);
            request.cpu = static_cast<uint16_t>(numa ? 0 : cpu);
        },
        [=](frame::reply_view &reply) {
            const uint16_t degrees = reply.u16(offsetof(wire::cpu_temp_message, temperature));
            *temp = static_cast<uint32_t>(int32_t{static_cast<int16_t>(degrees)});
        });
    return got.ok() ? 0 : -1;
}

int libchassisd_is_slot_cfg_removable(uint16_t slot, uint32_t *answer) noexcept
{
    return configure_slot(wire::slot_cfg_is_removable, slot, [=](frame::reply_view &reply) {
        *answer = reply.u32(offsetof(wire::slot_cfg_message, answer));
    });
}

int libchassisd_clear_slot_cfg(uint16_t slot) noexcept
{
    return configure_slot(wire::slot_cfg_clear, slot, frame::nothing_to_deliver);
}

int libchassisd_detach_slot(uint32_t slot) noexcept
{
    if (!sys::is_virtual_platform()) {
        console_print("Support detach slot on vFW platform\n");
        return -1;
    }
    const frame::outcome got = frame::notify<wire::slot_detach_request>(
        detach, frame::local(), console_print, [=](wire::slot_detach_request &request) {
            request.code = wire::slot_detach;
            request.slot = static_cast<uint16_t>(slot);
        });
    return got.ok() ? 0 : -1;
}

int libchassisd_vchassis_notify_boot_pic(const void *card, uint16_t *answer) noexcept
{
    return notify_card(wire::card_boot, card, answer);
}

int libchassisd_vchassis_notify_stop_pic(const void *card, uint16_t *answer) noexcept
{
    return notify_card(wire::card_stop, card, answer);
}

int libchassisd_vchassis_notify_reboot_pic(const void *card, uint16_t *answer) noexcept
{
    return notify_card(wire::card_reboot, card, answer);
}

int libchassisd_get_data_pak_buffer_pool_info(uint32_t out[4], uint32_t pool) noexcept
{
    const frame::outcome got = frame::run<wire::buffer_pool_message>(
        buffer_pool, frame::local(), nullptr,
        [=](wire::buffer_pool_message &request) {
            request.code = wire::buffer_pool_show;
            request.pool = pool;
        },
        [=](frame::reply_view &reply) {
            reply.copy(out, offsetof(wire::buffer_pool_message, figures),
                       sizeof(wire::buffer_pool_message::figures));
        });
    if (got.ok())
        return 0;
    return got.had_buffers() ? -2 : -1;
}

int check_emmc_convert_by_usb(void) noexcept
{
    for (const uint32_t platform : usb_bridge_platforms)
        if (tq_is_platform(platform))
            return 1;
    return tq_is_mirel7_emmc_platform();
}
