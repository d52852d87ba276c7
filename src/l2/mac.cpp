/* The MAC address table. */
#include <libmix/ip_util.h>
#include <libmix/mac.h>

#include <cstdio>
#include <iterator>

#include "frame/listing.h"
#include "frame/management.h"
#include "l2/mac_wire.h"

namespace
{

using namespace mix;

constexpr frame::texts show_texts = frame::usual_texts("MAC show failed, ret is %d\n");

constexpr frame::listing entries{
    .ask{
        .type = wire::mac_type,
        .request_size = sizeof(wire::mac_request),
        .reply_capacity = wire::mac_page_capacity,
        .say = show_texts,
    },
    .request_cursor = MIX_FIELD(wire::mac_request, cursor),
    .request_budget = MIX_FIELD(wire::mac_request, budget),
    .request_first = MIX_FIELD(wire::mac_request, start),
    .header = sizeof(wire::mac_page),
    .row_size = sizeof(wire::mac_entry),
    .cursor = MIX_FIELD(wire::mac_page, cursor),
    .count = MIX_FIELD(wire::mac_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::ignored,
};

constexpr frame::texts summary_texts = [] {
    frame::texts say = show_texts;
    say.no_reply = frame::no_enough_memory;
    return say;
}();

constexpr frame::exchange summary{
    .type = wire::mac_type,
    .request_size = sizeof(wire::mac_request),
    .reply_capacity = wire::mac_summary_size,
    .length = frame::length_rule::exactly,
    .length_value = wire::mac_summary_size,
    .say = summary_texts,
};

constexpr frame::exchange clear_dynamic{
    .type = wire::mac_type,
    .request_size = sizeof(wire::mac_clear_request),
    .reply_capacity = sizeof(wire::mac_clear_reply),
    .length = frame::length_rule::exactly,
    .length_value = sizeof(wire::mac_clear_reply),
    .say = {.function = "mac_remove_dynamic_items",
            .no_request = frame::function_no_enough_memory,
            .not_sent = frame::send_failed,
            .refused = {"MAC clear failed, ret is %d\n", frame::shows::status},
            .bad_length = frame::wrong_length},
};

constexpr frame::exchange bound_in_vlans{
    .type = wire::mac_type,
    .request_size = sizeof(wire::mac_bound_request),
    .reply_capacity = 1,
    .length = frame::length_rule::exactly,
    .length_value = 1,
};

constexpr uint32_t low_half = 0xffff;

struct mode_bits {
    uint8_t flags;
    uint32_t extra;
};

/* Which kinds of entries a mode lists. */
constexpr mode_bits modes[] = {
    {wire::mac_filter_static | wire::mac_filter_dynamic | wire::mac_filter_other, 0}, /* all */
    {wire::mac_filter_static, 0},
    {wire::mac_filter_dynamic, 0},
    {wire::mac_filter_dynamic, wire::mac_extra_convert},
};

constexpr mode_bits bits_of(uint8_t mode)
{
    return mode < std::size(modes) ? modes[mode] : modes[0];
}

struct vlan_name {
    char text[32];

    explicit vlan_name(uint16_t vlan) { std::snprintf(text, sizeof(text), "%s%d", "vlan", vlan); }
};

/* The interface must be known to the gateway before an entry of it; 4 creates what 7 has not found. */
void make_interface_known(const char *ifname, uint8_t tag, print_callback print)
{
    const auto attributes = {frame::text_attribute(wire::mac_attribute_interface, &ifname)};
    int response = 0;
    static_cast<void>(frame::commit({.object = final_set_mac_mace,
                                     .type = frame::mgi_first_attempt,
                                     .request_flag = tag,
                                     .attributes = attributes,
                                     .told = frame::refusal_text::unused},
                                    {}, &response));
    if (response == MGI_RESP_EXISTS)
        return;
    static_cast<void>(frame::commit(
        {.object = final_set_mac_mace, .type = frame::mgi_add, .request_flag = tag, .attributes = attributes},
        {print}));
}

int add_listed(const void *entry, void *context, int)
{
    return show_callback(entry, static_cast<const uint32_t *>(context));
}

} // namespace

int get_mac_items(uint16_t a, uint32_t b, uint16_t c, const uint8_t *mac, entry_callback entry, void *context,
                  print_callback print, uint32_t start, int maximum, uint8_t mode, uint32_t slot,
                  uint32_t service) noexcept
{
    const frame::listing_call call{.where = frame::node_or_local(slot, service),
                                   .print = print,
                                   .row = entry,
                                   .context = context,
                                   .maximum = static_cast<uint32_t>(maximum)};
    const frame::listing_result result =
        frame::list<wire::mac_request>(entries, call, [&](wire::mac_request &request) {
            const mode_bits kinds = bits_of(mode);
            request.opcode = wire::mac_list;
            request.a = a;
            request.b = b & low_half;
            request.start = start;
            request.flags = kinds.flags;
            if (frame::put_bytes(request.mac, mac))
                request.flags |= wire::mac_filter_address;
            request.c = c;
            request.extra = kinds.extra;
        });
    return static_cast<int>(result.rows);
}

int mac_generic_data_get(uint8_t *out, print_callback print, uint32_t slot, uint32_t service) noexcept
{
    return frame::run<wire::mac_request>(
               summary, frame::node_or_local(slot, service), print,
               [](wire::mac_request &request) { request.opcode = wire::mac_summary; },
               [&](frame::reply_view &reply) { reply.copy(out, 0, wire::mac_summary_size); })
        .status_or(-1, 0);
}

int mac_remove_dynamic_items(uint16_t a, uint32_t b, const uint8_t *mac, print_callback print, uint32_t slot,
                             uint32_t service) noexcept
{
    uint32_t result = 0;
    static_cast<void>(frame::run<wire::mac_clear_request>(
        clear_dynamic, frame::node_or_local(slot, service), print,
        [&](wire::mac_clear_request &request) {
            request.opcode = wire::mac_clear_dynamic;
            request.a = a;
            request.b = b & low_half;
            request.slot = slot;
            request.has_mac = frame::put_bytes(request.mac, mac) ? 1 : 0;
        },
        [&](frame::reply_view &reply) { result = reply.u32(offsetof(wire::mac_clear_reply, result)); }));
    return static_cast<int>(result);
}

int mac_dynamic2static(uint16_t a, print_callback print, uint32_t tag) noexcept
{
    return get_mac_items(a, 0, 0, nullptr, add_listed, &tag, print, 0, 0, 3, 0, 0);
}

int show_callback(const void *entry, const uint32_t *tag) noexcept
{
    wire::mac_entry listed;
    std::memcpy(&listed, entry, sizeof(listed));
    if ((listed.flags & wire::mac_entry_static) != 0)
        return 0;
    /* The names end within their fields, whatever the daemon sent. */
    char ifname[sizeof(listed.interface) + 1] = {};
    char name2[sizeof(listed.second_name) + 1] = {};
    std::memcpy(ifname, listed.interface, sizeof(listed.interface));
    std::memcpy(name2, listed.second_name, sizeof(listed.second_name));
    mac_add_static_items(ifname, name2, listed.mac, listed.vlan, nullptr, nullptr, 0, 0,
                         static_cast<uint8_t>(*tag));
    return 0;
}

int is_if_bound_with_l2_mac(uint32_t b, uint32_t c) noexcept
{
    const auto third = static_cast<uint16_t>(c);
    return get_mac_items(0, b, third, nullptr, nullptr, nullptr, nullptr, 0, 0, 1, 0, 0) != 0 ? 1 : 0;
}

int is_if_bound_with_l2_mac_vlan_bitmap(uint16_t a, const uint8_t *bitmap) noexcept
{
    uint8_t answer = 0;
    static_cast<void>(frame::run<wire::mac_bound_request>(
        bound_in_vlans, frame::local(), nullptr,
        [&](wire::mac_bound_request &request) {
            request.opcode = wire::mac_bound;
            request.a = a;
            frame::put_bytes(request.vlans, bitmap);
        },
        [&](frame::reply_view &reply) { reply.copy(&answer, 0, sizeof(answer)); }));
    return answer;
}

int mac_add_static_items(const char *ifname, const char *name2, const uint8_t *mac, uint16_t vlan,
                         print_callback print, char *error, int error_length, uint32_t language,
                         uint8_t tag) noexcept
{
    if (name2 == nullptr || mac == nullptr)
        return -1;
    const vlan_name of_vlan(vlan);
    const char *interface = ifname != nullptr ? ifname : of_vlan.text;
    make_interface_known(interface, tag, print);
    return frame::commit({.object = final_set_mac_mace_ml,
                          .type = frame::mgi_add,
                          .language = static_cast<uint8_t>(language),
                          .request_flag = tag,
                          .attributes = {{wire::mac_attribute_interface, &interface},
                                         {wire::mac_attribute_mac, mac},
                                         {wire::mac_attribute_second_name, &name2},
                                         {wire::mac_attribute_vlan, &vlan}},
                          .told = frame::refusal_text::printed_and_copied},
                         {print, error, error_length});
}

int mac_remove_static_items(const char *ifname, const char *name2, const uint8_t *mac, uint16_t vlan,
                            print_callback print, int all, uint32_t language, uint8_t tag,
                            uint16_t vsysid) noexcept
{
    if (all != 0)
        return frame::commit({.object = final_set_mac_mace,
                              .type = frame::mgi_unset_all,
                              .vsysid = vsysid,
                              .request_flag = tag},
                             {print});
    const vlan_name of_vlan(vlan);
    const char *interface = ifname == nullptr && vlan != 0 ? of_vlan.text : ifname;
    return frame::commit({.object = final_set_mac_mace_ml,
                          .type = frame::mgi_delete,
                          .language = static_cast<uint8_t>(language),
                          .vsysid = vsysid,
                          .request_flag = tag,
                          .attributes = {frame::text_attribute(wire::mac_attribute_interface, &interface),
                                         {wire::mac_attribute_mac, mac},
                                         frame::text_attribute(wire::mac_attribute_second_name, &name2),
                                         {wire::mac_attribute_vlan, &vlan}},
                          .parameter_error = mac == nullptr ? "Parameter mac is NULL\n" : nullptr},
                         {print});
}

int is_mac_null(const uint8_t *mac) noexcept
{
    return mac_is_zerocast(mac);
}
