/* Requests to the virtual-chassis manager. */
#include <libmix/vchassisd.h>

#include <iterator>

#include "frame/frame.h"
#include "platform/board.h"
#include "sys/vchassisd_wire.h"

namespace
{

using namespace mix;

enum result : int { done = 0, refused = -1, no_buffer = -2, no_pointer = -3, failed = -4 };

int result_of(const frame::outcome &got)
{
    switch (got.at) {
    case frame::stage::done:
        return done;
    case frame::stage::refused:
        return refused;
    case frame::stage::no_request:
    case frame::stage::no_reply:
        return no_buffer;
    default:
        return failed;
    }
}

struct no_data {
};

constexpr frame::exchange within(uint32_t timeout_ms)
{
    return {
        .daemon = wire::vchassis_manager,
        .type = wire::vchassis_type,
        .timeout_ms = timeout_ms,
        .call = frame::send_call::send_and_recv_timeout,
        .request_size = wire::vchassis_exchange_size,
        .reply_capacity = wire::vchassis_exchange_size,
        .reply_in_request = true,
    };
}

constexpr frame::exchange within_2s = within(2000);
constexpr frame::exchange within_3s = within(3000);

constexpr frame::notice untimed{
    .daemon = wire::vchassis_manager,
    .type = wire::vchassis_type,
    .request_size = wire::vchassis_notice_size,
};
constexpr frame::notice timed{
    .daemon = wire::vchassis_manager,
    .type = wire::vchassis_type,
    .timed = true,
    .timeout_ms = 500,
    .request_size = wire::vchassis_notice_size,
};

/* The instance on the master main control board. */
frame::target master()
{
    return frame::at_node(tq_get_mcp_slot() + 1, 0);
}

/* Where the text of a refusal goes. */
struct error_place {
    char *text = nullptr;
    int length = 0;

    void take(const frame::reply_view &reply) const
    {
        if (text != nullptr && length > 0)
            reply.text(text, static_cast<uint32_t>(length), 0);
    }
};

constexpr int error_text_size = 256;

/* fill(Data &) gets the command's data. */
template <class Data, class Fill, class Deliver>
int ask(const frame::exchange &what, const frame::target &where, uint32_t code, Fill &&fill,
        Deliver &&deliver, const error_place &error = {})
{
    using request_record = wire::vchassis_request<Data>;
    return result_of(frame::run<request_record>(
        what, where, nullptr,
        [&](request_record &request) {
            request.header.code = code;
            fill(request.data);
        },
        deliver, [&](frame::reply_view &reply) { error.take(reply); }));
}

template <class Data, class Fill>
int tell(const frame::notice &what, const frame::target &where, uint32_t code, Fill &&fill)
{
    using request_record = wire::vchassis_notice<Data>;
    return result_of(frame::notify<request_record>(what, where, nullptr, [&](request_record &request) {
        request.header.code = code;
        fill(request.data);
    }));
}

int tell_address(wire::vchassis_code code, uint16_t a, uint32_t b, uint32_t c, const char *text)
{
    if (text == nullptr)
        return -1;
    return tell<wire::vchassis_address_data>(untimed, frame::local(), code,
                                             [=](wire::vchassis_address_data &data) {
                                                 data.a = a;
                                                 data.b = b;
                                                 data.c = c;
                                                 frame::put_name(data.text, text);
                                                 data.length = static_cast<uint16_t>(std::strlen(data.text));
                                             });
}

constexpr size_t vm_id_most = 37;

/* 8-4-4-4-12, whatever the hyphens and spaces of the input. */
void put_vm_id(char (&out)[256], const char *vm_id)
{
    size_t length = 0;
    for (; *vm_id != '\0' && length < vm_id_most; vm_id++) {
        if (*vm_id == ' ' || *vm_id == '-')
            continue;
        if (length == 8 || length == 13 || length == 18 || length == 23)
            out[length++] = '-';
        out[length++] = *vm_id;
    }
}

constexpr uint32_t host_flavours[] = {2, 4, 8};

} // namespace

int libvchassisd_vm_oper_request(const uint64_t op[2], char *err, int errlen) noexcept
{
    if (op == nullptr)
        return no_pointer;
    return ask<wire::vchassis_vm_oper_data>(
        within_3s, frame::local(), wire::vchassis_vm_oper,
        [=](wire::vchassis_vm_oper_data &data) { std::memcpy(data.operation, op, sizeof data.operation); },
        frame::nothing_to_deliver, {err, errlen});
}

int libvchassisd_set_metadata(const char *key, int, const char *value, int, uint32_t number, char *err,
                              int errlen) noexcept
{
    if (key == nullptr || value == nullptr)
        return no_pointer;
    return ask<wire::vchassis_metadata_data>(within_2s, frame::local(), wire::vchassis_set_metadata,
                                             [=](wire::vchassis_metadata_data &data) {
                                                 frame::put_name(data.key, key);
                                                 frame::put_name(data.value, value);
                                                 data.number = number;
                                             },
                                             frame::nothing_to_deliver, {err, errlen});
}

int libvchassisd_get_metadata(const char *key, int, char *out, int outlen, uint32_t number, char *err,
                              int errlen) noexcept
{
    if (key == nullptr || out == nullptr)
        return no_pointer;
    return ask<wire::vchassis_metadata_data>(
        within_2s, frame::local(), wire::vchassis_get_metadata,
        [=](wire::vchassis_metadata_data &data) {
            frame::put_name(data.key, key);
            data.number = number;
        },
        [=](frame::reply_view &reply) {
            if (outlen > 0)
                reply.text(out, static_cast<uint32_t>(outlen), 0);
        },
        {err, errlen});
}

