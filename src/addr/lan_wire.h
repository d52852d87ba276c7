/* The shared "lan_addr" table: written by one process, read by everyone without a lock. */
#ifndef MIX_ADDR_LAN_WIRE_H
#define MIX_ADDR_LAN_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr char lan_segment_name[] = "lan_addr";
inline constexpr size_t lan_segment_size = 32768;

struct lan_entry {
    uint32_t network; /* host order */
    uint32_t length;  /* of the prefix, 0 to 32 */
};
static_assert(sizeof(lan_entry) == 8);
static_assert(offsetof(lan_entry, network) == 0);
static_assert(offsetof(lan_entry, length) == 4);

inline constexpr int32_t lan_entries_max = (lan_segment_size - 8) / sizeof(lan_entry);

struct lan_table {
    int32_t count;
    uint32_t unused;
    lan_entry entries[lan_entries_max];
};
static_assert(sizeof(lan_table) == lan_segment_size);
static_assert(offsetof(lan_table, count) == 0);
static_assert(offsetof(lan_table, entries) == 8);

} // namespace mix::wire

#endif
