/* The ARP table: queries. */
#include <libmix/arp.h>

#include <string_view>

#include "frame/listing.h"
#include "misc/digits.h"
#include "neigh/arp_wire.h"
#include "platform/mgi.h"

namespace
{

using namespace mix;

constexpr frame::texts show_texts = frame::usual_texts("ARP show failed, ret is %d\n");

/* Exchanges. A reply of which only the status counts keeps the capacity of 4. */

constexpr frame::exchange count_entries{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_request),
};

constexpr frame::exchange count_proxies{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_proxy_request),
};

constexpr frame::exchange count_joined{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_mac_request),
    .say = show_texts,
};

constexpr frame::exchange count_duplicates{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_duplicate_request),
    .say = frame::usual_texts("ARP get reduplicate mac count failed, ret is %d\n"),
};

constexpr frame::exchange summary{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_request),
    .reply_capacity = wire::arp_summary_size,
    .length = frame::length_rule::exactly,
    .length_value = wire::arp_summary_size,
    .say = show_texts,
};

constexpr frame::exchange router_name{
    .daemon = wire::vrname_daemon,
    .type = wire::vrname_type,
    .request_size = sizeof(wire::vrname_request),
    .reply_capacity = wire::vrname_size,
    .zero_reply = true,
};

/* Listings. A search is one page of the entry list whose position travels where the budget stands. */

constexpr frame::exchange ask_entries{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_request),
    .reply_capacity = wire::arp_page_capacity,
    .say = show_texts,
};

