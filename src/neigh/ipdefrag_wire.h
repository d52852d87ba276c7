/* Wire records of the fragment settings: message type 38 of the main local daemon. */
#ifndef MIX_NEIGH_IPDEFRAG_WIRE_H
#define MIX_NEIGH_IPDEFRAG_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t ipdefrag_type = 38;
inline constexpr uint32_t ipdefrag_show = 2;
inline constexpr uint32_t ipdefrag_object = 0x1a0001; /* management object of the settings */

struct [[gnu::packed]] ipdefrag_request {
    uint32_t subcommand;
};
static_assert(sizeof(ipdefrag_request) == 4);

struct [[gnu::packed]] ipdefrag_reply {
    uint16_t first;
    uint16_t second;
};
static_assert(sizeof(ipdefrag_reply) == 4);
static_assert(offsetof(ipdefrag_reply, first) == 0);
static_assert(offsetof(ipdefrag_reply, second) == 2);

/* Fields of the change record, by index. */
enum ipdefrag_change_field : uint32_t {
    ipdefrag_key,
    ipdefrag_first,
    ipdefrag_second,
    ipdefrag_change_fields
};

} // namespace mix::wire

#endif
