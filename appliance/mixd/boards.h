/* The boards of the appliance and the addresses of their daemons. */
#ifndef MIXD_BOARDS_H
#define MIXD_BOARDS_H

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "appliance/mixd/scenario.h"
#include "appliance/wire/message.h"

namespace mixd
{

/* A daemon's address as clients build it: node, instance and daemon in one u32. Node 0 is this board. */
struct address {
    uint8_t node = 0;
    uint16_t instance = 0;
    uint8_t daemon = 0;

    [[nodiscard]] constexpr uint32_t packed() const
    {
        return mix::wire::join_address({node, instance, daemon});
    }
    auto operator<=>(const address &) const = default;
};

/* The run directory's path of an address: "node0/0.17.sock". */
std::string socket_name(const address &);

struct board {
    uint32_t slot = 0;
    std::string name; /* of the scenario, or "slotN" */
    std::string role; /* "main", "standby" or "service" */
    uint16_t cpus = 1;
    bool is_this = false; /* the board that mixd itself runs on: also reached as node 0 */
};

/* Never empty: without boards in the scenario there is this board alone, in the slot of its board profile. */
struct board_model {
    std::vector<board> boards;
    bool chassis = false; /* boards were declared */

    [[nodiscard]] const board &here() const;
    [[nodiscard]] const board *in_slot(uint32_t slot) const; /* NULL: no board there */
};

/* Reads [[board]] of a scenario. Wrong entries are reported through the table. */
board_model read_boards(scenario_table &scenario);

} // namespace mixd

#endif
