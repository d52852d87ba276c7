/* Port drivers: messages in the caller's buffer, port queries, bridge statistics, control requests. */
#include <libmix/drv.h>

#include <cstddef>

#include "frame/frame.h"
#include "platform/board.h"
#include "platform/services.h"
#include "sys/drv_route.h"
#include "sys/drv_wire.h"

namespace
{

using namespace mix;
using sys::chassis_step;
using sys::route_cpu;
using sys::route_rule;

/* --- where each function's requests go --- */

constexpr route_rule stats_route{.direct_on_system_type = true,
                                 .direct = route_cpu::of_request,
                                 .switch_module = route_cpu::first,
                                 .other_slot = route_cpu::of_request,
                                 .chassis = chassis_step::by_platform_type};
constexpr route_rule stats_by_cpu_route{.direct = route_cpu::of_request,
                                        .switch_module = route_cpu::of_request,
                                        .other_slot = route_cpu::of_request};
constexpr route_rule eye_route{.direct = route_cpu::of_request};
constexpr route_rule bridge_route{.direct_on_system_type = true};
constexpr route_rule ioctl_route{.direct_on_system_type = true, .direct_on_numa = true};

/* --- messages in the caller's buffer --- */

/* The fields that every message of a port has. */
struct port_message {
    uint32_t code;
    uint32_t flag;
    uint16_t slot, cpu, index, port;
};

wire::drv_head &init_message(void *buf, const port_message &with)
{
    std::memset(buf, 0, wire::drv_message_size);
    auto &head = *static_cast<wire::drv_head *>(buf);
    head.code = with.code;
    head.flag = with.flag;
    head.slot = with.slot;
    head.cpu = with.cpu;
    head.index = with.index;
    head.port = with.port;
    return head;
}

void init_message(void *buf, const port_message &with, uint8_t a, uint8_t b)
{
    wire::drv_head &head = init_message(buf, with);
    head.option_a = a;
    head.option_b = b;
}

constexpr frame::exchange port_exchange{
    .type = wire::drv_type, .timeout_ms = 10000, .call = frame::send_call::send_and_recv_timeout};

constexpr uint32_t smallest_message = offsetof(wire::drv_head, zero);

/* Sends the caller's message; the reply overwrites it, all but the slot. before: the head as it was. */
frame::outcome exchange_message(void *buf, uint32_t len, const sys::route &way, const wire::drv_head &before)
{
    auto &head = *static_cast<wire::drv_head *>(buf);
    head.slot = way.slot;
    const frame::outcome got = frame::transact(port_exchange, way.destination, buf, len, buf, len, nullptr);
    head.slot = before.slot;
    return got;
}

wire::drv_head head_of(const void *buf)
{
    wire::drv_head head{};
    std::memcpy(&head, buf, smallest_message);
    return head;
}

int get_stats(const route_rule &rule, void *buf, uint32_t len)
{
    if (buf == nullptr || len < smallest_message)
        return -1;
    const wire::drv_head asked = head_of(buf);
    const frame::outcome got = exchange_message(buf, len, route_request(rule, asked.slot, asked.cpu), asked);
    if (got.at == frame::stage::refused)
        console_print("Error: Failed to get statistic of slot %d index %d port %d\n", asked.slot, asked.index,
                      asked.port);
    return got.ok() ? 0 : -1;
}

/* --- queries --- */

constexpr frame::exchange query{
    .daemon = wire::drv_daemon,
    .type = wire::drv_type,
    .timeout_ms = 2000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = wire::drv_query_size,
    .reply_capacity = wire::drv_query_size,
    .reply_in_request = true,
};

constexpr frame::exchange port_info = [] {
    frame::exchange what = query;
    what.call = frame::send_call::send_and_recv;
    const frame::text failure{"%s: ipc error rc %d, ret %d\n", frame::shows::function_sent_status};
    what.say = {.function = "drv_get_port_info",
                .no_request = {"%s: ipcmsg_alloc error.\n", frame::shows::function},
                .not_sent = failure,
                .refused = failure};
    return what;
}();

constexpr frame::exchange port_maxnum = [] {
    frame::exchange what = query;
    what.say = {
        .no_request = {"ipcmsg_alloc error.\n"}, .not_sent = {"ipc error.\n"}, .refused = {"ipc error.\n"}};
    return what;
}();

constexpr frame::exchange port_validity = [] {
    frame::exchange what = query;
    const frame::text failure{"%s ipc error rc %d ret %d.\n", frame::shows::function_sent_status};
    what.say = {.function = "drv_is_port_vaild",
                .no_request = {"ipcmsg_alloc error.\n"},
                .not_sent = failure,
                .refused = failure};
    return what;
}();

constexpr frame::exchange bridge_stats = [] {
    frame::exchange what = query;
    what.request_size = what.reply_capacity = wire::drv_bridge_size;
    return what;
}();

constexpr frame::exchange dp_info = [] {
    frame::exchange what = query;
    what.daemon = wire::drv_main;
    what.timeout_ms = 5000;
    what.request_size = what.reply_capacity = wire::drv_message_size;
    return what;
}();

/* Queries whose missing buffer gives -1 and whose failed exchange gives 0. */
int counted(const frame::outcome &got, uint32_t answer)
{
    if (got.ok())
        return static_cast<int>(answer);
    return got.had_buffers() ? 0 : -1;
}

/* --- control requests --- */

struct control {
    uint32_t command;
    uint32_t size;        /* of its data */
    bool answers = false; /* the data of the reply is the caller's */
};

constexpr control device_controls[] = {{62, 4},  {64, 4},  {68, 4},  {66, 12},
                                       {69, 12}, {70, 12}, {77, 12}, {78, 12}};
constexpr control interface_controls[] = {{1, 4, true}, {12, wire::drv_message_size}};

template <size_t Size>
const control *find(const control (&table)[Size], uint32_t command)
{
    for (const control &each : table)
        if (each.command == command)
            return &each;
    return nullptr;
}

int run_control(const control *what, wire::drv_ioctl_head head, void *data)
{
    if (what == nullptr || data == nullptr)
        return -1;
    const sys::route way = route_request(ioctl_route, head.slot, 0);
    head.slot = way.slot;
    head.command = what->command;
    head.length = what->size;
    frame::exchange request = query;
    request.request_size = request.reply_capacity = static_cast<uint32_t>(sizeof head) + what->size;
    const frame::outcome got = frame::run<wire::drv_ioctl_head>(
        request, frame::at_address(way.destination), nullptr,
        [&](wire::drv_ioctl_head &record) {
            record = head;
            std::memcpy(&record + 1, data, what->size);
        },
        [&](frame::reply_view &reply) {
            if (what->answers)
                reply.copy(data, sizeof head, what->size);
        });
    return got.ok() ? 0 : -1;
}

} // namespace

