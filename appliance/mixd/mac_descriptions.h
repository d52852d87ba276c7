/* The descriptions of MAC addresses, by virtual system.
 * Kept by their service, read by those that show them. */
#ifndef MIXD_MAC_DESCRIPTIONS_H
#define MIXD_MAC_DESCRIPTIONS_H

#include "appliance/mixd/network.h"
#include "appliance/mixd/ordered_table.h"
#include "appliance/wire/mac.h"
#include "appliance/wire/text.h"

namespace mixd
{

struct description_key {
    uint16_t virtual_system;
    mac_address mac;

    auto operator<=>(const description_key &) const = default;
};

struct description_key_of {
    description_key operator()(const mix::wire::mac_description_row &row) const
    {
        description_key key{row.vsysid, {}};
        std::copy(std::begin(row.mac), std::end(row.mac), key.mac.begin());
        return key;
    }
};

struct mac_descriptions {
    mac_descriptions() = default;
    explicit mac_descriptions(setup &) {}
    ordered_table<mix::wire::mac_description_row, description_key_of> rows;

    [[nodiscard]] std::string_view of(uint16_t virtual_system, const mac_address &mac) const
    {
        const auto *found = rows.find({virtual_system, mac});
        return found != nullptr ? mix::wire::text_in(found->description) : std::string_view{};
    }
};

} // namespace mixd

#endif
