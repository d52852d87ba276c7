#include "appliance/platform/transport.h"

#include <pthread.h>

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <new>

#include "appliance/platform/connection.h"
#include "appliance/platform/trace.h"

namespace mixplatform
{

using namespace mix::wire;

namespace
{

/* A thread's connections. When all are in use the one that was idle longest makes place. */
struct thread_state {
    connection connections[32];
    uint64_t messages = 0;
    explanation why;    /* of the last failure, without saying which message it was */
    explanation reason; /* the whole line */
    thread_state *next = nullptr;
    uint8_t room[datagram_room];
};

/*
 * All threads' states, so that a forked child can close what it inherited from every thread: a connection has
 * two ends, and a third holder would keep a daemon from seeing its client go.
 */
std::mutex states_lock;
thread_state *states = nullptr;

void close_all(thread_state &state)
{
    for (connection &each : state.connections)
        close_connection(each);
}

void forget(thread_state *state)
{
    const std::lock_guard hold(states_lock);
    for (thread_state **at = &states; *at != nullptr; at = &(*at)->next) {
        if (*at == state) {
            *at = state->next;
            break;
        }
    }
}

/* Frees a thread's state when the thread ends. */
struct owner {
    thread_state *state = nullptr;
    bool ended = false;
    ~owner()
    {
        ended = true;
        if (state == nullptr)
            return;
        forget(state);
        close_all(*state);
        delete state;
        state = nullptr;
    }
};
thread_local owner mine;

void before_fork()
{
    states_lock.lock();
}
void in_parent()
{
    states_lock.unlock();
}
void in_child()
{
    thread_state *kept = nullptr;
    for (thread_state *state = states; state != nullptr;) {
        thread_state *next = state->next;
        close_all(*state);
        if (state == mine.state) {
            kept = state;
            kept->next = nullptr;
        } else {
            delete state;
        }
        state = next;
    }
    states = kept;
    states_lock.unlock();
}

thread_state *new_state()
{
    static const int watching = pthread_atfork(before_fork, in_parent, in_child);
    auto *state = watching == 0 ? new (std::nothrow) thread_state : nullptr;
    if (state == nullptr)
        return nullptr;
    const std::lock_guard hold(states_lock);
    state->next = states;
    states = state;
    return state;
}

thread_state *this_thread()
{
    if (mine.state == nullptr && !mine.ended)
        mine.state = new_state();
    return mine.state;
}

/* The connection to that address, or the one that may be replaced by it. */
connection &connection_for(thread_state &state, uint32_t address)
{
    connection *oldest = &state.connections[0];
    for (connection &each : state.connections) {
        if (each.address == address && each.fd >= 0)
            return each;
        if (each.used < oldest->used)
            oldest = &each;
    }
    close_connection(*oldest);
    return *oldest;
}

/* Says which message the failure belongs to. */
void keep_reason(thread_state &state, const message &about)
{
    const address_parts to = split_address(about.destination);
    const auto type = static_cast<unsigned>(about.type);
    const unsigned daemon = to.daemon, instance = to.instance, node = to.node;
    const char *why = state.why.text();
    if (about.destination == no_address)
        state.reason.say("message type %u: %s", type, why);
    else if (node == 0 && instance == 0)
        state.reason.say("daemon %u, message type %u: %s", daemon, type, why);
    else
        state.reason.say("daemon %u of node %u, instance %u, message type %u: %s", daemon, node, instance,
                         type, why);
}

/*
 * Sends on a kept connection or on a new one. A kept one whose peer has gone meanwhile (a restart) shows
 * here, before anything could have been carried out, so that one new connection is tried.
 */
int32_t send_somehow(thread_state &state, connection &to, message_kind kind, const message &what,
                     const deadline &until)
{
    for (bool kept = to.fd >= 0;; kept = false) {
        if (!kept) {
            const int32_t opened = open_connection(to, what.destination, until, state.room, state.why);
            if (opened < 0)
                return opened;
        }
        to.used = ++state.messages;
        const auto header =
            make_header(kind, what.type, ++to.sequence, 0, static_cast<uint32_t>(what.payload.size()));
        const int32_t sent = send_message(to, header, what.payload, until, state.why);
        if (sent == 0)
            return 0;
        close_connection(to);
        if (!kept || (sent != -EPIPE && sent != -ECONNRESET && sent != -ENOTCONN))
            return sent;
        state.why.clear();
    }
}

int32_t receive(thread_state &state, connection &from, message_kind kind, const message &request,
                uint32_t timeout_ms, const deadline &until, reply &answer)
{
    message_header header;
    int32_t result =
        receive_answer(from, kind, from.sequence, timeout_ms, until, state.room, header, state.why);
    if (result == 0 && header.type != request.type) {
        state.why.say("the daemon answered for message type %u", static_cast<unsigned>(header.type));
        result = -EPROTO;
    }
    if (result < 0) {
        close_connection(from);
        return result;
    }
    answer.status = header.status;
    answer.payload = std::span(state.room).subspan(sizeof(header), header.length);
    if (answer.status < 0)
        state.why.say("the daemon answered with status %d", static_cast<int>(answer.status));
    return 0;
}

int32_t carry_out(thread_state &state, message_kind kind, const message &what, reply &answer)
{
    state.why.clear();
    state.reason.clear();
    if (what.payload.size() > maximum_payload) {
        state.why.say("a request of %zu bytes is too long", what.payload.size());
        return -EMSGSIZE;
    }
    const uint32_t timeout_ms = what.timeout_ms != 0 ? what.timeout_ms : default_timeout_ms;
    const deadline until(timeout_ms);
    connection &to = connection_for(state, what.destination);
    const int32_t sent = send_somehow(state, to, kind, what, until);
    if (sent < 0 || kind == message_kind::notice)
        return sent;
    const auto answered_by = kind == message_kind::ping ? message_kind::pong : message_kind::reply;
    return receive(state, to, answered_by, what, timeout_ms, until, answer);
}

int32_t run(message_kind kind, const message &what, reply &answer)
{
    thread_state *state = this_thread();
    if (state == nullptr)
        return -ENOMEM;
    const trace_clock started;
    const int32_t result = carry_out(*state, kind, what, answer);
    if (*state->why.text() != '\0')
        keep_reason(*state, what);
    if (tracing())
        trace({kind, what, result, answer, state->reason.text(), started});
    return result;
}

} // namespace

int32_t exchange(const message &request, reply &answer) noexcept
{
    return run(message_kind::request, request, answer);
}

int32_t notify(const message &notice) noexcept
{
    reply none;
    return run(message_kind::notice, notice, none);
}

int32_t ping(const message &what) noexcept
{
    reply none;
    return run(message_kind::ping, {what.destination, 0, {}, what.timeout_ms}, none);
}

const char *last_reason() noexcept
{
    return mine.state != nullptr ? mine.state->reason.text() : "";
}

} // namespace mixplatform