void drv_port_stats_msg_init(void *buf, uint16_t slot, uint16_t cpu, uint16_t port, uint8_t a,
                             uint8_t b) noexcept
{
    init_message(buf, {wire::drv_port_stats, 0, slot, cpu, 0, port}, a, b);
}

void drv_unit_port_stats_msg_init(void *buf, uint16_t slot, uint16_t cpu, uint16_t index, uint16_t port,
                                  uint8_t a, uint8_t b) noexcept
{
    init_message(buf, {wire::drv_port_stats, 1, slot, cpu, index, port}, a, b);
}

void drv_port_stats_msg_init_eye(void *buf, uint16_t slot, uint16_t cpu, uint16_t index, uint16_t port,
                                 uint8_t a, uint8_t b) noexcept
{
    init_message(buf, {wire::drv_eye, 0, slot, cpu, index, port}, a, b);
}

void drv_port_stats_msg_init_serdes(void *buf, uint16_t slot, uint16_t cpu, uint16_t index, uint16_t port,
                                    const uint8_t rec[7]) noexcept
{
    init_message(buf, {wire::drv_eye, 0, slot, cpu, index, port});
    std::memcpy(static_cast<uint8_t *>(buf) + wire::drv_data, rec, wire::drv_serdes_size);
}

void drv_port_stats_msg_init_px_config(void *buf, uint16_t slot, uint16_t cpu, uint16_t index, uint16_t port,
                                       uint8_t a, uint8_t b) noexcept
{
    init_message(buf, {wire::drv_px_config, 0, slot, cpu, index, port}, a, b);
}

void drv_port_stats_msg_init_set_px_config(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                           uint16_t port, uint8_t a, uint8_t b) noexcept
{
    init_message(buf, {wire::drv_set_px_config, 0, slot, cpu, index, port}, a, b);
}

void drv_get_port_drv_info_msg_init(void *buf, uint16_t slot, uint16_t port, uint8_t a) noexcept
{
    init_message(buf, {wire::drv_port_drv_info, 0, slot, 0, 0, port}, a, 0);
}

int drv_get_port_stats(void *buf, uint32_t len) noexcept
{
    return get_stats(stats_route, buf, len);
}

int drv_get_port_stats_with_cpuindex(void *buf, uint32_t len) noexcept
{
    return get_stats(stats_by_cpu_route, buf, len);
}

int drv_get_port_eye_stats(void *buf, uint32_t len) noexcept
{
    if (buf == nullptr || len < smallest_message)
        return -1;
    const wire::drv_head asked = head_of(buf);
    const sys::route way = route_request(eye_route, asked.slot, asked.cpu);
    static_cast<wire::drv_head *>(buf)->slot = way.slot;
    const frame::notice what{.type = wire::drv_type, .request_size = len};
    return frame::send_notice(what, way.destination, buf).ok() ? 0 : -1;
}

