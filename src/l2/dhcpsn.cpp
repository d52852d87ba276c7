/* DHCP snooping. */
#include <libmix/dhcpsn.h>

#include "frame/listing.h"
#include "frame/management.h"
#include "l2/dhcpsn_wire.h"

namespace
{

using namespace mix;

constexpr frame::texts show_texts = frame::usual_texts("DHCP snooping show failed, ret is %d\n");

constexpr frame::listing bindings{
    .ask{
        .type = wire::dhcpsn_type,
        .request_size = sizeof(wire::dhcpsn_request),
        .reply_capacity = wire::dhcpsn_page_capacity,
        .say = show_texts,
    },
    .request_cursor = MIX_FIELD(wire::dhcpsn_request, cursor),
    .request_budget = MIX_FIELD(wire::dhcpsn_request, budget),
    .request_first = MIX_FIELD(wire::dhcpsn_request, start),
    .header = sizeof(wire::dhcpsn_page),
    .row_size = wire::dhcpsn_binding_size,
    .cursor = MIX_FIELD(wire::dhcpsn_page, cursor),
    .count = MIX_FIELD(wire::dhcpsn_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::not_zero_stops,
};

constexpr frame::exchange count_bindings{
    .type = wire::dhcpsn_type,
    .request_size = sizeof(wire::dhcpsn_request),
    .say = show_texts,
};

/* Its status is handed back whatever it is. */
constexpr frame::exchange clear_dynamic{
    .type = wire::dhcpsn_type,
    .request_size = sizeof(wire::dhcpsn_clear_request),
    .refusal = frame::refused_when::never,
    .say = {.function = "dhcpsn_remove_dynamic_items",
            .no_request = frame::function_no_enough_memory,
            .not_sent = frame::send_failed},
};

struct binding_filter {
    uint16_t vlan;
    uint16_t b;
    uint16_t c;
    uint32_t d;
    const uint8_t *mac;
};

void select_bindings(wire::dhcpsn_request &request, wire::dhcpsn_opcode what, const binding_filter &filter)
{
    request.opcode = what;
    request.has_vlan = filter.vlan != 0 ? 1 : 0;
    request.vlan_or_c = filter.vlan != 0 ? filter.vlan : filter.c;
    request.b = filter.b;
    request.has_mac = frame::put_bytes(request.mac, filter.mac) ? 1 : 0;
    request.d = filter.d;
}

/* value: the variable that carries the setting. */
int set_one(const char *ifname, wire::dhcpsn_attribute setting, const void *value, print_callback print)
{
    static_cast<void>(frame::commit(
        {.object = final_set_if_if_dhcpsn,
         .type = frame::mgi_set,
         .attributes = {frame::text_attribute(wire::dhcpsn_attribute_interface, &ifname), {setting, value}}},
        {print}));
    return 0;
}

int show_settings(const wire::dhcpsn_selection &selection, row_callback row, void *context,
                  print_callback print)
{
    dhcpsn_show_context deliver_to{row, context, print, 1};
    mgi_message message;
    mgi_init_rqt_message(&message);
    mgi_set_rqt_type(&message, frame::mgi_read);
    mgi_set_rqt_cookie(&message, &selection, sizeof(selection));
    final_get_if_if_dhcpsn(&message, dhcpsn_cfg_show_callback, &deliver_to);
    return 0;
}

/* False when the row callback ended it. */
bool deliver_settings(const uint8_t *row, uint32_t count, dhcpsn_show_context &to)
{
    if (to.row == nullptr)
        return true;
    for (uint32_t i = 0; i < count; i++, row += wire::dhcpsn_setting_size) {
        const int answer = to.row(row, to.context, to.first);
        to.first = 0;
        if (answer != 0)
            return false;
    }
    return true;
}

/* As the batch says, but no more than arrived. */
uint32_t rows_of(const uint8_t *data, uint32_t length)
{
    if (length < sizeof(wire::dhcpsn_batch))
        return 0;
    uint16_t claimed;
    std::memcpy(&claimed, data + offsetof(wire::dhcpsn_batch, count), sizeof(claimed));
    const uint32_t arrived = (length - sizeof(wire::dhcpsn_batch)) / wire::dhcpsn_setting_size;
    return std::min<uint32_t>(claimed, arrived);
}

} // namespace

int dhcpsn_enable_set(const char *ifname, uint8_t value, print_callback print) noexcept
{
    return set_one(ifname, wire::dhcpsn_attribute_enable, &value, print);
}

int dhcpsn_deny_request_set(const char *ifname, uint8_t value, print_callback print) noexcept
{
    return set_one(ifname, wire::dhcpsn_attribute_deny_request, &value, print);
}

int dhcpsn_deny_response_set(const char *ifname, uint8_t value, print_callback print) noexcept
{
    return set_one(ifname, wire::dhcpsn_attribute_deny_response, &value, print);
}

int dhcpsn_validity_check_set(const char *ifname, uint8_t value, print_callback print) noexcept
{
    return set_one(ifname, wire::dhcpsn_attribute_validity, &value, print);
}

int dhcpsn_rate_limit_set(const char *ifname, uint16_t value, print_callback print) noexcept
{
    return set_one(ifname, wire::dhcpsn_attribute_rate_limit, &value, print);
}

int dhcpsn_if_config_show(const char *ifname, uint8_t selector, row_callback row, void *context,
                          print_callback print) noexcept
{
    wire::dhcpsn_selection selection{};
    if (ifname != nullptr) {
        frame::put_name(selection.interface, ifname);
        selection.marker = wire::dhcpsn_marker_interface;
        selection.request_count = wire::dhcpsn_one;
    } else {
        selection.selector = selector != 0 ? selector : wire::dhcpsn_every_interface;
        selection.request_count = wire::dhcpsn_many;
    }
    return show_settings(selection, row, context, print);
}

int dhcpsn_vlan_config_show(uint16_t vlan, row_callback row, void *context, print_callback print) noexcept
{
    wire::dhcpsn_selection selection{};
    selection.vlan = vlan;
    selection.marker = vlan != 0 ? 0 : wire::dhcpsn_marker_all_vlans;
    selection.request_count = vlan != 0 ? wire::dhcpsn_one : wire::dhcpsn_many;
    return show_settings(selection, row, context, print);
}

int dhcpsn_cfg_show_callback(const void *data, uint32_t length, int error, void *context) noexcept
{
    auto &to = *static_cast<dhcpsn_show_context *>(context);
    if (data == nullptr) {
        if (to.print != nullptr)
            to.print("Error: the para data of callback is NULL\n");
        return -1;
    }
    const auto *bytes = static_cast<const uint8_t *>(data);
    if (!deliver_settings(bytes + sizeof(wire::dhcpsn_batch), rows_of(bytes, length), to))
        return -1;
    if (error == 0)
        return 0;
    const char *text = get_errString(0);
    if (text != nullptr && to.print != nullptr)
        to.print("%s", text);
    return -1;
}

int get_dhcpsn_items_number(uint16_t vlan, uint16_t b, uint16_t c, uint32_t d, const uint8_t *mac,
                            print_callback print) noexcept
{
    return frame::run<wire::dhcpsn_request>(
               count_bindings, frame::local(), print,
               [&](wire::dhcpsn_request &request) {
                   select_bindings(request, wire::dhcpsn_count, {vlan, b, c, d, mac});
               })
        .status_or(0);
}

int get_dhcpsn_items(uint16_t vlan, uint16_t b, uint16_t c, uint32_t d, const uint8_t *mac, row_callback row,
                     void *context, print_callback print, uint32_t start, int maximum) noexcept
{
    const frame::listing_call call{
        .print = print, .row = row, .context = context, .maximum = static_cast<uint32_t>(maximum)};
    const frame::listing_result result =
        frame::list<wire::dhcpsn_request>(bindings, call, [&](wire::dhcpsn_request &request) {
            select_bindings(request, wire::dhcpsn_list, {vlan, b, c, d, mac});
            request.start = start;
        });
    return static_cast<int>(result.rows);
}

int dhcpsn_remove_dynamic_items(uint16_t a, uint32_t b, uint16_t c, print_callback print) noexcept
{
    return frame::run<wire::dhcpsn_clear_request>(clear_dynamic, frame::local(), print,
                                                  [&](wire::dhcpsn_clear_request &request) {
                                                      request.opcode = wire::dhcpsn_clear_dynamic;
                                                      request.a = a;
                                                      request.c = c;
                                                      request.b = b;
                                                  })
        .status_or(0, -1);
}
