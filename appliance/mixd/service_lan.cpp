/*
 * Keeps the shared "lan_addr" table: the IPv4 networks that the interfaces are in, as addresses come and go,
 * and those that a scenario adds in [lan_addr]. Serves no message; whoever wants to know attaches the
 * segment. There is one on a machine: the mixd that locked it first keeps it, others leave it alone.
 *
 * A table that is there when mixd stops is left as it is, so that a restart is not seen.
 */
#include <sys/file.h>
#include <sys/mman.h>

#include <fmt/format.h>

#include "appliance/mixd/event.h"
#include "appliance/mixd/hosts.h"
#include "appliance/mixd/lan_table.h"
#include "appliance/mixd/network.h"
#include "appliance/mixd/service.h"
#include "platform/shared_mem.h"

namespace mixd
{

namespace
{

constexpr uint32_t longest_prefix = 32;
constexpr uint32_t loopback_network = 127; /* its first octet: never a LAN */

lan_network network_of(uint32_t address, uint32_t length)
{
    return {address & mask_of(length), length};
}

std::vector<lan_network> read(scenario_table table)
{
    std::vector<lan_network> networks;
    for (scenario_table &row : table.rows("network")) {
        const auto address = row.ipv4("address");
        const auto length = row.required_number("length", 0, longest_prefix);
        if (!row.has("address"))
            row.fail("address", "is missing");
        if (!address)
            continue;
        networks.push_back(network_of(*address, static_cast<uint32_t>(length)));
        if (networks.back().address != *address)
            row.fail("address", "has bits beyond its length");
    }
    return networks;
}

class lan final : public service, private network_observer
{
  public:
    explicit lan(setup &with);

  private:
    void interfaces_changed() override;

    network &network_;
    const std::vector<lan_network> added_; /* by the scenario */
    descriptor lock_;
    std::optional<lan_table> table_;
    size_t dropped_ = 0;
};

lan::lan(setup &with) : network_(with.shared_state<network>()), added_(read(with.scenario("lan_addr")))
{
    void *attached = init_shared_mem(mix::wire::lan_segment_name, mix::wire::lan_segment_size);
    if (attached == nullptr) {
        log(priority::warning,
            "shared memory \"lan_addr\" can't be had: nobody will know the LAN's addresses");
        return;
    }
    lock_ = descriptor(shm_open(mix::wire::lan_segment_name, O_RDWR, 0));
    if (!lock_ || flock(lock_.get(), LOCK_EX | LOCK_NB) < 0) {
        log(priority::notice, "another mixd keeps the LAN's addresses, they are left to that one");
        return;
    }
    table_.emplace(*static_cast<mix::wire::lan_table *>(attached));
    network_.observe(*this);
}

void lan::interfaces_changed()
{
    std::vector<lan_network> networks = added_;
    for (const auto &[each, generation] : network_.addresses())
        if (each.address >> 24 != loopback_network)
            networks.push_back(network_of(each.address, each.prefix));
    const size_t dropped = table_->replace(std::move(networks));
    if (dropped != 0 && dropped != dropped_)
        log(priority::warning, fmt::format("the LAN address table is full: {} networks left out", dropped));
    dropped_ = dropped;
}

} // namespace

const service_entry lan_service = {
    "lan", {}, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<lan>(with); }};

} // namespace mixd