constexpr frame::listing entries{
    .ask = ask_entries,
    .request_cursor = MIX_FIELD(wire::arp_request, cursor),
    .request_budget = MIX_FIELD(wire::arp_request, budget),
    .request_first = MIX_FIELD(wire::arp_request, first_request),
    .header = sizeof(wire::arp_page),
    .row_size = wire::arp_row_size,
    .cursor = MIX_FIELD(wire::arp_page, cursor),
    .count = MIX_FIELD(wire::arp_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::ignored,
};

constexpr frame::listing found{
    .ask = ask_entries,
    .request_cursor = MIX_FIELD(wire::arp_request, budget),
    .header = sizeof(wire::arp_page),
    .row_size = wire::arp_row_size,
    .cursor = MIX_FIELD(wire::arp_page, cursor),
    .count = MIX_FIELD(wire::arp_page, count),
    .budget = frame::budget_rule::none,
    .answer = frame::row_answer::ignored,
};

constexpr frame::listing joined{
    .ask{
        .type = wire::arp_type,
        .request_size = sizeof(wire::arp_mac_request),
        .reply_capacity = wire::arp_page_capacity,
        .say = show_texts,
    },
    .request_cursor = MIX_FIELD(wire::arp_mac_request, cursor),
    .request_budget = MIX_FIELD(wire::arp_mac_request, budget),
    .request_first = MIX_FIELD(wire::arp_mac_request, first_request),
    .header = sizeof(wire::arp_page),
    .row_size = wire::arp_mac_row_size,
    .cursor = MIX_FIELD(wire::arp_page, cursor),
    .count = MIX_FIELD(wire::arp_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::negative_stops,
};

void select_entries(wire::arp_request &request, wire::arp_subcommand what, uint16_t vsysid, uint16_t vrid)
{
    request.subcommand = what;
    request.vsysid = vsysid;
    request.vrid = vrid;
}

/* What the joined list and its count have in common. */
struct joined_filter {
    uint32_t selector;
    const uint8_t *mac;
    const char *ifname;
    const char *second_name;
    const char *third_name;
    uint8_t first_option;
    uint8_t second_option;
    uint16_t vrid;
};

void select_joined(wire::arp_mac_request &request, wire::arp_subcommand what, const joined_filter &filter)
{
    request.subcommand = what;
    request.selector = filter.selector;
    request.vrid = filter.vrid;
    request.vsysid = get_mgi_vsysid();
    request.has_mac = frame::put_bytes(request.mac, filter.mac) ? 1 : 0;
    request.first_option = filter.first_option;
    request.second_option = filter.second_option;
    frame::put_name(request.interface, filter.ifname);
    frame::put_name(request.second_name, filter.second_name);
    frame::put_name(request.third_name, filter.third_name);
}

/*
 * 0011.2233.4455. One dot in its place is enough on purpose; the characters that stand where the digits
 * belong are then read as they are, so the other place may hold a digit, which is passed over.
 */
bool is_dotted_mac(std::string_view text)
{
    constexpr size_t first_dot = 4, second_dot = 9;
    if (text.size() != 14 || (text[first_dot] != '.' && text[second_dot] != '.'))
        return false;
    for (size_t i = 0; i < text.size(); i++) {
        const bool dot_place = i == first_dot || i == second_dot;
        if (hex_value(text[i]) < 0 && !(dot_place && text[i] == '.'))
            return false;
    }
    return true;
}

void read_dotted_mac(const char *text, uint8_t (&mac)[6])
{
    constexpr uint8_t digits[6] = {0, 2, 5, 7, 10, 12};
    if (text == nullptr || !is_dotted_mac(text))
        return;
    for (size_t i = 0; i < sizeof(mac); i++)
        mac[i] = static_cast<uint8_t>(hex_value(text[digits[i]]) << 4 | hex_value(text[digits[i] + 1]));
}

struct search_call {
    arp_search_callback row;
    void *state;
};

int give_found_row(const void *row, void *context, int)
{
    const auto *call = static_cast<const search_call *>(context);
    return call->row(row, call->state);
}

/* One byte more than a name takes, always zero: a name of 32 bytes, which has no terminator, ends there. */
char vrname[wire::vrname_size + 1];

void set_vrname(const char *text)
{
    std::memcpy(vrname, text, std::strlen(text));
}

} // namespace

uint32_t get_arp_items_detail(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                              row_callback row, void *context, print_callback print, uint32_t first_request,
                              int32_t maximum, uint32_t node, uint16_t instance) noexcept
{
    const frame::listing_call call{.where = frame::node_or_local(node, instance),
                                   .print = print,
                                   .row = row,
                                   .context = context,
                                   .maximum = static_cast<uint32_t>(maximum)};
    return frame::list<wire::arp_request>(entries, call,
                                          [&](wire::arp_request &request) {
                                              select_entries(request, wire::arp_list, vsysid, vrid);
                                              request.second = second;
                                              request.third = third;
                                              request.first_request = first_request;
                                          })
        .rows;
}

uint32_t get_arp_items(uint16_t vsysid, uint16_t second, uint32_t third, row_callback row, void *context,
                       print_callback print, uint32_t first_request, int32_t maximum) noexcept
{
    return get_arp_items_detail(vsysid, 0, second, third, row, context, print, first_request, maximum, 0, 0);
}

uint32_t get_arp_items_vr(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third, row_callback row,
                          void *context, print_callback print, uint32_t first_request,
                          int32_t maximum) noexcept
{
    return get_arp_items_detail(vsysid, vrid, second, third, row, context, print, first_request, maximum, 0,
                                0);
}

uint32_t search_arp_items(uint32_t, uint32_t, arp_search_callback row, void *search_state,
                          print_callback print, const void *filter) noexcept
{
    const auto *state = static_cast<const arp_search_state *>(search_state);
    search_call each{row, search_state};
    const frame::listing_call call{.print = print,
                                   .row = row != nullptr ? give_found_row : nullptr,
                                   .context = &each,
                                   .start_cursor = *state->position,
                                   .single_page = true};
    const frame::listing_result result =
        frame::list<wire::arp_request>(found, call, [&](wire::arp_request &request) {
            request.subcommand = wire::arp_list;
            request.first_request = *state->key;
            request.search_mode = wire::arp_search_mode;
            request.search_scope = *state->scope;
            frame::put_bytes(request.search_filter, filter);
        });
    if (result.end != frame::listing_result::ending::failed)
        *state->position = result.cursor;
    return result.rows;
}

int get_arp_items_count(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third, uint32_t node,
                        uint16_t instance) noexcept
{
    return frame::run<wire::arp_request>(count_entries, frame::node_or_local(node, instance), nullptr,
                                         [&](wire::arp_request &request) {
                                             select_entries(request, wire::arp_count, vsysid, vrid);
                                             request.second = second;
                                             request.third = third;
                                         })
        .status_or(0);
}

int get_proxy_arp_items_count(uint16_t vsysid, uint16_t vrid, const uint8_t *key, uint32_t third,
                              uint32_t node, uint16_t instance) noexcept
{
    return frame::run<wire::arp_proxy_request>(count_proxies, frame::node_or_local(node, instance), nullptr,
                                               [&](wire::arp_proxy_request &request) {
                                                   request.subcommand = wire::arp_proxy_count;
                                                   request.vsysid = vsysid;
                                                   request.vrid = vrid;
                                                   frame::put_bytes(request.key, key);
                                                   request.third = third;
                                               })
        .status_or(0);
}

int arp_generic_data_get(uint16_t vsysid, uint16_t vrid, void *out, print_callback print, uint32_t node,
                         uint16_t instance) noexcept
{
    return frame::run<wire::arp_request>(
               summary, frame::node_or_local(node, instance), print,
               [&](wire::arp_request &request) { select_entries(request, wire::arp_summary, vsysid, vrid); },
               [&](frame::reply_view &reply) { reply.copy(out, 0, wire::arp_summary_size); })
        .status_or(-1);
}

uint32_t get_arp_mac_items_ex2_vr(row_callback row, void *context, print_callback print,
                                  uint32_t first_request, int32_t maximum, uint32_t selector,
                                  const uint8_t *mac, const char *ifname, const char *second_name,
                                  const char *third_name, uint8_t first_option, uint8_t second_option,
                                  uint16_t vrid, uint8_t display_mode) noexcept
{
    const frame::listing_call call{
        .print = print, .row = row, .context = context, .maximum = static_cast<uint32_t>(maximum)};
    const joined_filter filter{selector,   mac,          ifname,        second_name,
                               third_name, first_option, second_option, vrid};
    return frame::list<wire::arp_mac_request>(joined, call,
                                              [&](wire::arp_mac_request &request) {
                                                  select_joined(request, wire::arp_mac_list, filter);
                                                  request.first_request = first_request;
                                                  request.display_mode = display_mode;
                                              })
        .rows;
}

/* The wrappers: virtual router 1 and display mode 2 where the caller names none. */

uint32_t get_arp_mac_items_ex2(row_callback row, void *context, print_callback print, uint32_t first_request,
                               int32_t maximum, uint32_t selector, const uint8_t *mac, const char *ifname,
                               const char *second_name, const char *third_name, uint8_t first_option,
                               uint8_t second_option) noexcept
{
    return get_arp_mac_items_ex2_vr(row, context, print, first_request, maximum, selector, mac, ifname,
                                    second_name, third_name, first_option, second_option, 1, 2);
}

uint32_t get_arp_mac_items_ex_vr(row_callback row, void *context, print_callback print,
                                 uint32_t first_request, int32_t maximum, uint32_t selector,
                                 const uint8_t *mac, const char *ifname, const char *second_name,
                                 const char *third_name, uint16_t vrid) noexcept
{
    return get_arp_mac_items_ex2_vr(row, context, print, first_request, maximum, selector, mac, ifname,
                                    second_name, third_name, 0, 0, vrid, 2);
}

uint32_t get_arp_mac_items_ex(row_callback row, void *context, print_callback print, uint32_t first_request,
                              int32_t maximum, uint32_t selector, const uint8_t *mac, const char *ifname,
                              const char *second_name, const char *third_name) noexcept
{
    return get_arp_mac_items_ex2(row, context, print, first_request, maximum, selector, mac, ifname,
                                 second_name, third_name, 0, 0);
}

uint32_t get_arp_mac_items_vr(row_callback row, void *context, print_callback print, uint32_t first_request,
                              int32_t maximum, uint16_t vrid, uint8_t display_mode) noexcept
{
    return get_arp_mac_items_ex2_vr(row, context, print, first_request, maximum, 0, nullptr, nullptr, nullptr,
                                    nullptr, 0, 0, vrid, display_mode);
}

uint32_t get_arp_mac_items(row_callback row, void *context, print_callback print, uint32_t first_request,
                           int32_t maximum) noexcept
{
    return get_arp_mac_items_ex(row, context, print, first_request, maximum, 0, nullptr, nullptr, nullptr,
                                nullptr);
}

int get_arp_mac_items_count2_vr(print_callback print, uint32_t selector, const uint8_t *mac,
                                const char *ifname, const char *second_name, const char *third_name,
                                uint8_t first_option, uint8_t second_option, uint16_t vrid) noexcept
{
    const joined_filter filter{selector,   mac,          ifname,        second_name,
                               third_name, first_option, second_option, vrid};
    return frame::run<wire::arp_mac_request>(
               count_joined, frame::local(), print,
               [&](wire::arp_mac_request &request) { select_joined(request, wire::arp_mac_count, filter); })
        .status_or(0);
}

int get_arp_mac_items_count2(print_callback print, uint32_t selector, const uint8_t *mac, const char *ifname,
                             const char *second_name, const char *third_name, uint8_t first_option,
                             uint8_t second_option) noexcept
{
    return get_arp_mac_items_count2_vr(print, selector, mac, ifname, second_name, third_name, first_option,
                                       second_option, 1);
}

int get_arp_mac_items_count(print_callback print, uint32_t selector, const uint8_t *mac, const char *ifname,
                            const char *second_name, const char *third_name) noexcept
{
    return get_arp_mac_items_count2(print, selector, mac, ifname, second_name, third_name, 0, 0);
}

int get_arp_mac_items_count_vr(print_callback print, uint32_t selector, const uint8_t *mac,
                               const char *ifname, const char *second_name, const char *third_name,
                               uint16_t vrid) noexcept
{
    return get_arp_mac_items_count2_vr(print, selector, mac, ifname, second_name, third_name, 0, 0, vrid);
}

int get_arp_reduplicate_mac_items_count(print_callback print, const char *mac) noexcept
{
    return frame::run<wire::arp_duplicate_request>(count_duplicates, frame::local(), print,
                                                   [&](wire::arp_duplicate_request &request) {
                                                       request.subcommand = wire::arp_duplicate_count;
                                                       read_dotted_mac(mac, request.mac);
                                                       request.vsysid = get_mgi_vsysid();
                                                   })
        .status_or(0);
}

const char *get_vrname_by_vrid(uint32_t vrid) noexcept
{
    std::memset(vrname, 0, sizeof(vrname));
    const frame::outcome got = frame::run<wire::vrname_request>(
        router_name, frame::local(), nullptr, [&](wire::vrname_request &request) { request.vrid = vrid; },
        [](frame::reply_view &reply) { reply.text(vrname, sizeof(vrname), 0, wire::vrname_size); });
    if (got.at == frame::stage::not_sent)
        set_vrname("ipc-fail");
    if (got.at == frame::stage::refused)
        set_vrname("not-found-name");
    return vrname;
}
