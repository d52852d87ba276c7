// The daemons themselves: who answers, where, how fast, which versions.
#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/control_client.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/mixsh/times.h"
#include "appliance/platform/ping.h"
#include "appliance/wire/message.h"

#include <fmt/format.h>
#include <map>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

// A number only when there is one: a daemon that does not answer has no time.
cell microseconds(std::uint64_t nanoseconds)
{
    return {static_cast<double>(nanoseconds) / 1000.0, 1};
}

constexpr column daemon_columns[] = {
    {"Where", "where"},
    {.title = "Node", .key = "node", .programs_only = true},
    {.title = "Instance", .key = "instance", .programs_only = true},
    {.title = "Daemon", .key = "daemon", .programs_only = true},
    {"Type", "type"},
    {"Service", "service", true},
    {"Answers", "answers"},
    {"In us", "ping_us"},
    {"Requests", "requests"},
    {"Refused", "refused"},
    {"Faulted", "faulted"},
    {"Mean us", "mean_us"},
    {.title = "Slowest us", .key = "slowest_us", .programs_only = true},
};

// How an address answers; asked once, however many message types it serves.
struct answer_time {
    bool came = false;
    std::uint64_t nanoseconds = 0;
};

answer_time ping(std::uint32_t address)
{
    answer_time result;
    result.came = mixplatform_ping(address, control::timeout_ms, &result.nanoseconds) == 0;
    return result;
}

outcome show_daemons(invocation &call)
{
    std::map<std::uint32_t, answer_time> asked;
    table rows(call.out(), daemon_columns);
    const bool listed =
        control::each_row<wire::control_service>(wire::control_list_services, [&](const auto &row) {
            const std::uint32_t address = row.address;
            if (!asked.contains(address))
                asked[address] = ping(address);
            const auto &time = asked[address];
            const auto at = wire::split_address(address);
            const std::uint64_t requests = row.requests;
            return rows.row({fmt::format("node{}/{}.{}", at.node, at.instance, at.daemon), at.node,
                             at.instance, at.daemon, std::uint32_t{row.type}, field_text(row.name), time.came,
                             time.came ? microseconds(time.nanoseconds) : cell(), requests,
                             std::uint64_t{row.refused}, std::uint64_t{row.faulted},
                             requests ? microseconds(row.total_ns / requests) : cell(),
                             microseconds(row.slowest_ns)});
        });
    if (!listed)
        return call.fail(control::about(wire::control_list_services), "the daemons can't be listed");
    return outcome::done;
}

outcome show_version(invocation &call)
{
    const auto answer = control::ask(wire::control_about_type, nullptr, 0);
    wire::control_about about{};
    if (!answer.came)
        return call.fail(control::about(wire::control_about_type), "the version of mixd can't be read");
    if (!control::read(answer.bytes, 0, about))
        return call.fail(control::about(wire::control_about_type), "the answer of mixd is too short");
    const auto store = field_text(about.store);
    const auto scenario = field_text(about.scenario);
    call.out().record(
        {{"mixsh", "mixsh", MIXSH_VERSION},
         {"mixd", "mixd", field_text(about.version)},
         {"Process", "pid", std::uint32_t{about.pid}},
         {"Running since", "started", local_time(about.started)},
         {"Describes", "describes", about.flags & wire::about_scenario ? scenario : "this host"},
         {"Writes to the kernel", "applies", (about.flags & wire::about_apply) != 0},
         {"Run directory", "run_directory", field_text(about.run_dir)},
         {"Store", "store", store},
         {"Clients", "clients", std::uint32_t{about.clients}},
         {"Addresses", "addresses", std::uint32_t{about.addresses}}});
    return outcome::done;
}

constexpr command commands[] = {
    {"show daemons", "who answers, where, how fast", show_daemons},
    {"show version", "versions of the shell and of mixd, and what mixd describes", show_version},
};

} // namespace

extern const family control_family;
const family control_family{"control", "the daemons", commands};

} // namespace mixsh
