#include "appliance/platform/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "appliance/platform/settings.h"
#include "appliance/wire/places.h"
#include "appliance/wire/text.h"

namespace mixplatform
{

using namespace mix::wire;

void explanation::say(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text_, sizeof(text_), format, arguments);
    va_end(arguments);
}

namespace
{

/* Below the run directory, or in the directory that its endpoints.toml gives the node. */
std::string place_of(const address_parts &to)
{
    const std::string run = run_directory();
    if (const auto elsewhere = endpoint_of_node(run + "/endpoints.toml", to.node))
        return *elsewhere + '/' + socket_name(to);
    return socket_path(run, to);
}

int32_t timed_out(explanation &why, const char *what)
{
    why.say("%s", what);
    return -ETIMEDOUT;
}

/* Waits for `events`; false when the time is up. Any other outcome is for the next call to find out. */
bool wait_for(int fd, short events, const deadline &until)
{
    const int64_t left = until.left_ns();
    if (left == 0)
        return false;
    pollfd watched{fd, events, 0};
    const timespec time{static_cast<time_t>(left / 1'000'000'000), static_cast<long>(left % 1'000'000'000)};
    return ppoll(&watched, 1, &time, nullptr) != 0;
}

void set_wait(int fd, int option, int64_t ns)
{
    const int64_t us = std::max<int64_t>(ns / 1000, 1); /* 0 would be for ever */
    const timeval time{static_cast<time_t>(us / 1'000'000), static_cast<suseconds_t>(us % 1'000'000)};
    setsockopt(fd, SOL_SOCKET, option, &time, sizeof(time));
}

int32_t connect_socket(int fd, const std::string &path, const deadline &until, explanation &why)
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof(name.sun_path)) {
        why.say("the socket's path is too long (%s)", path.c_str());
        return -ENAMETOOLONG;
    }
    std::memcpy(name.sun_path, path.c_str(), path.size());
    for (;;) {
        const int64_t left = until.left_ns();
        if (left == 0)
            return timed_out(why, "the daemon does not take connections in time");
        set_wait(fd, SO_SNDTIMEO, left);
        if (connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof(name)) == 0)
            return 0;
        if (errno != EINTR && errno != EAGAIN)
            break;
    }
    const int error = errno;
    if (error == ENOENT || error == ECONNREFUSED)
        why.say("no daemon listens at %s", path.c_str());
    else
        why.say("%s: %s", path.c_str(), strerrordesc_np(error));
    return -error;
}

int32_t check_owner(int fd, const std::string &path, explanation &why)
{
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        why.say("%s: who listens there can't be told", path.c_str());
        return -EPERM;
    }
    if (peer.uid == 0 || peer.uid == geteuid())
        return 0;
    why.say("%s is served by user %u, who is neither this user nor root", path.c_str(), peer.uid);
    return -EPERM;
}

/* A peer's text, made fit for one line. */
std::string words_of(std::span<const uint8_t> payload)
{
    std::string words(payload.begin(),
                      payload.begin() + static_cast<ptrdiff_t>(std::min<size_t>(payload.size(), 300)));
    std::replace_if(
        words.begin(), words.end(), [](unsigned char c) { return c < ' ' || c == 127; }, ' ');
    return words;
}

int32_t other_version(uint16_t of_daemon, explanation &why)
{
    why.say("the daemon speaks protocol version %u, this program version %u", unsigned{of_daemon},
            unsigned{protocol_version});
    return -EPROTO;
}

std::span<const uint8_t> payload_in(std::span<const uint8_t> room, size_t received)
{
    return room.subspan(sizeof(message_header), std::min(received, room.size()) - sizeof(message_header));
}

/* The datagram's header, or why it can't be used. */
int32_t judge(std::span<const uint8_t> room, size_t received, message_header &header, explanation &why)
{
    const header_fault fault = check_header(room.data(), received, header);
    const bool refused = (fault == header_fault::none || fault == header_fault::other_version) &&
                         header.kind == static_cast<uint16_t>(message_kind::refusal);
    if (refused) {
        why.say("refused: %s", words_of(payload_in(room, received)).c_str());
        return -ECONNREFUSED;
    }
    if (fault == header_fault::none)
        return 0;
    if (fault == header_fault::other_version)
        return other_version(header.version, why);
    why.say("the daemon sent %s (%zu bytes)", describe(fault), received);
    return -EPROTO;
}

