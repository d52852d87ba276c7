// The ISP table.
#include "appliance/mixsh/shared.h"
#include "sys/isp_wire.h"

#include <libmix/isp.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

outcome show_isp(invocation &call)
{
    const auto isp = call.number_or<std::uint32_t>("ISP", 0);
    const auto address = call.ipv4("ADDRESS").value_or(0);
    const bool belongs = check_ip_isp(address, isp) == 1;
    if (failed_silently())
        return call.fail(request{.destination = wire::isp_daemon, .type = wire::isp_type},
                         "the ISP table can't be asked");
    call.out().record({{"Address", "address", ipv4_text(address)},
                       {"ISP", "isp", isp},
                       {"Belongs to it", "belongs", belongs}});
    return outcome::done;
}
constexpr argument isp_arguments[] = {value("ADDRESS", kinds::ipv4, "an address"),
                                      value("ISP", kinds::number, "an ISP's number")};

constexpr command commands[] = {
    {"show isp", "whether an address belongs to an ISP", show_isp, isp_arguments},
};

} // namespace

extern const family isp_family;
const family isp_family{"isp", "the ISP table", commands};

} // namespace mixsh
