/* Counters of the data-plane processors. */
#include <libmix/drv.h>

#include "frame/frame.h"
#include "platform/board.h"
#include "platform/services.h"
#include "sys/drv_wire.h"

namespace
{

using namespace mix;

constexpr frame::exchange counters{
    .daemon = wire::drv_main,
    .type = wire::counter_type,
    .timeout_ms = 2000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::counter_request),
    .reply_capacity = wire::counter_capacity,
};

constexpr frame::exchange dpdk_counters = [] {
    frame::exchange what = counters;
    what.reply_capacity = what.length_value = wire::counter_dpdk_size;
    what.length = frame::length_rule::exactly;
    return what;
}();

constexpr frame::notice drain{
    .daemon = wire::drv_main,
    .type = wire::counter_type,
    .request_size = sizeof(wire::counter_request),
};

/* The counters of this board's processors are the local daemon's. */
frame::target processor(uint32_t slot, uint32_t cpu)
{
    if (slot == 0 || slot == tq_get_slot())
        return frame::local();
    return frame::at_node(slot + 1, static_cast<uint16_t>(cpu));
}

int get_counters(const frame::exchange &what, void **out, uint32_t slot, uint32_t cpu, uint32_t which)
{
    const frame::outcome got = frame::run<wire::counter_request>(
        what, processor(slot, cpu), nullptr,
        [=](wire::counter_request &request) {
            request.code = wire::counter_show;
            request.which = which;
        },
        [=](frame::reply_view &reply) { *out = reply.keep(); });
    if (got.at == frame::stage::refused)
        console_print("Error: Failed to get slot %d cpu counter, ret = %d.\n", static_cast<int>(slot),
                      got.status);
    else if (got.at == frame::stage::bad_length)
        console_print("Error: Failed to get slot %d cpu counter, received len is %d\n",
                      static_cast<int>(slot), static_cast<int>(got.length));
    return got.ok() ? 0 : -1;
}

} // namespace

int drv_get_cpu_cntr(void **out, uint32_t slot, uint32_t cpu, uint32_t which) noexcept
{
    return get_counters(counters, out, slot, cpu, which);
}

int drv_get_dpdk_cpu_cntr(void **out, uint32_t slot, uint32_t cpu, uint32_t which) noexcept
{
    return get_counters(dpdk_counters, out, slot, cpu, which);
}

int drv_drain_pkt_buffer(uint32_t slot) noexcept
{
    const frame::outcome got = frame::notify<wire::counter_request>(
        drain, processor(slot, 0), nullptr, [](auto &request) { request.code = wire::counter_drain; });
    return got.ok() ? 0 : -1;
}
