/*
 * The client's side of the transport: one connection per thread and address, opened when first needed,
 * dropped after a timeout, after nonsense from the peer, and in a forked child.
 */
#ifndef MIX_APPLIANCE_PLATFORM_TRANSPORT_H
#define MIX_APPLIANCE_PLATFORM_TRANSPORT_H

#include <cstdint>
#include <span>

namespace mixplatform
{

inline constexpr uint32_t default_timeout_ms = 500;

struct message {
    uint32_t destination;
    uint32_t type;
    std::span<const uint8_t> payload;
    uint32_t timeout_ms; /* of the whole call; 0: the default */
};

struct reply {
    int32_t status = 0;
    std::span<const uint8_t> payload = {}; /* the thread's own buffer: valid until its next message */
};

/* Sends a request and waits for its reply. 0, or a negative errno value with a reason kept for the thread. */
int32_t exchange(const message &request, reply &answer) noexcept;

/* Sends a message that nobody answers. */
int32_t notify(const message &notice) noexcept;

/* Asks whether the daemon at what.destination is alive; type and payload are not used. */
int32_t ping(const message &what) noexcept;

/* The calling thread's last reason. */
const char *last_reason() noexcept;

} // namespace mixplatform

#endif
