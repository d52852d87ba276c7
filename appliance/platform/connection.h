/* One connection to a daemon: opening it, and one message out or in with a deadline. */
#ifndef MIX_APPLIANCE_PLATFORM_CONNECTION_H
#define MIX_APPLIANCE_PLATFORM_CONNECTION_H

#include <algorithm>
#include <cstdint>
#include <span>

#include "appliance/wire/clock.h"
#include "appliance/wire/message.h"

namespace mixplatform
{

/* A point on the monotonic clock. */
class deadline
{
  public:
    explicit deadline(uint32_t timeout_ms) : at_(mix::wire::monotonic_ns() + int64_t{timeout_ms} * 1'000'000)
    {
    }
    [[nodiscard]] int64_t left_ns() const { return std::max<int64_t>(at_ - mix::wire::monotonic_ns(), 0); }

  private:
    int64_t at_;
};

/* Where words about a failure go. */
class explanation
{
  public:
    void clear() { text_[0] = '\0'; }
    void say(const char *format, ...) __attribute__((format(printf, 2, 3)));
    [[nodiscard]] const char *text() const { return text_; }

  private:
    char text_[512] = "";
};

/* Largest datagram there is, and one byte that shows when one is larger still. */
inline constexpr size_t datagram_room = sizeof(mix::wire::message_header) + mix::wire::maximum_payload + 1;

struct connection {
    int fd = -1;
    uint32_t address = mix::wire::no_address;
    uint32_t sequence = 0;
    uint32_t wait_ms = 0; /* the socket's own receive timeout; 0: not set */
    uint64_t used = 0;    /* when, in messages of the thread */
};

/* All of these: 0, or a negative errno value with its words in `why`. `room` holds datagram_room bytes. */

/* Connects, checks who is there, exchanges hello and welcome. */
int32_t open_connection(connection &to, uint32_t address, const deadline &until, std::span<uint8_t> room,
                        explanation &why);
void close_connection(connection &of);

int32_t send_message(const connection &to, const mix::wire::message_header &header,
                     std::span<const uint8_t> payload, const deadline &until, explanation &why);

/* Waits for the answer to sequence `of`; whatever answers another one is dropped. `timeout_ms` is the whole
 * call's, for the first wait. */
int32_t receive_answer(connection &from, mix::wire::message_kind kind, uint32_t of, uint32_t timeout_ms,
                       const deadline &until, std::span<uint8_t> room, mix::wire::message_header &header,
                       explanation &why);

} // namespace mixplatform

#endif