int libvchassisd_get_slot_host_cpu_num(uint16_t slot, uint32_t out[3]) noexcept
{
    if (out == nullptr)
        return no_pointer;
    return ask<wire::vchassis_slot_data>(
        within_2s, frame::local(), wire::vchassis_host_cpu_num,
        [=](wire::vchassis_slot_data &data) { data.slot = slot; },
        [=](frame::reply_view &reply) {
            const uint32_t flavour = reply.u32(offsetof(wire::vchassis_host_cpu_reply, flavour));
            const uint32_t count = reply.u32(offsetof(wire::vchassis_host_cpu_reply, count));
            for (size_t i = 0; i < std::size(host_flavours); i++)
                out[i] = host_flavours[i] == flavour ? count : 0;
        });
}

int libvchassisd_get_tenant_vm_ip(const char *vm_id, uint8_t out[44]) noexcept
{
    if (out == nullptr)
        return no_pointer;
    return ask<wire::vchassis_text_data>(
        within_3s, master(), wire::vchassis_tenant_vm_ip,
        [=](wire::vchassis_text_data &data) {
            if (vm_id != nullptr)
                put_vm_id(data.text, vm_id);
        },
        [=](frame::reply_view &reply) { reply.copy(out, 0, wire::vchassis_tenant_vm_size); });
}

int libvchassisd_exec_clear_mac2host(uint32_t code, const char *text, char err[256]) noexcept
{
    return ask<wire::vchassis_text_data>(
        within_3s, frame::local(), code,
        [=](wire::vchassis_text_data &data) { frame::put_name(data.text, text); }, frame::nothing_to_deliver,
        {err, error_text_size});
}

int libvchassisd_exec_reset_vsom_password(char err[256]) noexcept
{
    return ask<no_data>(within_3s, frame::local(), wire::vchassis_reset_vsom_password, frame::nothing_to_fill,
                        frame::nothing_to_deliver, {err, error_text_size});
}

int libvchassisd_addr_get_info(uint32_t count, void *entries) noexcept
{
    const uint64_t size = uint64_t{count} * wire::vchassis_addr_entry_size;
    if (entries == nullptr || wire::vchassis_addr_info_overhead + size > wire::vchassis_addr_info_limit)
        return no_pointer;
    const auto bytes = static_cast<uint32_t>(size);
    frame::exchange what = within_3s;
    what.request_size = what.reply_capacity = wire::vchassis_addr_info_overhead + bytes;
    struct [[gnu::packed]] request_head {
        wire::vchassis_header header;
        wire::vchassis_addr_info_data data;
    };
    return result_of(frame::run<request_head>(
        what, frame::local(), nullptr,
        [=](request_head &request) {
            request.header.code = wire::vchassis_addr_info;
            request.data.count = count;
            std::memcpy(&request + 1, entries, bytes);
        },
        [=](frame::reply_view &reply) { reply.copy(entries, 0, bytes); }));
}

int libvchassisd_addr_get_max_vm_count_per_time(void) noexcept
{
    return (wire::vchassis_addr_info_limit - wire::vchassis_addr_info_overhead) /
           wire::vchassis_addr_entry_size;
}

int libvchassisd_get_service_mode(uint16_t *mode) noexcept
{
    if (mode == nullptr)
        return no_pointer;
    return ask<no_data>(within_2s, master(), wire::vchassis_service_mode, frame::nothing_to_fill,
                        [=](frame::reply_view &reply) { *mode = reply.u16(0); });
}

int libvchassisd_notify_slot_state(uint16_t slot, uint32_t state) noexcept
{
    return ask<wire::vchassis_slot_data>(
        within_2s, frame::local(), wire::vchassis_slot_state,
        [=](wire::vchassis_slot_data &data) {
            data.slot = slot;
            data.state = state;
        },
        frame::nothing_to_deliver);
}

int libvchassisd_register_address(uint16_t a, uint32_t b, uint32_t c, const char *text) noexcept
{
    return tell_address(wire::vchassis_register_address, a, b, c, text);
}

int libvchassisd_unregister_address(uint16_t a, uint32_t b, uint32_t c, const char *text) noexcept
{
    return tell_address(wire::vchassis_unregister_address, a, b, c, text);
}

int libvchassisd_show_addr_debug(uint16_t value) noexcept
{
    return tell<wire::vchassis_word_data>(untimed, frame::local(), wire::vchassis_addr_debug,
                                          [=](wire::vchassis_word_data &data) { data.value = value; });
}

int libvchassisd_notify_slot_disk_state(uint16_t slot, uint32_t state) noexcept
{
    return tell<wire::vchassis_slot_data>(timed, master(), wire::vchassis_slot_disk_state,
                                          [=](wire::vchassis_slot_data &data) {
                                              data.slot = slot;
                                              data.state = state;
                                          });
}

int libvchassisd_notify_master_vscm_crash(void) noexcept
{
    return tell<no_data>(timed, master(), wire::vchassis_master_crash, frame::nothing_to_fill);
}

int libvchassisd_exec_vesa(void) noexcept
{
    return 0;
}

int libvchassisd_get_vchassis_status(void) noexcept
{
    return 0;
}
