#include "appliance/mixd/boards.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "appliance/wire/chassis.h"
#include "platform/board.h"

namespace mixd
{

namespace
{

constexpr uint16_t most_cpus = 64;
constexpr scenario_word<bool> roles[] = {{"main", false}, {"standby", false}, {"service", true}};

board read_board(scenario_table &row, std::set<uint32_t> &slots)
{
    board one;
    one.slot = static_cast<uint32_t>(row.required_number("slot", 0, highest_slot));
    one.name = row.text("name", fmt::format("slot{}", one.slot), 31);
    one.is_service = row.one_of("role", "service", roles).value;
    one.cpus = static_cast<uint16_t>(row.number("cpus", 1, 1, most_cpus));
    one.is_this = row.boolean("this", false);
    if (!slots.insert(one.slot).second)
        row.fail("slot", fmt::format("slot {} has a board already", one.slot));
    return one;
}

} // namespace

const board &board_model::here() const
{
    for (const board &one : boards)
        if (one.is_this)
            return one;
    return boards.front();
}

const board *board_model::in_slot(uint32_t slot) const
{
    for (const board &one : boards)
        if (one.slot == slot)
            return &one;
    return nullptr;
}

board_model read_boards(scenario_table &top)
{
    board_model model;
    std::set<uint32_t> slots;
    bool main_seen = false;
    for (scenario_table &row : top.rows("board")) {
        if (slots.size() == mix::wire::most_slots)
            row.fail("slot", fmt::format("a chassis has {} boards at most", mix::wire::most_slots));
        board one = read_board(row, slots);
        if (one.is_this && main_seen) {
            row.fail("this", "another board is this board already");
            one.is_this = false;
        }
        main_seen = main_seen || one.is_this;
        /* A wrong one is left out, so that services can be made and say what is wrong with their tables. */
        if (model.in_slot(one.slot) == nullptr)
            model.boards.push_back(std::move(one));
    }
    model.chassis = !model.boards.empty();
    if (model.boards.empty())
        model.boards.push_back({std::min(tq_get_slot(), highest_slot), "this", false, 1, true});
    if (model.chassis && !main_seen)
        top.fail("board", "one board needs this = true: the one that node 0 means");
    return model;
}

} // namespace mixd
