#include "appliance/mixd/faults.h"

#include <algorithm>
#include <cerrno>

#include "appliance/wire/message.h"

namespace mixd
{

using mix::wire::control_fault;
using mix::wire::fault_kind;

namespace
{

constexpr int32_t longest_delay_ms = 600'000;

struct kind_rule {
    std::string_view word;
    fault_kind kind;
    int32_t least, most, usual; /* of the value */
};

constexpr kind_rule kinds[] = {
    {"delay", fault_kind::delay, 0, longest_delay_ms, 1000},
    {"drop", fault_kind::drop, INT32_MIN, INT32_MAX, 0},
    {"refuse", fault_kind::refuse, INT32_MIN, -1, -EIO},
    {"short", fault_kind::short_reply, 1, mix::wire::maximum_payload, 1},
    {"long", fault_kind::long_reply, 1, mix::wire::maximum_payload, 1},
    {"overstated", fault_kind::overstated, 1, mix::wire::maximum_payload, 1},
    {"crash", fault_kind::crash, INT32_MIN, INT32_MAX, 0},
};

const kind_rule *rule_of(uint32_t kind)
{
    const auto *found = std::find_if(std::begin(kinds), std::end(kinds), [kind](const kind_rule &rule) {
        return static_cast<uint32_t>(rule.kind) == kind;
    });
    return found == std::end(kinds) ? nullptr : found;
}

} // namespace

control_fault *fault_table::find(uint32_t daemon, uint32_t type)
{
    const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const control_fault &one) {
        return one.daemon == daemon && one.type == type;
    });
    return found == faults_.end() ? nullptr : &*found;
}

int fault_table::set(const control_fault &wanted)
{
    const kind_rule *rule = rule_of(wanted.kind);
    if (!rule || wanted.value < rule->least || wanted.value > rule->most)
        return -EINVAL;
    /* The control service stays well, or nobody could take the fault back. */
    if (wanted.daemon > UINT8_MAX || wanted.daemon == mix::wire::control_daemon)
        return -EINVAL;
    control_fault *there = find(wanted.daemon, wanted.type);
    if (!there && faults_.size() == most)
        return -ENOSPC;
    if (!there)
        there = &faults_.emplace_back();
    *there = wanted;
    there->hits = 0;
    return 0;
}

int fault_table::clear(uint32_t daemon, uint32_t type)
{
    return static_cast<int>(std::erase_if(faults_, [&](const control_fault &one) {
        return (daemon == mix::wire::every_daemon || one.daemon == daemon) && (type == 0 || one.type == type);
    }));
}

std::optional<fault> fault_table::hit(uint8_t daemon, uint32_t type)
{
    if (faults_.empty())
        return {};
    control_fault *one = find(daemon, type);
    if (!one)
        one = find(daemon, 0);
    if (!one)
        return {};
    const fault found = {static_cast<fault_kind>(one->kind), one->value};
    ++one->hits;
    if (one->count != 0 && --one->count == 0)
        faults_.erase(faults_.begin() + (one - faults_.data()));
    return found;
}

void fault_table::read(scenario_table &top)
{
    for (scenario_table &row : top.rows("fault")) {
        control_fault wanted{};
        wanted.daemon = static_cast<uint32_t>(row.required_number("daemon", 0, UINT8_MAX));
        wanted.type = static_cast<uint32_t>(row.number("type", 0, 0, UINT32_MAX));
        wanted.count = static_cast<uint32_t>(row.number("count", 0, 0, UINT32_MAX));
        row.required_text("kind");
        const kind_rule &rule = row.one_of("kind", "drop", kinds);
        wanted.kind = static_cast<uint32_t>(rule.kind);
        wanted.value = static_cast<int32_t>(row.signed_number("value", rule.usual, rule.least, rule.most));
        const int result = set(wanted);
        if (result == -ENOSPC)
            row.fail("", "there are too many faults");
        else if (result < 0)
            row.fail("daemon", "the control service takes no faults");
    }
}

} // namespace mixd
