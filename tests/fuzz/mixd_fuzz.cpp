/*
 * mixd in this process, and clients that send it anything over its own sockets. An input is a list of
 * messages:
 *
 *     u8 what        low two bits: 0 a request, 1 a notice, 2 a message of any kind (u8 kind next),
 *                    3 bytes that are no message
 *                    any_type: u32 type next, else the endpoint's own
 *                    ungreeted: a new connection starts without a hello
 *                    lying: u32 next, added to the header's length
 *                    leaving: the client hangs up at once
 *     u16 endpoint   which of (address, message type); the connection is the address'
 *     u16 length, and the payload
 *
 * mixd must answer each request in order with exactly one reply, refuse what is not in order, and serve on.
 * No handler may throw. A mixd lives through many inputs, as it would; a new one is made now and then.
 */
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sys/socket.h>
#include <sys/un.h>

#include "appliance/mixd/core.h"
#include "appliance/wire/places.h"
#include "fuzz/input.h"
#include "support/temporary_directory.h"

namespace
{

using namespace mix::wire;
using mixfuzz::complain;
using mixfuzz::input;

constexpr int inputs_of_one_mixd = 2000;
constexpr int turns_of_the_loop = 100; /* more than one message takes */

class client
{
  public:
    explicit client(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        std::memcpy(to.sun_path, path.c_str(), path.size());
        if (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) < 0)
            complain("mixd takes no connection");
    }
    void send(std::span<const uint8_t> datagram) const
    {
        ::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    enum class heard { nothing, message, end };
    /* The next message, if there is one; it has a good header. */
    heard receive(message_header &header)
    {
        static std::vector<uint8_t> room(sizeof header + maximum_payload + 1);
        const ssize_t size = recv(socket_.get(), room.data(), room.size(), MSG_DONTWAIT);
        if (size < 0 && errno == EAGAIN)
            return heard::nothing;
        if (size <= 0)
            return heard::end;
        if (check_header(room.data(), static_cast<size_t>(size), header) != header_fault::none)
            complain("mixd sent a message that is not in order");
        return heard::message;
    }
    bool greeted = false;
    uint32_t sequence = 0;

  private:
    mixd::descriptor socket_;
};

class appliance
{
  public:
    appliance() : core_(settings(place_.path()))
    {
        /* Signals are the fuzzer's, not the event loop's. */
        sigset_t mine;
        sigemptyset(&mine);
        for (const int number : {SIGTERM, SIGINT, SIGHUP})
            sigaddset(&mine, number);
        sigprocmask(SIG_UNBLOCK, &mine, nullptr);
    }
    void take(input from)
    {
        while (!from.empty())
            one_message(from);
        clients_.clear();
        core_.faults().clear(every_daemon, 0);
        turn();
        if (core_.sockets().clients() != 0)
            complain("mixd keeps a connection whose client is gone");
    }

  private:
    enum bits : uint8_t { form = 3, any_type = 4, ungreeted = 8, lying = 16, leaving = 32 };
    enum forms : uint8_t { request, notice, any_kind, no_message };

    static mixd::options settings(const std::string &folder)
    {
        mixd::options chosen;
        chosen.host = false;
        chosen.keep_catalogue = false;
        chosen.run_dir = folder + "/run";
        chosen.store_file = folder + "/mixd.db";
        chosen.scenario_file = MIXD_SCENARIO;
        return chosen;
    }
    void turn()
    {
        for (int i = 0; i < turns_of_the_loop; i++)
            if (sd_event_run(core_.loop(), 0) <= 0)
                return;
    }
    client &client_at(const mixd::address_parts &to, bool with_hello)
    {
        const auto found = clients_.find(to);
        if (found != clients_.end())
            return found->second;
        client &made = clients_.try_emplace(to, socket_path(core_.settings().run_dir, to)).first->second;
        if (with_hello) {
            send_hello(made);
            turn();
            message_header header;
            if (made.receive(header) != client::heard::message ||
                header.kind != static_cast<uint16_t>(message_kind::welcome))
                complain("a client is not welcome");
            made.greeted = true;
        }
        return made;
    }
    static void send_hello(const client &to)
    {
        const hello_payload hello{protocol_version, 0, 1, "fuzzer"};
        std::vector<uint8_t> datagram(sizeof(message_header) + sizeof hello);
        const auto header = make_header(message_kind::hello, 0, 0, 0, sizeof hello);
        std::memcpy(datagram.data(), &header, sizeof header);
        std::memcpy(datagram.data() + sizeof header, &hello, sizeof hello);
        to.send(datagram);
    }