int32_t shake_hands(connection &with, const deadline &until, std::span<uint8_t> room, explanation &why)
{
    hello_payload hello{
        .version = protocol_version, .reserved = 0, .pid = static_cast<uint32_t>(getpid()), .program = {}};
    fill_text(hello.program, program_invocation_short_name);
    const std::span<const uint8_t> payload(reinterpret_cast<const uint8_t *>(&hello), sizeof(hello));
    const auto ours = make_header(message_kind::hello, 0, 0, 0, sizeof(hello));
    int32_t result = send_message(with, ours, payload, until, why);
    if (result < 0)
        return result;
    message_header header;
    const auto left_ms = static_cast<uint32_t>(until.left_ns() / 1'000'000 + 1);
    result = receive_answer(with, message_kind::welcome, 0, left_ms, until, room, header, why);
    if (result < 0)
        return result;
    if (header.length < sizeof(welcome_payload)) {
        why.say("the daemon's welcome is cut short (%u bytes)", static_cast<unsigned>(header.length));
        return -EPROTO;
    }
    welcome_payload welcome;
    std::memcpy(&welcome, room.data() + sizeof(header), sizeof(welcome));
    return welcome.version == protocol_version ? 0 : other_version(welcome.version, why);
}

} // namespace

int32_t open_connection(connection &to, uint32_t address, const deadline &until, std::span<uint8_t> room,
                        explanation &why)
{
    if (address == no_address) {
        why.say("there is no such address");
        return -EADDRNOTAVAIL;
    }
    const std::string path = place_of(split_address(address));
    to = {};
    to.fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (to.fd < 0) {
        const int error = errno;
        why.say("no socket: %s", strerrordesc_np(error));
        return -error;
    }
    to.address = address;
    int32_t result = connect_socket(to.fd, path, until, why);
    if (result == 0)
        result = check_owner(to.fd, path, why);
    if (result == 0)
        result = shake_hands(to, until, room, why);
    if (result < 0)
        close_connection(to);
    return result;
}

void close_connection(connection &of)
{
    if (of.fd >= 0)
        close(of.fd);
    of = {};
}

int32_t send_message(const connection &to, const message_header &header, std::span<const uint8_t> payload,
                     const deadline &until, explanation &why)
{
    iovec parts[2] = {{const_cast<message_header *>(&header), sizeof(header)},
                      {const_cast<uint8_t *>(payload.data()), payload.size()}};
    msghdr out{};
    out.msg_iov = parts;
    out.msg_iovlen = payload.empty() ? 1 : 2;
    for (;;) {
        if (sendmsg(to.fd, &out, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0)
            return 0;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != ENOBUFS)
            break;
        if (!wait_for(to.fd, POLLOUT, until))
            return timed_out(why, "the daemon does not take messages in time");
    }
    const int error = errno;
    why.say("could not be sent: %s", strerrordesc_np(error));
    return -error;
}

int32_t receive_answer(connection &from, message_kind kind, uint32_t of, uint32_t timeout_ms,
                       const deadline &until, std::span<uint8_t> room, message_header &header,
                       explanation &why)
{
    /* The usual answer costs one system call: the socket waits by itself, no longer than the whole call may
     * take. Only what goes wrong after that is waited for with the time that is left. */
    if (from.wait_ms != timeout_ms) {
        set_wait(from.fd, SO_RCVTIMEO, int64_t{timeout_ms} * 1'000'000);
        from.wait_ms = timeout_ms;
    }
    for (int flags = MSG_TRUNC;; flags = MSG_TRUNC | MSG_DONTWAIT) {
        const ssize_t received = recv(from.fd, room.data(), room.size(), flags);
        if (received < 0 && (errno == EAGAIN || errno == EINTR)) {
            if (!wait_for(from.fd, POLLIN, until))
                return timed_out(why, "no answer in time");
            continue;
        }
        if (received <= 0) {
            const int error = received < 0 ? errno : ECONNRESET;
            why.say("the daemon closed the connection before it answered");
            return -error;
        }
        const int32_t result = judge(room, static_cast<size_t>(received), header, why);
        if (result < 0)
            return result;
        if (header.kind == static_cast<uint16_t>(kind) && header.sequence == of)
            return 0;
        if (until.left_ns() == 0)
            return timed_out(why, "no answer in time");
    }
}

} // namespace mixplatform
