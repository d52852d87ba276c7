/* The boards of the appliance and the addresses of their daemons. */
#ifndef MIXD_BOARDS_H
#define MIXD_BOARDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "appliance/mixd/scenario.h"
#include "appliance/wire/message.h"

namespace mixd
{

using mix::wire::address_parts;

inline constexpr uint32_t highest_slot = 253; /* node 254; the address that no daemon has is in node 255 */

struct board {
    uint32_t slot = 0;
    std::string name;        /* of the scenario, or "slotN" */
    bool is_service = false; /* its role: not the main board, nor the one that stands by */
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
