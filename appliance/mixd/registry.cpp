#include "appliance/mixd/registry.h"

#include <fmt/format.h>

namespace mixd
{

void registry::add(endpoint added)
{
    const uint64_t at = key(join_address(added.to), added.type);
    const auto there = endpoints_.find(at);
    if (there != endpoints_.end() && !there->second->call) {
        there->second->service = added.service;
        there->second->call = std::move(added.call);
        return;
    }
    if (there != endpoints_.end())
        throw startup_error(fmt::format("services {} and {} both serve type {} at {:#x}",
                                        there->second->service, added.service, added.type,
                                        join_address(added.to)));
    if (join_address(added.to) == mix::wire::no_address)
        throw startup_error(fmt::format("service {} wants the address that no daemon has", added.service));
    addresses_.insert(added.to);
    auto kept = std::make_unique<endpoint>(std::move(added));
    order_.push_back(kept.get());
    endpoints_.emplace(at, std::move(kept));
}

void registry::begin_again()
{
    for (const auto &[at, one] : endpoints_)
        one->call = nullptr;
}

endpoint *registry::find(uint32_t packed_address, uint32_t type)
{
    const auto found = endpoints_.find(key(packed_address, type));
    return found == endpoints_.end() ? nullptr : found->second.get();
}

std::string registry::name_at(const address_parts &to) const
{
    std::vector<std::string_view> names;
    for (const endpoint *one : order_)
        if (one->to == to && std::find(names.begin(), names.end(), one->service) == names.end())
            names.emplace_back(one->service);
    if (names.size() < 2)
        return names.empty() ? "" : std::string(names.front());
    return fmt::format("{}+{}", names.front(), names.size() - 1);
}

} // namespace mixd
