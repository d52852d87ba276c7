/* Who answers what: every (address, message type) that mixd serves, with its counters. */
#ifndef MIXD_REGISTRY_H
#define MIXD_REGISTRY_H

#include <set>
#include <unordered_map>

#include "appliance/mixd/service.h"

namespace mixd
{

struct counters {
    uint64_t requests = 0;
    uint64_t refused = 0;
    uint64_t faulted = 0;
    uint64_t total_ns = 0;
    uint64_t slowest_ns = 0;
    uint64_t reply_bytes = 0;
};

struct endpoint {
    address_parts to;
    uint32_t type;
    const char *service;
    const board *at;
    handler call;
    counters count;
};

class registry
{
  public:
    void add(endpoint);
    /* The services are about to be made anew: what they add again keeps its place and its counters. */
    void begin_again();
    endpoint *find(uint32_t packed_address, uint32_t type);
    /* The services at an address, for the welcome: "ipdefrag", or "ipdefrag+2" when there are more. */
    [[nodiscard]] std::string name_at(const address_parts &) const;
    [[nodiscard]] const std::set<address_parts> &addresses() const { return addresses_; }
    /* In a fixed order that never changes while mixd runs; index: the cursor of a listing. */
    [[nodiscard]] const std::vector<const endpoint *> &all() const { return order_; }

  private:
    static uint64_t key(uint32_t packed_address, uint32_t type)
    {
        return uint64_t{packed_address} << 32 | type;
    }
    std::unordered_map<uint64_t, std::unique_ptr<endpoint>> endpoints_;
    std::vector<const endpoint *> order_;
    std::set<address_parts> addresses_;
};

} // namespace mixd

#endif
