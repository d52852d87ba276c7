// Turns a failed exchange into something to act on: what the library said, where the request went, what the
// transport knows, what to try.
#include "appliance/mixsh/invocation.h"
#include "appliance/platform/reason.h"
#include "appliance/wire/control.h"
#include "appliance/wire/gateway.h"
#include "appliance/wire/message.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fmt/format.h>

namespace mixsh
{

namespace
{

struct daemon_name {
    std::uint8_t number;
    std::string_view name;
};

constexpr daemon_name daemons[] = {
    {0, "main local daemon"},
    {1, "virtual-router, inspection and port daemon"},
    {2, "configuration lock"},
    {6, "ISP address table"},
    {17, "upgrade and chassis manager"},
    {97, "virtual-chassis manager"},
    {mix::wire::gateway_daemon, "management gateway"},
    {mix::wire::control_daemon, "control daemon"},
};

// "main local daemon (daemon 0)", with the board if it is another one.
std::string daemon_title(std::uint32_t address)
{
    const auto parts = mix::wire::split_address(address);
    const auto known = std::ranges::find(daemons, parts.daemon, &daemon_name::number);
    auto title = fmt::format("daemon {}", parts.daemon);
    if (known != std::end(daemons))
        title = fmt::format("{} ({})", known->name, title);
    if (parts.node != 0 || parts.instance != 0)
        title += fmt::format(" of node {}, instance {}", parts.node, parts.instance);
    return title;
}

// The negative number behind a mark: an error number of the system.
std::optional<int> status_behind(std::string_view mark, std::string_view said)
{
    const auto at = said.rfind(mark);
    if (at == std::string_view::npos)
        return {};
    int status = 0;
    const auto *first = said.data() + at + mark.size();
    const auto [end, error] = std::from_chars(first, said.data() + said.size(), status);
    if (error != std::errc{} || status >= 0)
        return {};
    return status;
}

// Adds what the transport knows. A daemon that refused did answer, so only its number is explained: libmix
// prints it as "..., ret is -22", or prints nothing, and then the transport tells it.
void explain(failure &into, std::string_view library, std::uint32_t asked)
{
    if (const auto status = status_behind("ret is ", library)) {
        into.reasons.push_back(
            fmt::format("the daemon's answer {} means: {}", *status, std::strerror(-*status)));
        return;
    }
    const std::string transport = mixplatform_last_reason();
    if (transport.empty())
        return;
    if (const auto status = status_behind("answered with status ", transport)) {
        into.reasons.push_back(fmt::format("{}: {}", transport, std::strerror(-*status)));
        return;
    }
    into.reasons.push_back(transport);
    const auto at = mix::wire::split_address(asked);
    into.advice.emplace_back(at.node == 0 ? "is mixd running, with the same run directory (MIX_RUN_DIR)?"
                                          : "is there such a board?");
    // The control daemon answers "show daemons" itself: if it is silent, all are.
    if (at.daemon != mix::wire::control_daemon)
        into.advice.emplace_back("\"show daemons\" tells who answers");
}

} // namespace

outcome invocation::fail(const request &exchange, std::string_view what)
{
    fail(what.empty() ? fmt::format("{} failed", which_.words) : what);
    auto where =
        fmt::format("asked the {}, message type {}", daemon_title(exchange.destination), exchange.type);
    if (exchange.subcommand)
        where += fmt::format(", sub-command {}", *exchange.subcommand);
    failure_.reasons.push_back(std::move(where));
    explain(failure_, said(), exchange.destination);
    return outcome::failed;
}

outcome invocation::fail(const change &exchange, std::string_view what)
{
    fail(what.empty() ? fmt::format("{} was refused", which_.words) : what);
    failure_.reasons.push_back(fmt::format("asked the management gateway to change {}", exchange.object));
    explain(failure_, said(), mix::wire::gateway_daemon);
    return outcome::failed;
}

} // namespace mixsh