int drv_get_port_drv_info(void *buf, uint32_t len) noexcept
{
    if (buf == nullptr || len < smallest_message)
        return -1;
    const wire::drv_head asked = head_of(buf);
    const frame::outcome got = exchange_message(buf, len, {wire::drv_daemon, asked.slot}, asked);
    if (got.at == frame::stage::refused)
        console_print("Error: Failed to get drv info of slot %d port %d\n", asked.slot, asked.port);
    return got.ok() ? 0 : -1;
}

int drv_get_port_info(uint16_t slot, uint16_t port, uint64_t out[5]) noexcept
{
    const frame::outcome got = frame::run<wire::drv_head>(
        port_info, frame::local(), console_print,
        [=](wire::drv_head &request) {
            request.code = wire::drv_port_info;
            request.flag = 1;
            request.slot = slot;
            request.port = port;
        },
        [=](frame::reply_view &reply) { reply.copy(out, wire::drv_data, wire::drv_port_info_size); });
    return got.had_buffers() ? got.sent : -1; /* not negative for a refusal either, on purpose */
}

int drv_get_cpu_index_though_eth_port(uint16_t slot, uint16_t port, uint32_t *cpu_index) noexcept
{
    if (cpu_index == nullptr)
        return -1;
    uint64_t record[5] = {};
    const int result = drv_get_port_info(slot, port, record);
    *cpu_index = static_cast<uint32_t>(record[0] >> 32);
    return result;
}

int drv_get_port_maxnum(uint16_t slot) noexcept
{
    uint32_t ports = 0;
    const frame::outcome got = frame::run<wire::drv_head>(
        port_maxnum, frame::local(), console_print,
        [=](wire::drv_head &request) {
            request.code = wire::drv_port_maxnum;
            request.slot = slot;
        },
        [&](frame::reply_view &reply) { ports = reply.u16(offsetof(wire::drv_head, port)); });
    return counted(got, ports);
}

int is_port_valid(uint16_t slot, int port) noexcept
{
    return port < drv_get_port_maxnum(slot) ? 1 : 0;
}

int drv_is_port_vaild(uint16_t slot, uint16_t a, uint16_t b, uint32_t flag) noexcept
{
    uint32_t answer = 0;
    const frame::outcome got = frame::run<wire::drv_head>(
        port_validity, frame::local(), console_print,
        [=](wire::drv_head &request) {
            request.code = wire::drv_port_valid;
            request.flag = flag != 0 ? 1 : 0;
            request.slot = slot;
            request.index = a;
            request.port = b;
        },
        [&](frame::reply_view &reply) { answer = reply.u32(wire::drv_data); });
    return counted(got, answer);
}

int drv_get_bridge_stats(void **out, uint16_t slot, uint16_t index, uint8_t option) noexcept
{
    const sys::route way = route_request(bridge_route, slot, 0);
    const frame::outcome got = frame::run<wire::drv_head>(
        bridge_stats, frame::at_address(way.destination), nullptr,
        [=](wire::drv_head &request) {
            request.code = wire::drv_bridge_stats;
            request.slot = way.slot;
            request.index = index;
            request.option_b = option;
        },
        [=](frame::reply_view &reply) { *out = reply.keep(); });
    return got.ok() ? 0 : -1;
}

int drv_dp_get_port_drv_info(uint16_t a, uint16_t b, uint32_t c, uint64_t out[11]) noexcept
{
    const frame::outcome got = frame::run<wire::drv_dp_request>(
        dp_info, frame::local(), nullptr,
        [=](wire::drv_dp_request &request) {
            request.code = wire::drv_dp_drv_info;
            request.a = a;
            request.b = b;
            request.c = c;
        },
        [=](frame::reply_view &reply) { reply.copy(out, wire::drv_data, wire::drv_dp_info_size); });
    /* Not this line's number, on purpose: the whole text is fixed. */
    if (got.at == frame::stage::no_request)
        tq_clog("%s:%d ipc malloc error\n", "drv_dp_get_port_drv_info", 746);
    return got.ok() ? 0 : -1;
}

int drv_dp_get_port_drv_name(uint16_t a, uint16_t b, char *out, int len) noexcept
{
    uint64_t record[11];
    const int result = drv_dp_get_port_drv_info(a, b, 0xffffffff, record);
    if (len <= 0)
        return result;
    if (result != 0)
        std::memset(out, 0, static_cast<size_t>(len));
    else
        frame::reply_view(reinterpret_cast<uint8_t *>(record), sizeof record)
            .text(out, static_cast<uint32_t>(len), wire::drv_dp_name);
    return result;
}

int remote_dev_ioctl(uint16_t slot, uint16_t second, uint32_t command, void *data) noexcept
{
    return run_control(find(device_controls, command),
                       {.code = wire::drv_dev_ioctl, .slot = slot, .device = second}, data);
}

int remote_hwif_ioctl(uint16_t slot, uint16_t second, uint32_t command, void *data) noexcept
{
    return run_control(find(interface_controls, command),
                       {.code = wire::drv_hwif_ioctl, .slot = slot, .interface = second}, data);
}
