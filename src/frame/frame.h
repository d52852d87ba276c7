/*
 * The daemon request frame: the one place that owns request and reply buffers. A client function is a
 * constant description of its exchange, a step that fills the request and a step that delivers the reply.
 *
 * Everything a description leaves at its default is the commonest behaviour; what differs between the
 * families is a field here, never another loop.
 */
#ifndef MIX_FRAME_FRAME_H
#define MIX_FRAME_FRAME_H

#include <libmix/mix_base.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "frame/record.h"
#include "frame/reply.h"
#include "frame/texts.h"

namespace mix::frame
{

/* Where a request goes; combined with the description's daemon number once the buffers are there. */
struct target {
    enum class kind : uint8_t { local, node, slot, address };
    kind how = kind::local;
    uint16_t instance = 0;
    uint32_t value = 0;
};

/* The daemon of this board. */
constexpr target local()
{
    return {};
}
/* mktipcid, also for node 0. */
constexpr target at_node(uint32_t node, uint16_t instance)
{
    return {target::kind::node, instance, node};
}
/* As the families with a node argument have it: node 0 means this board; the instance's low 16 bits count. */
constexpr target node_or_local(uint32_t node, uint32_t instance)
{
    return node == 0 ? local() : at_node(node, static_cast<uint16_t>(instance));
}
/* Instance 0 of the board in that slot. */
constexpr target in_slot(uint32_t slot)
{
    return {target::kind::slot, 0, slot};
}
/* A finished address. */
constexpr target at_address(uint32_t address)
{
    return {target::kind::address, 0, address};
}

/* How far an exchange came. Everything but done is a failure, in the order of the checks. */
enum class stage : uint8_t { done, no_request, no_reply, not_sent, refused, bad_length, bad_count };

struct [[nodiscard]] outcome {
    stage at = stage::done;
    int32_t sent = 0;    /* result of the send call */
    int32_t status = 0;  /* what the daemon answered */
    uint32_t length = 0; /* received length; the capacity until something was received */

    [[nodiscard]] bool ok() const { return at == stage::done; }
    [[nodiscard]] bool had_buffers() const { return at != stage::no_request && at != stage::no_reply; }
    [[nodiscard]] int32_t status_or(int32_t failure) const { return ok() ? status : failure; }
    /* Where a missing buffer gives another result than a failed exchange. */
    [[nodiscard]] int32_t status_or(int32_t failure, int32_t no_buffer) const
    {
        return had_buffers() ? status_or(failure) : no_buffer;
    }
};

enum class send_call : uint8_t { send_and_recv, send_and_recv_timeout };
enum class refused_when : uint8_t { status_negative, status_not_zero, never };
enum class length_rule : uint8_t {
    any,
    exactly,
    at_least, /* and no more than the capacity */
    reaches   /* at least, however much the daemon sent; the surplus was dropped */
};

/* One request and its reply. */
struct exchange {
    uint32_t daemon = 0;
    uint32_t type = 0;
    uint32_t timeout_ms = 500;
    send_call call = send_call::send_and_recv;
    uint32_t request_size = 0;     /* bytes sent */
    uint32_t request_room = 0;     /* bytes allocated for the request when that is more than is sent */
    uint32_t reply_capacity = 4;   /* 4: a reply of which only the status counts */
    bool reply_in_request = false; /* the reply comes back into the request's buffer */
    bool zero_reply = false;       /* the reply buffer is cleared before the exchange */
    refused_when refusal = refused_when::status_negative;
    length_rule length = length_rule::any;
    uint32_t length_value = 0; /* for every rule but any */
    texts say = {};
};

/* A message that wants no answer. */
struct notice {
    uint32_t daemon = 0;
    uint32_t type = 0;
    bool timed = false; /* ipcmsg_send_timeout with timeout_ms; else ipcmsg_send */
    uint32_t timeout_ms = 0;
    uint32_t request_size = 0;
    texts say = {};
};

/* The buffers of one exchange. release() frees them, once each; keep() hands the reply to the caller. */
struct buffers {
    uint8_t *request = nullptr;
    uint8_t *reply = nullptr;
    uint32_t destination = 0;
};

uint32_t address_of(const target &where, uint32_t daemon);

/* Allocates and clears, then resolves the destination. On failure nothing is left allocated. */
outcome acquire(const exchange &what, const target &where, print_callback print, buffers &owned);
void release(buffers &owned);

/* Sends a request that the caller owns and checks the reply: send result, status, length. */
outcome transact(const exchange &what, uint32_t destination, const void *request, uint32_t request_size,
                 void *reply, uint32_t capacity, print_callback print);

/* Tells the print callback what an outcome means; silent for a stage without a text. */
void report(const texts &say, const outcome &result, print_callback print, uint32_t expected = 0);

inline constexpr auto nothing_to_fill = [](auto &) {};
inline constexpr auto nothing_to_deliver = [](reply_view &) {};

/*
 * Allocate, fill, send, check, deliver, free. fill(Record &) gets a cleared record of request_size bytes at
 * least; deliver(reply_view &) is called on success only, refused(reply_view &) when the daemon refused, for
 * families whose refusals carry a text.
 */
template <class Record, class Fill, class Deliver, class Refused = decltype(nothing_to_deliver)>
outcome run(const exchange &what, const target &where, print_callback print, Fill &&fill, Deliver &&deliver,
            Refused &&refused = Refused(nothing_to_deliver))
{
    static_assert(alignof(Record) == 1, "records are packed");
    buffers owned;
    outcome result = acquire(what, where, print, owned);
    if (!result.ok())
        return result;
    fill(*reinterpret_cast<Record *>(owned.request));
    uint8_t *into = what.reply_in_request ? owned.request : owned.reply;
    result =
        transact(what, owned.destination, owned.request, what.request_size, into, what.reply_capacity, print);
    reply_view reply(into, std::min(result.length, what.reply_capacity));
    if (result.ok())
        deliver(reply);
    else if (result.at == stage::refused)
        refused(reply);
    if (reply.kept()) {
        /* Its new owner may not know how much arrived: what did not is zero. */
        std::memset(into + reply.received(), 0, what.reply_capacity - reply.received());
        (what.reply_in_request ? owned.request : owned.reply) = nullptr;
    }
    release(owned);
    return result;
}

template <class Record, class Fill>
outcome run(const exchange &what, const target &where, print_callback print, Fill &&fill)
{
    return run<Record>(what, where, print, std::forward<Fill>(fill), nothing_to_deliver);
}

outcome send_notice(const notice &what, uint32_t destination, const void *request);
uint8_t *acquire_notice(const notice &what, print_callback print);
void release_notice(uint8_t *request);

/* Allocate, fill, send one way, free. Only the send result tells success. */
template <class Record, class Fill>
outcome notify(const notice &what, const target &where, print_callback print, Fill &&fill)
{
    static_assert(alignof(Record) == 1, "records are packed");
    uint8_t *request = acquire_notice(what, print);
    if (request == nullptr)
        return {.at = stage::no_request};
    fill(*reinterpret_cast<Record *>(request));
    const outcome result = send_notice(what, address_of(where, what.daemon), request);
    report(what.say, result, print);
    release_notice(request);
    return result;
}

} // namespace mix::frame

#endif
