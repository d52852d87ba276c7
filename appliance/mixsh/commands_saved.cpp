// Saved configurations.
#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/control_client.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/platform/ping.h"
#include "appliance/wire/gateway.h"
#include "appliance/wire/snapshots.h"

#include <cerrno>
#include <fmt/format.h>
#include <libmix/vchassisd.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

// The library tries again for ever, so the gateway is asked whether it is there at all.
outcome save(invocation &call)
{
    std::uint64_t nanoseconds = 0;
    if (mixplatform_ping(wire::gateway_daemon, control::timeout_ms, &nanoseconds) != 0)
        return call.fail(request{.destination = wire::gateway_daemon, .type = wire::gateway_save},
                         "the configuration was not saved");
    vchassisd_save_config();
    std::string last;
    control::each_row<wire::snapshot_row>(wire::control_list_snapshots, [&](const auto &row) {
        last = field_text(row.name);
        return true;
    });
    if (!last.empty())
        call.out().note(fmt::format("saved as {}", last));
    return outcome::done;
}

constexpr column snapshot_columns[] = {{.title = "Name", .key = "name"},
                                       {.title = "Saved", .key = "saved"},
                                       {.title = "By", .key = "saved_by"},
                                       {.title = "Bytes", .key = "size_bytes"}};

outcome show_snapshots(invocation &call)
{
    table rows(call.out(), snapshot_columns);
    const bool read =
        control::each_row<wire::snapshot_row>(wire::control_list_snapshots, [&](const auto &row) {
            return rows.row(
                {field_text(row.name), field_text(row.when), field_text(row.saver), std::uint64_t{row.size}});
        });
    rows.end();
    if (!read)
        return call.fail(control::about(wire::control_list_snapshots),
                         "the saved configurations can't be listed");
    return outcome::done;
}

// A restore is answered when every service has read its tables again: seconds, where there are millions of
// rows.
constexpr std::uint32_t patience_ms = 60'000;

outcome ask_for(invocation &call, std::uint32_t type, std::string_view what)
{
    wire::snapshot_name wanted{};
    wire::fill_text(wanted.name, call.text("NAME"));
    const auto answer = control::ask(type, &wanted, sizeof wanted, patience_ms);
    if (answer.status == -ENOENT)
        return call.fail(fmt::format("there is no saved configuration \"{}\"", call.text("NAME")),
                         "\"show saved\" lists them");
    return answer.came ? outcome::done : call.fail(control::about(type), what);
}

outcome restore(invocation &call)
{
    return ask_for(call, wire::control_restore_snapshot, "the saved configuration was not restored");
}

outcome remove(invocation &call)
{
    return ask_for(call, wire::control_delete_snapshot, "the saved configuration was not deleted");
}

std::vector<candidate> suggest_saved(const argument &, const std::string &)
{
    std::vector<candidate> found;
    control::each_row<wire::snapshot_row>(wire::control_list_snapshots, [&](const auto &row) {
        found.push_back({field_text(row.name), field_text(row.when)});
        return true;
    });
    return found;
}

const kind saved_name{
    "", "the name of a saved configuration",
    [](const argument &self, const std::string &word) { return kinds::word.rate(self, word); },
    suggest_saved};
constexpr argument name_arguments[] = {value("NAME", saved_name, "a saved configuration", {.longest = 63})};

constexpr command commands[] = {
    {"add saved", "save the configuration", save},
    {"show saved", "saved configurations", show_snapshots},
    {"set saved restore", "go back to a saved configuration", restore, name_arguments},
    {"delete saved", "delete a saved configuration", remove, name_arguments},
};

} // namespace

extern const family saved_family;
const family saved_family{"saved", "saved configurations", commands};

} // namespace mixsh
