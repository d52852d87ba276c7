/* The names of virtual routers: message type 114 of the configuration daemon. */
#include <cerrno>

#include "appliance/mixd/network.h"
#include "appliance/mixd/service.h"
#include "neigh/arp_wire.h"

namespace mixd
{

namespace
{

class virtual_routers final : public service
{
  public:
    explicit virtual_routers(setup &with) : network_(with.shared_state<network>())
    {
        with.serve_on_boards(mix::wire::vrname_daemon, mix::wire::vrname_type,
                             [this](const request &asked, reply &out) { return name(asked, out); });
    }

  private:
    int32_t name(const request &asked, reply &out) const
    {
        if (!asked.is_a<mix::wire::vrname_request>())
            return -EINVAL;
        const std::string *found = network_.router_name(asked.record<mix::wire::vrname_request>().vrid);
        if (found == nullptr)
            return -ENOENT;
        char text[mix::wire::vrname_size] = {};
        found->copy(text, sizeof text);
        out.append(text);
        return 0;
    }

    const network &network_;
};

} // namespace

const service_entry virtual_routers_service = {
    "virtual_routers", {}, [](setup &with) -> std::unique_ptr<service> {
        return std::make_unique<virtual_routers>(with);
    }};

} // namespace mixd
