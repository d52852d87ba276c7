/* The states of neighbours: the kernel's bits, in order, and a scenario's words for them. */
#ifndef MIXD_NEIGHBOUR_STATES_H
#define MIXD_NEIGHBOUR_STATES_H

#include <cstdint>

#include <linux/neighbour.h>

#include "appliance/mixd/scenario.h"

namespace mixd
{

enum class neighbour_state : uint8_t { none, permanent, reachable, stale, delay, probe, failed, incomplete };

struct neighbour_state_row {
    neighbour_state state;
    uint16_t kernel; /* a NUD_ bit */
    std::string_view word;
};

inline constexpr neighbour_state_row neighbour_states[] = {
    {neighbour_state::permanent, NUD_PERMANENT, "permanent"},
    {neighbour_state::reachable, NUD_REACHABLE, "reachable"},
    {neighbour_state::stale, NUD_STALE, "stale"},
    {neighbour_state::delay, NUD_DELAY, "delay"},
    {neighbour_state::probe, NUD_PROBE, "probe"},
    {neighbour_state::failed, NUD_FAILED, "failed"},
    {neighbour_state::incomplete, NUD_INCOMPLETE, "incomplete"},
};

constexpr neighbour_state kind_of_state(uint16_t kernel)
{
    for (const neighbour_state_row &row : neighbour_states)
        if ((kernel & row.kernel) != 0)
            return row.state;
    return neighbour_state::none;
}

/* The key "state" of a scenario's entry, as the kernel's bit. */
inline uint16_t state_in(scenario_table &each)
{
    return each.one_of("state", "reachable", neighbour_states).kernel;
}

} // namespace mixd

#endif
