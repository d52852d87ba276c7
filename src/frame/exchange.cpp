#include "frame/frame.h"

#include "platform/ipcmsg.h"

namespace mix::frame
{

uint32_t address_of(const target &where, uint32_t daemon)
{
    switch (where.how) {
    case target::kind::node:
        return mktipcid(where.value, where.instance, daemon);
    case target::kind::slot:
        return mktipcid_by_slot(where.value, daemon);
    case target::kind::address:
        return where.value;
    case target::kind::local:
        break;
    }
    return daemon;
}

static const text &text_of(const texts &say, stage at)
{
    static constexpr text none;
    switch (at) {
    case stage::no_request:
        return say.no_request;
    case stage::no_reply:
        return say.no_reply;
    case stage::not_sent:
        return say.not_sent;
    case stage::refused:
        return say.refused;
    case stage::bad_length:
        return say.bad_length;
    case stage::bad_count:
        return say.bad_count;
    case stage::done:
        break;
    }
    return none;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" /* the formats are the constants of the descriptions */
void report(const texts &say, const outcome &result, print_callback print, uint32_t expected)
{
    const text &told = text_of(say, result.at);
    if (print == nullptr || told.format == nullptr)
        return;
    switch (told.what) {
    case shows::nothing:
        print(told.format);
        break;
    case shows::function:
        print(told.format, say.function);
        break;
    case shows::send_result:
        print(told.format, result.sent);
        break;
    case shows::status:
        print(told.format, result.status);
        break;
    case shows::length:
        print(told.format, static_cast<int>(result.length));
        break;
    case shows::function_sent_status:
        print(told.format, say.function, result.sent, result.status);
        break;
    case shows::sent_status_length:
        print(told.format, result.sent, result.status, static_cast<int>(result.length));
        break;
    case shows::function_sent_status_length:
        print(told.format, say.function, result.sent, result.status, static_cast<int>(result.length));
        break;
    case shows::length_and_expected:
        print(told.format, static_cast<int>(result.length), static_cast<int>(expected));
        break;
    }
}
#pragma GCC diagnostic pop

static uint8_t *allocate_cleared(uint32_t size)
{
    void *buffer = ipcmsg_alloc(size);
    if (buffer != nullptr)
        std::memset(buffer, 0, size);
    return static_cast<uint8_t *>(buffer);
}

outcome acquire(const exchange &what, const target &where, print_callback print, buffers &owned)
{
    outcome result{.length = what.reply_capacity};
    uint32_t room = std::max(what.request_size, what.request_room);
    if (what.reply_in_request)
        room = std::max(room, what.reply_capacity);
    owned.request = allocate_cleared(room);
    if (owned.request == nullptr) {
        result.at = stage::no_request;
    } else if (!what.reply_in_request) {
        owned.reply = static_cast<uint8_t *>(ipcmsg_alloc(what.reply_capacity));
        if (owned.reply == nullptr)
            result.at = stage::no_reply;
        else if (what.zero_reply)
            std::memset(owned.reply, 0, what.reply_capacity);
    }
    if (!result.ok()) {
        release(owned);
        report(what.say, result, print);
        return result;
    }
    owned.destination = address_of(where, what.daemon);
    return result;
}

void release(buffers &owned)
{
    if (owned.request != nullptr)
        ipcmsg_free(std::exchange(owned.request, nullptr));
    if (owned.reply != nullptr)
        ipcmsg_free(std::exchange(owned.reply, nullptr));
}

static bool is_refused(refused_when rule, int32_t status)
{
    switch (rule) {
    case refused_when::status_negative:
        return status < 0;
    case refused_when::status_not_zero:
        return status != 0;
    case refused_when::never:
        break;
    }
    return false;
}

static bool is_length_wrong(const exchange &what, uint32_t length, uint32_t capacity)
{
    switch (what.length) {
    case length_rule::exactly:
        return length != what.length_value;
    case length_rule::at_least:
        return length < what.length_value || length > capacity;
    case length_rule::reaches:
        return length < what.length_value;
    case length_rule::any:
        break;
    }
    return false;
}

outcome transact(const exchange &what, uint32_t destination, const void *request, uint32_t request_size,
                 void *reply, uint32_t capacity, print_callback print)
{
    outcome result{.length = capacity};
    const auto send =
        what.call == send_call::send_and_recv ? ipcmsg_send_and_recv : ipcmsg_send_and_recv_timeout;
    result.sent = send(destination, 0, what.type, request, request_size, &result.status, reply,
                       &result.length, what.timeout_ms);
    if (result.sent < 0)
        result.at = stage::not_sent;
    else if (is_refused(what.refusal, result.status))
        result.at = stage::refused;
    else if (is_length_wrong(what, result.length, capacity))
        result.at = stage::bad_length;
    report(what.say, result, print);
    return result;
}

uint8_t *acquire_notice(const notice &what, print_callback print)
{
    uint8_t *request = allocate_cleared(what.request_size);
    if (request == nullptr)
        report(what.say, {.at = stage::no_request}, print);
    return request;
}

void release_notice(uint8_t *request)
{
    ipcmsg_free(request);
}

outcome send_notice(const notice &what, uint32_t destination, const void *request)
{
    outcome result;
    if (what.timed)
        result.sent =
            ipcmsg_send_timeout(destination, 0, what.type, request, what.request_size, what.timeout_ms);
    else
        result.sent = ipcmsg_send(destination, 0, what.type, request, what.request_size);
    if (result.sent < 0)
        result.at = stage::not_sent;
    return result;
}

} // namespace mix::frame