    void one_message(input &from);
    void hear_answer(const mixd::address_parts &at, client &by, bool request_in_order);
    static void defuse(const mixd::address_parts &to, std::vector<uint8_t> &datagram);

    mixtest::temporary_directory place_;
    mixd::core core_;
    std::map<mixd::address_parts, client> clients_;
};

/* Injected crashes end mixd as they should, and injected delays only cost time: neither is what is looked
 * for. */
void appliance::defuse(const mixd::address_parts &to, std::vector<uint8_t> &datagram)
{
    message_header header;
    control_fault wanted;
    if (to.daemon != control_daemon || datagram.size() < sizeof header + sizeof wanted)
        return;
    std::memcpy(&header, datagram.data(), sizeof header);
    if (header.type != control_set_fault)
        return;
    std::memcpy(&wanted, datagram.data() + sizeof header, sizeof wanted);
    if (wanted.kind == static_cast<uint32_t>(fault_kind::crash))
        wanted.kind = static_cast<uint32_t>(fault_kind::drop);
    if (wanted.kind == static_cast<uint32_t>(fault_kind::delay))
        wanted.value = 0;
    std::memcpy(datagram.data() + sizeof header, &wanted, sizeof wanted);
}

void appliance::one_message(input &from)
{
    const auto what = from.take<uint8_t>();
    const auto &all = core_.endpoints().all();
    const mixd::endpoint &to = *all[from.take<uint16_t>() % all.size()];
    static constexpr message_kind kinds[] = {message_kind::request, message_kind::notice};
    auto kind = static_cast<uint16_t>(message_kind::request);
    if ((what & form) == notice)
        kind = static_cast<uint16_t>(kinds[1]);
    if ((what & form) == any_kind)
        kind = from.take<uint8_t>();
    const uint32_t type = (what & any_type) != 0 ? from.take<uint32_t>() : to.type;
    const uint32_t lie = (what & lying) != 0 ? from.take<uint32_t>() : 0;
    const auto payload = from.take(from.take<uint16_t>());

    client &by = client_at(to.to, (what & ungreeted) == 0);
    auto header = make_header(message_kind::request, type, ++by.sequence, 0,
                              static_cast<uint32_t>(payload.size()) + lie);
    header.kind = kind;
    std::vector<uint8_t> datagram;
    if ((what & form) != no_message) {
        datagram.resize(sizeof header);
        std::memcpy(datagram.data(), &header, sizeof header);
    }
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    defuse(to.to, datagram);
    by.send(datagram);
    if ((what & leaving) != 0) {
        clients_.erase(to.to);
        turn();
        return;
    }
    turn();
    const bool in_order =
        by.greeted && lie == 0 && (what & form) == request && payload.size() <= maximum_payload;
    hear_answer(to.to, by, in_order && core_.faults().all().empty());
}

void appliance::hear_answer(const mixd::address_parts &at, client &by, bool request_in_order)
{
    int replies = 0;
    message_header header;
    for (;;) {
        const client::heard heard = by.receive(header);
        if (heard == client::heard::nothing)
            break;
        if (heard == client::heard::end) {
            if (request_in_order)
                complain("mixd hung up on a request in order");
            clients_.erase(at);
            return;
        }
        const auto kind = static_cast<message_kind>(uint16_t{header.kind});
        by.greeted = by.greeted || kind == message_kind::welcome;
        replies += kind == message_kind::reply && header.sequence == by.sequence;
    }
    if (request_in_order && replies != 1)
        complain("a request was not answered once");
}

} // namespace

/* mixd's own log line, which would drown all others; that a handler threw is told by one. */
void mixd::log(priority level, std::string_view text)
{
    if (level != priority::error || !text.starts_with("service "))
        return;
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
    complain("a handler threw, or made a reply that is too long");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static std::unique_ptr<appliance> running;
    static int taken = 0;
    if (taken++ % inputs_of_one_mixd == 0) {
        running.reset();
        running = std::make_unique<appliance>();
    }
    running->take(input(data, size));
    return 0;
}
