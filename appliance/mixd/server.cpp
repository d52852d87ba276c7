#include "appliance/mixd/server.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <sanitizer/asan_interface.h>

#include "appliance/mixd/version.h"
#include "appliance/wire/clock.h"
#include "appliance/wire/text.h"

namespace mixd
{

using mix::wire::check_header;
using mix::wire::fault_kind;
using mix::wire::header_fault;
using mix::wire::make_header;
using mix::wire::message_header;
using mix::wire::message_kind;
using mix::wire::monotonic_ns;

namespace
{

constexpr size_t largest_datagram = sizeof(message_header) + mix::wire::maximum_payload;
constexpr size_t most_delayed = 64; /* answers held back for one connection */
constexpr uint64_t linger_us = 1'000'000;
constexpr int send_buffer = 256 * 1024;
constexpr uint8_t surplus_byte = 0xee;

std::span<const uint8_t> text_bytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

template <class Record>
std::span<const uint8_t> record_bytes(const Record &record)
{
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

std::vector<uint8_t> datagram_of(const message_header &header, std::span<const uint8_t> payload)
{
    std::vector<uint8_t> whole(sizeof header + payload.size());
    std::memcpy(whole.data(), &header, sizeof header);
    if (!payload.empty())
        std::memcpy(whole.data() + sizeof header, payload.data(), payload.size());
    return whole;
}

std::string other_version(uint16_t of_client)
{
    return fmt::format("mixd {} speaks version {} of the protocol, the client speaks version {}", version,
                       mix::wire::protocol_version, of_client);
}

} // namespace

server::server(sd_event *loop, const run_directory &run, registry &known, fault_table &faults)
    : loop_(loop), run_(run), registry_(known), faults_(faults),
      reserve_(open("/dev/null", O_RDONLY | O_CLOEXEC)), input_(largest_datagram)
{
}

server::~server()
{
    for (const auto &one : listeners_)
        run_.remove(one->to);
}

void server::listen()
{
    for (const address_parts &to : registry_.addresses()) {
        auto made = std::make_unique<listener>();
        made->owner = this;
        made->to = to;
        made->name = registry_.name_at(to);
        made->socket = run_.listen(to);
        sd_event_source *source = nullptr;
        need(sd_event_add_io(loop_, &source, made->socket.get(), EPOLLIN, on_accept, made.get()),
             "watching a socket");
        made->ready.reset(source);
        listeners_.push_back(std::move(made));
    }
}

int server::on_accept(sd_event_source *, int, uint32_t, void *data)
{
    auto &at = *static_cast<listener *>(data);
    at.owner->accept_one(at);
    return 0;
}

/* Out of descriptors: the waiting client is turned away at once instead of waiting for its own timeout. */
void server::shed(listener &at)
{
    reserve_.close();
    descriptor turned_away(accept4(at.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    turned_away.close();
    reserve_ = descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    log(priority::warning, "out of file descriptors, a client was turned away");
}

void server::accept_one(listener &at)
{
    descriptor socket(accept4(at.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE)
            shed(at);
        return;
    }
    ucred who{};
    socklen_t size = sizeof who;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &who, &size) < 0)
        return;
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof send_buffer);
    auto made = std::make_unique<connection>();
    made->owner = this;
    made->at = &at;
    made->from = {++last_connection_, who.pid, who.uid, {}};
    made->socket = std::move(socket);
    sd_event_source *source = nullptr;
    if (sd_event_add_io(loop_, &source, made->socket.get(), EPOLLIN, on_ready, made.get()) < 0)
        return;
    made->ready.reset(source);
    connection &added = *made;
    connections_.emplace(added.from.connection, std::move(made));
    if (who.uid != geteuid() && who.uid != 0)
        refuse(added, fmt::format("uid {} may not use the daemons of uid {}", who.uid, geteuid()));
}

int server::on_ready(sd_event_source *, int, uint32_t events, void *data)
{
    auto &client = *static_cast<connection *>(data);
    server &self = *client.owner;
    if ((events & EPOLLOUT) != 0)
        self.flush(client);
    else if ((events & EPOLLIN) != 0)
        self.receive(client);
    else
        self.close(client); /* hung up */
    return 0;
}

void server::receive(connection &client)
{
    ASAN_UNPOISON_MEMORY_REGION(input_.data(), input_.size());
    const ssize_t received =
        recv(client.socket.get(), input_.data(), input_.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (received < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (received <= 0) {
        close(client);
        return;
    }
    if (client.closing)
        return;
    const auto length = static_cast<size_t>(received);
    const std::span<const uint8_t> datagram(input_.data(), std::min(length, input_.size()));
    /* In a build with the address sanitizer a handler that reads on is stopped; else this is nothing. */
    ASAN_POISON_MEMORY_REGION(input_.data() + datagram.size(), input_.size() - datagram.size());
    take(client, datagram, length);
}

void server::take(connection &client, std::span<const uint8_t> datagram, size_t received)
{
    message_header header{};
    const header_fault wrong = check_header(datagram.data(), received, header);
    if (wrong == header_fault::other_version) {
        refuse(client, other_version(header.version));
        return;
    }
    if (wrong != header_fault::none) {
        refuse(client, fmt::format("mixd received {}", mix::wire::describe(wrong)));
        return;
    }
    const std::span<const uint8_t> payload = datagram.subspan(sizeof header);
    const auto kind = static_cast<message_kind>(uint16_t{header.kind});
    if (kind == message_kind::hello && !client.greeted) {
        greet(client, header, payload);
        return;
    }
    if (!client.greeted) {
        refuse(client, "the first message must be a hello");
        return;
    }
    if (kind == message_kind::request || kind == message_kind::notice)
        answer(client, header, payload);
    else if (kind == message_kind::ping)
        send(client, make_header(message_kind::pong, 0, header.sequence, 0, header.length), payload);
    else
        refuse(client, fmt::format("mixd received a message of kind {}, which clients don't send",
                                   uint16_t{header.kind}));
}

void server::greet(connection &client, const message_header &header, std::span<const uint8_t> payload)
{
    if (payload.size() != sizeof(mix::wire::hello_payload)) {
        refuse(client, "the hello has a wrong length");
        return;
    }
    mix::wire::hello_payload hello{};
    std::memcpy(&hello, payload.data(), sizeof hello);
    if (hello.version != mix::wire::protocol_version) {
        refuse(client, other_version(hello.version));
        return;
    }
    client.from.program = mix::wire::text_in(hello.program);
    client.greeted = true;
    mix::wire::welcome_payload welcome{};
    welcome.version = mix::wire::protocol_version;
    welcome.pid = static_cast<uint32_t>(getpid());
    mix::wire::fill_text(welcome.daemon_version, version);
    mix::wire::fill_text(welcome.name, client.at->name);
    send(client, make_header(message_kind::welcome, 0, header.sequence, 0, sizeof welcome),
         record_bytes(welcome));
}

void server::answer(connection &client, const message_header &header, std::span<const uint8_t> payload)
{
    const bool one_way = static_cast<message_kind>(uint16_t{header.kind}) == message_kind::notice;
    reply_.clear();
    endpoint *to = registry_.find(join_address(client.at->to), header.type);
    if (!to) {
        if (!one_way)
            finish(client, header, -ENOSYS, nullptr);
        return;
    }
    const std::optional<fault> hit = faults_.hit(client.at->to.daemon, header.type);
    ++to->count.requests;
    to->count.faulted += hit.has_value();
    if (hit && hit->kind == fault_kind::drop)
        return;
    if (hit && hit->kind == fault_kind::crash) {
        log(priority::notice, fmt::format("dying at a request of type {}: an injected crash", header.type));
        kill(getpid(), SIGKILL);
    }
    const bool refused = hit && hit->kind == fault_kind::refuse;
    const int32_t status = refused ? hit->value : call(*to, client, header, payload);
    if (one_way) {
        to->count.refused += status < 0;
        return;
    }
    if (reply_.go_on)
        go_on_later(client, *to, header, hit);
    else
        conclude(client, *to, header, status, hit);
}

void server::conclude(connection &client, endpoint &to, const message_header &asked, int32_t status,
                      const std::optional<fault> &hit)
{
    to.count.refused += status < 0;
    to.count.reply_bytes += reply_.bytes.size();
    finish(client, asked, status, hit ? &*hit : nullptr);
}

/* What a service does in one turn: its time is counted, and whatever it throws is an answer. */
template <class Work>
int32_t server::measured(endpoint &to, Work &&work)
{
    const int64_t began = monotonic_ns();
    int32_t status = -EIO;
    try {
        status = work();
    } catch (const std::exception &failure) {
        reply_.clear();
        log(priority::error, fmt::format("service {}, type {}: {}", to.service, to.type, failure.what()));
    }
    if (reply_.bytes.size() > mix::wire::maximum_payload) {
        log(priority::error, fmt::format("service {}, type {}: a reply of {} bytes is longer than any may be",
                                         to.service, to.type, reply_.bytes.size()));
        reply_.clear();
        status = -EMSGSIZE;
    }
    const auto took = static_cast<uint64_t>(monotonic_ns() - began);
    to.count.total_ns += took;
    to.count.slowest_ns = std::max(to.count.slowest_ns, took);
    return status;
}

int32_t server::call(endpoint &to, connection &client, const message_header &header,
                     std::span<const uint8_t> payload)
{
    const bool one_way = static_cast<message_kind>(uint16_t{header.kind}) == message_kind::notice;
    return measured(to, [&] {
        return to.call({to.to, *to.at, header.type, one_way, payload, client.from}, reply_);
    });
}

void server::go_on_later(connection &client, endpoint &to, const message_header &asked,
                         const std::optional<fault> &hit)
{
    auto later = std::make_unique<long_answer>();
    later->owner = this;
    later->connection = client.from.connection;
    later->to = &to;
    later->asked = asked;
    later->hit = hit;
    later->made = std::exchange(reply_, {});
    sd_event_source *source = nullptr;
    /* A timer that is due at once takes its place behind all that is ready now;
     * a deferred source would not. */
    if (sd_event_add_time_relative(loop_, &source, CLOCK_MONOTONIC, 0, 1, on_turn, later.get()) < 0) {
        conclude(client, to, asked, -ENOMEM, hit);
        return;
    }
    later->turn.reset(source);
    client.busy = true;
    watch(client);
    long_answers_.emplace(later.get(), std::move(later));
}

int server::on_turn(sd_event_source *, uint64_t, void *data)
{
    auto &later = *static_cast<long_answer *>(data);
    later.owner->take_turn(later);
    return 0;
}

void server::take_turn(long_answer &later)
{
    auto node = long_answers_.extract(&later); /* what it does may end all others */
    if (!connections_.contains(later.connection))
        return; /* the client did not wait for it */
    std::swap(reply_, later.made);
    auto turn = std::exchange(reply_.go_on, nullptr);
    const int32_t status = measured(*later.to, [&] {
        const std::optional<int32_t> over = turn(reply_);
        if (!over)
            reply_.go_on = std::move(turn);
        return over.value_or(0);
    });
    if (!reply_.go_on) {
        end(later, status);
        return;
    }
    std::swap(reply_, later.made);
    go_off_after(later.turn, 0);
    long_answers_.insert(std::move(node));
}

/* With what stands in reply_. */
void server::end(const long_answer &later, int32_t status)
{
    const auto found = connections_.find(later.connection);
    if (found == connections_.end())
        return;
    connection &client = *found->second;
    client.busy = false;
    watch(client);
    conclude(client, *later.to, later.asked, status, later.hit);
}

void server::end_long_answers(int32_t status)
{
    for (const auto &[later, owned] : std::exchange(long_answers_, {})) {
        reply_ = {};
        end(*later, status);
    }
    reply_ = {};
}

/* Sends what stands in reply_, as the fault wants it. */
void server::finish(connection &client, const message_header &asked, int32_t status, const fault *hit)
{
    std::vector<uint8_t> &bytes = reply_.bytes;
    uint32_t overstatement = 0;
    if (hit && hit->kind == fault_kind::short_reply)
        bytes.erase(bytes.end() - std::min<ptrdiff_t>(std::ssize(bytes), hit->value), bytes.end());
    if (hit && hit->kind == fault_kind::long_reply)
        bytes.resize(
            std::min<size_t>(bytes.size() + static_cast<size_t>(hit->value), mix::wire::maximum_payload),
            surplus_byte);
    if (hit && hit->kind == fault_kind::overstated)
        overstatement = static_cast<uint32_t>(hit->value);
    const message_header header = make_header(message_kind::reply, asked.type, asked.sequence, status,
                                              static_cast<uint32_t>(bytes.size()) + overstatement);
    if (hit && hit->kind == fault_kind::delay)
        send_later(client, datagram_of(header, bytes), static_cast<uint64_t>(hit->value));
    else
        send(client, header, bytes);
}

void server::send(connection &client, const message_header &header, std::span<const uint8_t> payload)
{
    if (!client.queue.empty()) {
        client.queue.push_back(datagram_of(header, payload));
        return;
    }
    message_header kept = header;
    iovec parts[] = {{&kept, sizeof kept}, {const_cast<uint8_t *>(payload.data()), payload.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(client.socket.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        return;
    if (errno != EAGAIN && errno != ENOBUFS && errno != EINTR) {
        close(client);
        return;
    }
    client.queue.push_back(datagram_of(header, payload));
    watch(client);
}

void server::send_later(connection &client, std::vector<uint8_t> datagram, uint64_t delay_ms)
{
    if (client.delayed >= most_delayed) {
        close(client);
        return;
    }
    auto later = std::make_unique<delayed_message>();
    later->owner = this;
    later->connection = client.from.connection;
    later->bytes = std::move(datagram);
    sd_event_source *source = nullptr;
    if (sd_event_add_time_relative(loop_, &source, CLOCK_MONOTONIC, delay_ms * 1000, 1000, on_timer,
                                   later.get()) < 0)
        return;
    later->timer.reset(source);
    ++client.delayed;
    delayed_.emplace(later.get(), std::move(later));
}

int server::on_timer(sd_event_source *, uint64_t, void *data)
{
    auto *later = static_cast<delayed_message *>(data);
    server &self = *later->owner;
    const auto node = self.delayed_.extract(later);
    const auto found = self.connections_.find(later->connection);
    if (found == self.connections_.end())
        return 0; /* the client did not wait for it */
    connection &client = *found->second;
    --client.delayed;
    client.queue.push_back(std::move(later->bytes));
    self.flush(client);
    return 0;
}

/* Says why, and ends the connection once that has been sent. */
void server::refuse(connection &client, const std::string &text)
{
    client.closing = true;
    client.queue.push_back(datagram_of(
        make_header(message_kind::refusal, 0, 0, 0, static_cast<uint32_t>(text.size())), text_bytes(text)));
    flush(client);
}

void server::flush(connection &client)
{
    while (!client.queue.empty()) {
        const std::vector<uint8_t> &next = client.queue.front();
        if (::send(client.socket.get(), next.data(), next.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            if (errno == EAGAIN || errno == ENOBUFS || errno == EINTR)
                break;
            close(client);
            return;
        }
        client.queue.pop_front();
    }
    if (client.queue.empty() && client.closing) {
        linger(client);
        return;
    }
    watch(client);
}

/*
 * Closing a socket with unread messages in it resets the connection, and the client would lose the reason
 * that it was sent. So the client is given a moment to read it and to hang up first.
 */
void server::linger(connection &client)
{
    watch(client);
    shutdown(client.socket.get(), SHUT_WR);
    if (client.linger)
        return;
    sd_event_source *source = nullptr;
    if (sd_event_add_time_relative(loop_, &source, CLOCK_MONOTONIC, linger_us, 0, on_linger, &client) < 0) {
        close(client);
        return;
    }
    client.linger.reset(source);
}

int server::on_linger(sd_event_source *, uint64_t, void *data)
{
    auto &client = *static_cast<connection *>(data);
    client.owner->close(client);
    return 0;
}

/* While answers wait to be taken, no further request is read: what a client does not read is bounded. */
void server::watch(connection &client) const
{
    const uint32_t reading = client.busy ? 0u : EPOLLIN;
    sd_event_source_set_io_events(client.ready.get(), client.queue.empty() ? reading : EPOLLOUT);
}

void server::close(const connection &client)
{
    connections_.erase(client.from.connection);
}

} // namespace mixd
