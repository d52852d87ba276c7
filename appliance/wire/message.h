/*
 * The messages between clients and daemons: what stands in one datagram of a SOCK_SEQPACKET connection.
 *
 * Every datagram is a header of 24 bytes and `length` bytes of payload, nothing more and nothing less. All
 * numbers are little-endian. The header, and the hello, welcome and refusal payloads, keep their layout in
 * every version of the protocol, so that two programs of different versions can tell each other so.
 *
 * A connection: the client sends a hello, the daemon answers welcome, or refusal and closes. Then any number
 * of requests (each answered by one reply that echoes its sequence), notices (never answered) and pings
 * (answered by a pong that echoes the sequence and the payload).
 */
#ifndef MIX_APPLIANCE_WIRE_MESSAGE_H
#define MIX_APPLIANCE_WIRE_MESSAGE_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mix::wire
{

inline constexpr uint32_t message_magic = 0x3158494d; /* the bytes "MIX1" */
inline constexpr uint16_t protocol_version = 1;
inline constexpr uint32_t maximum_payload = 64 * 1024;

enum class message_kind : uint16_t {
    hello = 1,   /* client: hello_payload */
    welcome = 2, /* daemon: welcome_payload */
    refusal = 3, /* daemon: text, not terminated; the connection is closed after it */
    request = 4, /* client */
    reply = 5,   /* daemon: the request's sequence and type, and the daemon's status */
    notice = 6,  /* client, one way: whatever the service answers is dropped */
    ping = 7,    /* client */
    pong = 8     /* daemon: the ping's sequence and payload */
};

struct [[gnu::packed]] message_header {
    uint32_t magic;
    uint16_t version;
    uint16_t kind;
    uint32_t type;     /* of the service; 0 in hello, welcome, refusal, ping and pong */
    uint32_t sequence; /* chosen by the client, echoed in the reply */
    int32_t status;    /* of a reply; 0 elsewhere */
    uint32_t length;   /* of the payload */
};
static_assert(sizeof(message_header) == 24);
static_assert(offsetof(message_header, magic) == 0);
static_assert(offsetof(message_header, version) == 4);
static_assert(offsetof(message_header, kind) == 6);
static_assert(offsetof(message_header, type) == 8);
static_assert(offsetof(message_header, sequence) == 12);
static_assert(offsetof(message_header, status) == 16);
static_assert(offsetof(message_header, length) == 20);

inline constexpr size_t name_size = 32; /* of the texts below: zero-padded, terminated (text.h) */

struct [[gnu::packed]] hello_payload {
    uint16_t version; /* of the protocol */
    uint16_t reserved;
    uint32_t pid;
    char program[name_size];
};
static_assert(sizeof(hello_payload) == 40);
static_assert(offsetof(hello_payload, version) == 0);
static_assert(offsetof(hello_payload, reserved) == 2);
static_assert(offsetof(hello_payload, pid) == 4);
static_assert(offsetof(hello_payload, program) == 8);

struct [[gnu::packed]] welcome_payload {
    uint16_t version; /* of the protocol */
    uint16_t reserved;
    uint32_t pid;
    char daemon_version[name_size];
    char name[name_size]; /* of the service that answers here */
};
static_assert(sizeof(welcome_payload) == 72);
static_assert(offsetof(welcome_payload, version) == 0);
static_assert(offsetof(welcome_payload, reserved) == 2);
static_assert(offsetof(welcome_payload, pid) == 4);
static_assert(offsetof(welcome_payload, daemon_version) == 8);
static_assert(offsetof(welcome_payload, name) == 40);

inline message_header make_header(message_kind kind, uint32_t type, uint32_t sequence, int32_t status,
                                  uint32_t length)
{
    return {message_magic, protocol_version, static_cast<uint16_t>(kind), type, sequence, status, length};
}

enum class header_fault { none, too_short, not_ours, other_version, too_long, wrong_length };

/*
 * Looks at a received datagram before anything of it is used. `received` is its real length, which may be
 * more than was kept of it. `header` is filled unless the result is too_short or not_ours. With other_version
 * the kind and the layout of hello, welcome and refusal still hold.
 */
inline header_fault check_header(const void *datagram, size_t received, message_header &header)
{
    if (received < sizeof(message_header))
        return header_fault::too_short;
    message_header seen;
    std::memcpy(&seen, datagram, sizeof(seen));
    if (seen.magic != message_magic)
        return header_fault::not_ours;
    header = seen;
    if (seen.version != protocol_version)
        return header_fault::other_version;
    if (seen.length > maximum_payload)
        return header_fault::too_long;
    if (seen.length != received - sizeof(message_header))
        return header_fault::wrong_length;
    return header_fault::none;
}

inline const char *describe(header_fault fault)
{
    switch (fault) {
    case header_fault::none:
        return "a good message";
    case header_fault::too_short:
        return "a message shorter than its header";
    case header_fault::not_ours:
        return "a message that is not of this protocol";
    case header_fault::other_version:
        return "a message of another protocol version";
    case header_fault::too_long:
        return "a message longer than any may be";
    case header_fault::wrong_length:
        return "a message whose length disagrees with its header";
    }
    return "an unknown message";
}

/* --- addresses --- */

/* An address: node (0: this board), instance, daemon. */
struct address_parts {
    uint8_t node = 0;
    uint16_t instance = 0;
    uint8_t daemon = 0;

    auto operator<=>(const address_parts &) const = default;
};

/* Stands for no daemon at all: sends to it fail, and nothing may listen there. */
inline constexpr uint32_t no_address = 0xffffffff;

constexpr address_parts split_address(uint32_t address)
{
    return {static_cast<uint8_t>(address >> 24), static_cast<uint16_t>(address >> 8),
            static_cast<uint8_t>(address)};
}

constexpr uint32_t join_address(address_parts parts)
{
    return static_cast<uint32_t>(parts.node) << 24 | static_cast<uint32_t>(parts.instance) << 8 |
           parts.daemon;
}
static_assert(join_address({3, 0x102, 17}) == 0x03010211);

} // namespace mix::wire

#endif
