// MAC addresses: their descriptions.
#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/wire/mac.h"

#include <ctime>
#include <libmix/mac.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

constexpr argument vsys = option("vsys", kinds::number, "virtual system", router_ids);

// --- descriptions
// --------------------------------------------------------------------------------------------

constexpr request asking_descriptions{.type = wire::mac_desc_type, .subcommand = wire::mac_desc_list};
constexpr change descriptions{"the MAC descriptions"};

constexpr column description_columns[] = {
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Vsys", .key = "virtual_system"},
    {.title = "Changed", .key = "changed", .at_least = 19},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 11},
};

std::string local_time(std::uint64_t seconds)
{
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = {};
    if (localtime_r(&when, &parts) != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

int print_description(const void *row, void *context, int)
{
    wire::mac_description_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row(
        {mac_text(one.mac), one.vsysid, local_time(one.changed), field_text(one.description)});
    return 0;
}

outcome show_descriptions(invocation &call)
{
    const auto mac = call.mac("MAC");
    table rows(call.out(), description_columns);
    get_mac_desc_items(mac ? mac->data() : nullptr, print_description, &rows, call.print(), 0, 0,
                       call.number_or<std::uint16_t>("vsys", 0));
    rows.end();
    if (!call.said().empty())
        return call.fail(asking_descriptions, "the MAC descriptions can't be read");
    return outcome::done;
}
constexpr argument show_descriptions_arguments[] = {
    optional_value("MAC", kinds::mac, "description of this address only"), vsys};

outcome add_description(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_description_add(mac->data(), call.text("TEXT"), call.print(), nullptr, 0, call.language(), 0) !=
        0)
        return call.fail(descriptions, "the MAC address was not described");
    return outcome::done;
}
constexpr argument add_description_arguments[] = {
    value("MAC", kinds::mac, "address to describe"),
    value("TEXT", kinds::text, "its description", {.longest = 127}),
};

outcome remove_description(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_description_remove(mac->data(), call.print(), 0, call.language(),
                               call.number_or<std::uint16_t>("vsys", 0)) != 0)
        return call.fail(descriptions, "the description was not deleted");
    return outcome::done;
}
constexpr argument remove_description_arguments[] = {
    value("MAC", kinds::mac, "address whose description goes"), vsys};

outcome remove_descriptions(invocation &call)
{
    if (mac_description_remove(nullptr, call.print(), 1, call.language(),
                               call.number_or<std::uint16_t>("vsys", 0)) != 0)
        return call.fail(descriptions, "the descriptions were not deleted");
    return outcome::done;
}
constexpr argument remove_descriptions_arguments[] = {vsys};

constexpr command commands[] = {
    {"show mac description", "descriptions of MAC addresses", show_descriptions, show_descriptions_arguments},
    {"add mac description", "describe a MAC address", add_description, add_description_arguments},
    {"delete mac description", "delete the description of a MAC address", remove_description,
     remove_description_arguments},
    {"delete mac description all", "delete every description of a virtual system", remove_descriptions,
     remove_descriptions_arguments},
};

} // namespace

extern const family mac_family;
const family mac_family{"mac", "MAC addresses", commands};

} // namespace mixsh
