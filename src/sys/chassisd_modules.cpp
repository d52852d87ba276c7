/* The modules of a chassis. */
#include <libmix/chassisd.h>

#include <cstdio>

#include "frame/frame.h"
#include "platform/board.h"
#include "platform/services.h"
#include "sys/chassisd_wire.h"

namespace
{

using namespace mix;

constexpr frame::exchange module_list{
    .daemon = wire::chassis_manager,
    .type = wire::module_type,
    .timeout_ms = 2000,
    .request_size = sizeof(wire::module_message),
    .reply_capacity = wire::module_capacity,
    .reply_in_request = true,
};

constexpr frame::exchange module_by_slot{
    .daemon = wire::chassis_manager,
    .type = wire::module_type,
    .timeout_ms = 2000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::module_message),
    .reply_capacity = wire::module_slot_capacity,
    .reply_in_request = true,
    .say = {.no_request = {"ipcmsg_alloc error.\n"},
            .not_sent = {"ipc error.\n"},
            .refused = {"ipc error.\n"}},
};

constexpr frame::exchange module_fru = [] {
    frame::exchange what = module_by_slot;
    what.call = frame::send_call::send_and_recv;
    return what;
}();

template <class Deliver>
frame::outcome ask_slot(const frame::exchange &what, const frame::target &where, uint16_t slot,
                        Deliver &&deliver)
{
    return frame::run<wire::module_message>(
        what, where, console_print,
        [=](wire::module_message &request) {
            request.code = wire::module_of_slot;
            request.slot = slot;
        },
        deliver);
}

struct module_kind {
    uint32_t chassis; /* the manager's number */
    uint32_t library; /* what callers see */
};

constexpr module_kind module_kinds[] = {
    {0, 0},  {1, 1},  {3, 2},  {8, 9},  {9, 9},   {11, 10}, {13, 3},  {14, 4},
    {15, 5}, {16, 6}, {17, 7}, {18, 8}, {20, 11}, {21, 13}, {22, 14}, {23, 12},
};

uint32_t library_kind(uint32_t chassis)
{
    for (const module_kind &each : module_kinds)
        if (each.chassis == chassis)
            return each.library;
    return 0;
}

/* What callers get; filled in natural layout, handed out as words. */
struct module_record {
    uint32_t valid;
    char slot[128];
    uint32_t kind;
    char name[64];
    char second_text[32];
};
static_assert(sizeof(module_record) == 232);
static_assert(offsetof(module_record, slot) == 4);
static_assert(offsetof(module_record, kind) == 132);
static_assert(offsetof(module_record, name) == 136);
static_assert(offsetof(module_record, second_text) == 200);

module_record record_of(const frame::reply_view &reply)
{
    module_record record{};
    record.valid = 1;
    std::snprintf(record.slot, sizeof record.slot, "slot %d",
                  reply.u16(offsetof(wire::module_message, slot)));
    record.kind = library_kind(reply.u32(offsetof(wire::module_message, kind)));
    reply.text(record.name, sizeof record.name, offsetof(wire::module_message, name),
               sizeof(wire::module_message::name));
    reply.text(record.second_text, sizeof record.second_text, offsetof(wire::module_message, second_text),
               sizeof(wire::module_message::second_text));
    return record;
}

} // namespace

int libchassisd_get_module_number(uint32_t *count) noexcept
{
    *count = 0;
    const frame::outcome got = frame::run<wire::module_message>(
        module_list, frame::local(), nullptr,
        [](wire::module_message &request) {
            request.code = wire::module_number;
            request.data_kind = wire::module_data_number;
        },
        [=](frame::reply_view &reply) { *count = reply.u32(offsetof(wire::module_message, value)); });
    return got.ok() ? 0 : -1;
}

int libchassisd_get_module_info(uint32_t *record, uint32_t index) noexcept
{
    if (record == nullptr)
        return -1;
    const frame::outcome got = frame::run<wire::module_message>(
        module_list, frame::local(), nullptr,
        [=](wire::module_message &request) {
            request.code = wire::module_info;
            request.data_kind = wire::module_data_info;
            request.value = index;
        },
        [=](frame::reply_view &reply) {
            const module_record filled = record_of(reply);
            std::memcpy(record, &filled, sizeof filled);
        });
    if (got.ok())
        return 0;
    return got.had_buffers() ? -2 : -1;
}

uint32_t libchassisd_get_module_plat_id(uint16_t slot) noexcept
{
    uint32_t platform_id = 0;
    const frame::outcome got = ask_slot(module_by_slot, frame::local(), slot, [&](frame::reply_view &reply) {
        platform_id = reply.u32(offsetof(wire::module_message, platform_id));
    });
    return got.ok() ? platform_id : 0;
}

int libchassisd_get_module_slot_state(uint16_t slot, uint32_t *state) noexcept
{
    const frame::outcome got = ask_slot(module_by_slot, frame::local(), slot, [=](frame::reply_view &reply) {
        *state = reply.u32(offsetof(wire::module_message, kind));
    });
    return got.ok() ? 0 : -1;
}

int libchassisd_get_module_fru_entry(uint16_t slot, void *out, int len) noexcept
{
    if (out == nullptr)
        return -1;
    const auto size = static_cast<uint32_t>(std::clamp(len, 0, static_cast<int>(wire::module_fru_size)));
    const frame::outcome got =
        ask_slot(module_fru, frame::in_slot(tq_get_mcp_slot()), slot, [=](frame::reply_view &reply) {
            reply.copy(out, offsetof(wire::module_message, platform_id), size);
        });
    return got.ok() ? 0 : -1;
}
