// IP fragment reassembly settings.
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "neigh/ipdefrag_wire.h"

#include <libmix/ipdefrag.h>

namespace mixsh
{

namespace
{

outcome show(invocation &call)
{
    std::uint32_t limit = 0;
    std::uint32_t seconds = 0;
    if (get_ipdefrag_para(&limit, &seconds, call.print()) < 0)
        return call.fail(request{.type = mix::wire::ipdefrag_type, .subcommand = mix::wire::ipdefrag_show},
                         "the fragment settings can't be read");
    call.out().record(
        {{"Fragment count limit", "limit", limit}, {"Reassembly time (s)", "reassembly_s", seconds}});
    return outcome::done;
}

outcome set(invocation &call)
{
    if (!call.has("limit") && !call.has("seconds"))
        return call.misused("name at least one of limit and seconds");
    set_ipdefrag_para(call.number_or<std::int32_t>("limit", 0), call.number_or<std::int32_t>("seconds", 0),
                      call.print());
    // The library's result is always 0; a refusal is what it prints.
    return call.end(change{"the fragment settings"}, "the fragment settings were not changed");
}

constexpr argument set_arguments[] = {
    option("limit", kinds::number, "how many fragments of one packet may wait", one_to_65535),
    option("seconds", kinds::number, "how long a packet's fragments wait for the rest", one_to_65535),
};

constexpr command commands[] = {
    {"show fragment", "IP fragment reassembly settings", show},
    {"set fragment", "change IP fragment reassembly settings", set, set_arguments},
};

} // namespace

extern const family fragment_family;
const family fragment_family{"fragment", "IP fragment reassembly", commands};

} // namespace mixsh
