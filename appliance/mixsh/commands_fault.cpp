// Faults on purpose, for tests: answers that come late, short, or never.
#include "appliance/mixsh/control_client.h"
#include "appliance/mixsh/kinds.h"

#include <algorithm>
#include <fmt/format.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

struct fault_name {
    wire::fault_kind kind;
    std::string_view word;  // behind "set fault"
    std::string_view value; // the keyword of its number, empty: it has none
};

constexpr fault_name faults[] = {
    {wire::fault_kind::delay, "delay", "milliseconds"},
    {wire::fault_kind::drop, "drop", ""},
    {wire::fault_kind::refuse, "refuse", "status"},
    {wire::fault_kind::short_reply, "short", "bytes"},
    {wire::fault_kind::long_reply, "long", "bytes"},
    {wire::fault_kind::overstated, "overstated", "bytes"},
    {wire::fault_kind::crash, "crash", ""},
};

outcome set_fault(invocation &call)
{
    constexpr std::string_view before = "set fault ";
    const auto &which =
        *std::ranges::find(faults, call.which().words.substr(before.size()), &fault_name::word);
    wire::control_fault fault{};
    fault.daemon = call.number_or<std::uint32_t>("daemon", 0);
    fault.type = call.number_or<std::uint32_t>("type", 0);
    fault.kind = static_cast<std::uint32_t>(which.kind);
    fault.count = call.number_or<std::uint32_t>("count", 0);
    if (!which.value.empty())
        fault.value = call.number_or<std::int32_t>(which.value, 0);
    if (which.kind == wire::fault_kind::refuse)
        fault.value = -fault.value;
    if (!control::ask(wire::control_set_fault, &fault, sizeof fault).came)
        return call.fail(control::about(wire::control_set_fault), "the fault was not set");
    return outcome::done;
}

constexpr column fault_columns[] = {
    {"Daemon", "daemon"}, {"Type", "type"}, {"Fault", "fault"}, {"Value", "value"},
    {"Unit", "unit"},     {"Left", "left"}, {"Hits", "hits"},
};

outcome show_faults(invocation &call)
{
    table rows(call.out(), fault_columns);
    const bool listed =
        control::each_row<wire::control_fault>(wire::control_list_faults, [&](const auto &row) {
            const auto kind = static_cast<wire::fault_kind>(std::uint32_t{row.kind});
            const auto which = std::ranges::find(faults, kind, &fault_name::kind);
            const bool known = which != std::end(faults);
            const bool has_value = known && !which->value.empty();
            const bool every_type = row.type == 0;
            return rows.row({std::uint32_t{row.daemon}, every_type ? cell() : cell(std::uint32_t{row.type}),
                             known ? std::string(which->word) : fmt::format("{}", std::uint32_t{row.kind}),
                             has_value ? cell(std::int32_t{row.value}) : cell(),
                             has_value ? cell(which->value) : cell(), unless_zero(std::uint32_t{row.count}),
                             std::uint32_t{row.hits}});
        });
    if (!listed)
        return call.fail(control::about(wire::control_list_faults), "the faults can't be listed");
    rows.end();
    if (rows.rows() == 0)
        call.out().note("no faults are set");
    return outcome::done;
}

outcome clear_faults(invocation &call)
{
    wire::control_clear clear{};
    if (call.has("type") && !call.has("daemon"))
        return call.misused("a type goes with a daemon");
    clear.daemon = call.number_or<std::uint32_t>("daemon", wire::every_daemon);
    clear.type = call.number_or<std::uint32_t>("type", 0);
    const auto answer = control::ask(wire::control_clear_faults, &clear, sizeof clear);
    if (!answer.came)
        return call.fail(control::about(wire::control_clear_faults), "the faults were not cleared");
    call.out().record({{"Cleared", "cleared", answer.status}});
    return outcome::done;
}

constexpr limits daemon_numbers{.low = 0, .high = 255};
constexpr limits message_types{.low = 1, .high = 0xffffffff};
constexpr auto whose = needed("daemon", kinds::number, "number of the daemon", daemon_numbers);
constexpr auto which_type =
    option("type", kinds::number, "message type; all of the daemon when left out", message_types);
constexpr auto how_often =
    option("count", kinds::number, "how many requests are hit; all when left out", message_types);
constexpr limits bytes_of_reply{.low = 1, .high = 65535};

constexpr argument plain_fault[] = {whose, which_type, how_often};
constexpr argument delay_fault[] = {
    needed("milliseconds", kinds::number, "how late the answer leaves", {.low = 1, .high = 600000}), whose,
    which_type, how_often};
constexpr argument refuse_fault[] = {
    needed("status", kinds::number, "error number that the refusal carries", {.low = 1, .high = 4095}), whose,
    which_type, how_often};
constexpr argument bytes_fault[] = {
    needed("bytes", kinds::number, "by how much the length is wrong", bytes_of_reply), whose, which_type,
    how_often};
constexpr argument clear_arguments[] = {
    option("daemon", kinds::number, "faults of this daemon only", daemon_numbers), which_type};

constexpr command commands[] = {
    {"show faults", "faults that are set on purpose", show_faults},
    {"set fault delay", "answer late", set_fault, delay_fault},
    {"set fault drop", "lose requests: neither executed nor answered", set_fault, plain_fault},
    {"set fault refuse", "refuse requests with a status", set_fault, refuse_fault},
    {"set fault short", "leave bytes off the end of replies", set_fault, bytes_fault},
    {"set fault long", "add bytes to the end of replies", set_fault, bytes_fault},
    {"set fault overstated", "claim more bytes than replies carry", set_fault, bytes_fault},
    {"set fault crash", "end mixd at once instead of answering", set_fault, plain_fault},
    {"clear faults", "end faults", clear_faults, clear_arguments},
};

} // namespace

extern const family fault_family;
const family fault_family{"fault", "faults on purpose, for tests", commands};

} // namespace mixsh
