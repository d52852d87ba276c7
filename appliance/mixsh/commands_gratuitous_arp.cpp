// The gratuitous-ARP senders: addresses that the system announces on its interfaces.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/gas.h"

#include <libmix/gas.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

constexpr change senders{"the gratuitous-ARP senders"};

constexpr choice form_words[] = {
    {"request", "as a request for the own address", wire::gas_as_request},
    {"reply", "as a reply that nobody asked for", wire::gas_as_reply},
    {"both", "as a request and a reply", wire::gas_every_form},
};

constexpr choice state_words[] = {
    {"configured", "the system is not told of it", wire::gas_configured},
    {"waiting", "its interface is not there", wire::gas_waiting},
    {"announcing", "announced at its interval", wire::gas_announcing},
    {"failing", "the last announcement could not be sent", wire::gas_failing},
};

constexpr column columns[] = {
    {.title = "Address", .key = "address", .at_least = 15},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {"Every s", "interval_s"},
    {"Form", "form", false, 7},
    {"State", "state", false, 10},
    {"Sent", "sent", false, 6},
    {"VR", "virtual_router"},
    {.title = "Error", .key = "error", .may_be_cut = true, .at_least = 5},
};

// Where rows go, and which: the listing itself selects by virtual router only.
struct receiver {
    table *rows;
    std::optional<std::uint32_t> address;
};

int print_row(const void *row, void *context, int)
{
    const auto *to = static_cast<const receiver *>(context);
    wire::gas_row one;
    std::memcpy(&one, row, sizeof one);
    if (to->address && *to->address != one.address)
        return 0;
    to->rows->row({ipv4_text(one.address), field_text(one.interface), mac_text(one.mac), one.interval,
                   word_of(form_words, one.option), word_of(state_words, one.state), one.sent, one.vrid,
                   one.error != 0 ? cell(std::strerror(static_cast<int>(one.error))) : cell()});
    return 0;
}

outcome show(invocation &call)
{
    const auto router = vr_of(call);
    const auto address = call.ipv4("ADDRESS");
    // The lookup tells whether there is one; what it looks like is in the list.
    if (address)
        gas_get_item_one(0, *address, router, call.print());
    if (!call.said().empty())
        return call.fail(request{.type = wire::gas_type, .subcommand = wire::gas_lookup},
                         "no interface announces this address");
    table rows(call.out(), columns);
    receiver to{&rows, address};
    gas_get_item(router, print_row, &to, call.print());
    rows.end();
    return call.end(request{.type = wire::gas_type, .subcommand = wire::gas_list},
                    "the senders can't be read");
}
constexpr argument show_arguments[] = {
    optional_value("ADDRESS", kinds::ipv4, "senders of this address only"),
    option("vr", kinds::number, "virtual router of the interface, 0 for all", router_ids)};

constexpr std::uint64_t usual_interval = 60;

outcome add(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (gas_add_item(call.language(), *call.ipv4("ADDRESS"), mac->data(), call.text("interface"),
                     call.number_or<std::uintptr_t>("seconds", usual_interval),
                     static_cast<std::uint8_t>(call.chosen("form").value_or(wire::gas_as_request)),
                     call.print(), nullptr, 0) != 0)
        return call.fail(senders, "the sender was not added");
    return outcome::done;
}
constexpr argument add_arguments[] = {
    value("ADDRESS", kinds::ipv4, "address to announce"),
    value("MAC", kinds::mac, "MAC address that it is announced with"),
    needed("interface", kinds::interface_name, "interface to announce it on"),
    option("seconds", kinds::number, "seconds between two announcements, 60 if not given",
           {.low = 1, .high = wire::gas_longest_interval}),
    option("form", kinds::one_of, "how it is announced, request if not given", {.choices = form_words}),
};

outcome remove(invocation &call)
{
    if (gas_del_item(call.language(), *call.ipv4("ADDRESS"), call.text("interface"), call.print(), nullptr,
                     0) != 0)
        return call.fail(senders, "the sender was not deleted");
    return outcome::done;
}
constexpr argument remove_arguments[] = {
    value("ADDRESS", kinds::ipv4, "address that is announced"),
    needed("interface", kinds::interface_name, "interface that it is announced on"),
};

constexpr command commands[] = {
    {"show gratuitous-arp", "addresses that are announced by gratuitous ARP", show, show_arguments},
    {"add gratuitous-arp", "announce an address by gratuitous ARP", add, add_arguments},
    {"delete gratuitous-arp", "announce an address no longer", remove, remove_arguments},
};

} // namespace

extern const family gratuitous_arp_family;
const family gratuitous_arp_family{"gratuitous-arp", "announcements by gratuitous ARP", commands};

} // namespace mixsh
