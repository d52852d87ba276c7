/*
 * The sockets: one listening socket an address, any number of connections. A message is looked at completely
 * before it is used; what is not in order closes that connection alone. A client that doesn't read its
 * answers is not read from either, and costs nobody else anything.
 */
#ifndef MIXD_SERVER_H
#define MIXD_SERVER_H

#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "appliance/mixd/event.h"
#include "appliance/mixd/faults.h"
#include "appliance/mixd/registry.h"
#include "appliance/mixd/run_directory.h"
#include "appliance/wire/message.h"

namespace mixd
{

class server
{
  public:
    server(sd_event *loop, const run_directory &run, registry &known, fault_table &faults);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    /* Opens a socket for each address of the registry. */
    void listen();
    /* Gives answers that are being worked at up, but for the one whose turn it is: the services that work at
     * them go. */
    void end_long_answers(int32_t status);
    [[nodiscard]] size_t clients() const { return connections_.size(); }
    [[nodiscard]] size_t addresses() const { return listeners_.size(); }

  private:
    struct listener {
        server *owner;
        address_parts to;
        std::string name;
        descriptor socket;
        event_source ready;
    };
    struct connection {
        server *owner;
        const listener *at;
        peer from;
        descriptor socket;
        event_source ready;
        bool greeted = false;
        bool closing = false;     /* refused: what comes is thrown away until the client hangs up */
        event_source linger = {}; /* or until this ends */
        std::deque<std::vector<uint8_t>> queue;
        size_t delayed = 0;
        bool busy = false; /* an answer is being worked at: the next request waits */
    };
    struct delayed_message {
        server *owner;
        uint64_t connection;
        std::vector<uint8_t> bytes;
        event_source timer;
    };
    /* An answer that takes several turns of the loop. */
    struct long_answer {
        server *owner;
        uint64_t connection;
        endpoint *to;
        mix::wire::message_header asked;
        std::optional<fault> hit;
        reply made;
        event_source turn;
    };

    static int on_accept(sd_event_source *, int fd, uint32_t events, void *data);
    static int on_ready(sd_event_source *, int fd, uint32_t events, void *data);
    static int on_timer(sd_event_source *, uint64_t now, void *data);
    static int on_turn(sd_event_source *, uint64_t now, void *data);
    static int on_linger(sd_event_source *, uint64_t now, void *data);

    void accept_one(listener &);
    void shed(listener &);
    void receive(connection &);
    void take(connection &, std::span<const uint8_t> datagram, size_t received);
    void greet(connection &, const mix::wire::message_header &, std::span<const uint8_t> payload);
    void answer(connection &, const mix::wire::message_header &, std::span<const uint8_t> payload);
    int32_t call(endpoint &, connection &, const mix::wire::message_header &,
                 std::span<const uint8_t> payload);
    template <class Work>
    int32_t measured(endpoint &, Work &&);
    void go_on_later(connection &, endpoint &, const mix::wire::message_header &asked,
                     const std::optional<fault> &hit);
    void take_turn(long_answer &);
    void end(const long_answer &, int32_t status);
    void conclude(connection &, endpoint &, const mix::wire::message_header &asked, int32_t status,
                  const std::optional<fault> &hit);
    void finish(connection &, const mix::wire::message_header &asked, int32_t status, const fault *hit);
    void send(connection &, const mix::wire::message_header &, std::span<const uint8_t> payload);
    void send_later(connection &, std::vector<uint8_t> datagram, uint64_t delay_ms);
    void refuse(connection &, const std::string &text);
    void flush(connection &);
    void linger(connection &);
    void watch(connection &) const;
    void close(const connection &);

    sd_event *loop_;
    const run_directory &run_;
    registry &registry_;
    fault_table &faults_;
    std::vector<std::unique_ptr<listener>> listeners_;
    std::unordered_map<uint64_t, std::unique_ptr<connection>> connections_;
    std::map<delayed_message *, std::unique_ptr<delayed_message>> delayed_;
    std::map<long_answer *, std::unique_ptr<long_answer>> long_answers_;
    uint64_t last_connection_ = 0;
    descriptor reserve_; /* given up for a moment when descriptors run out */
    std::vector<uint8_t> input_;
    reply reply_;
};

} // namespace mixd

#endif
