/*
 * The IPv6 neighbour table. The spellings of its refusals differ between the functions on purpose: they are
 * known to those who search logs for them.
 */
#include <libmix/nd.h>

#include "frame/listing.h"
#include "frame/management.h"
#include "neigh/nd_wire.h"

namespace
{

using namespace mix;

constexpr frame::listing neighbours{
    .ask{
        .type = wire::nd_type,
        .request_size = sizeof(wire::nd_request),
        .reply_capacity = wire::nd_page_capacity,
        .say = frame::usual_texts("nd show failed, ret is %d\n"),
    },
    .request_cursor = MIX_FIELD(wire::nd_request, cursor),
    .request_budget = MIX_FIELD(wire::nd_request, budget),
    .request_first = MIX_FIELD(wire::nd_request, first_request),
    .header = sizeof(wire::nd_page),
    .row_size = wire::nd_row_size,
    .cursor = MIX_FIELD(wire::nd_page, cursor),
    .count = MIX_FIELD(wire::nd_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::ignored,
};

constexpr frame::listing filtered_neighbours{
    .ask{
        .type = wire::nd_type,
        .request_size = sizeof(wire::nd_filtered_request),
        .reply_capacity = wire::nd_page_capacity,
        .say = {.no_request = frame::no_enough_memory,
                .no_reply = frame::no_enough_memory,
                .not_sent = {"ipcmsg send failed %d\n", frame::shows::send_result},
                .refused = {"NEIGHBOR show failed, ret is %d\n", frame::shows::status},
                .bad_length = frame::wrong_length,
                .bad_count = frame::wrong_length},
    },
    .request_cursor = MIX_FIELD(wire::nd_filtered_request, cursor),
    .request_budget = MIX_FIELD(wire::nd_filtered_request, budget),
    .request_first = MIX_FIELD(wire::nd_filtered_request, first_request),
    .header = sizeof(wire::nd_filtered_page),
    .row_size = wire::nd_row_size,
    .cursor = MIX_FIELD(wire::nd_filtered_page, cursor),
    .count = MIX_FIELD(wire::nd_filtered_page, count),
    .total = MIX_FIELD(wire::nd_filtered_page, total),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::negative_stops,
};

constexpr frame::exchange clear_dynamic{
    .type = wire::nd_type,
    .request_size = sizeof(wire::nd_clear_request),
    .say = {.function = "nd_remove_dynamic_items_detail",
            .no_request = frame::function_no_enough_memory,
            .no_reply = frame::no_enough_memory,
            .not_sent = frame::send_failed,
            .refused = {"nd clear failed, ret is %d\n", frame::shows::status}},
};

constexpr frame::exchange summary{
    .type = wire::nd_type,
    .request_size = sizeof(wire::nd_summary_request),
    .reply_capacity = wire::nd_summary_size,
    .length = frame::length_rule::exactly,
    .length_value = wire::nd_summary_size,
    .say = frame::usual_texts("ND show failed, ret is %d\n"),
};

struct neighbour_filter {
    uint16_t vsysid;
    uint16_t first;
    uint16_t second;
    const uint8_t *address;
    uint32_t first_request;
};

uint32_t list_neighbours(wire::nd_subcommand which, const neighbour_filter &filter,
                         const frame::listing_call &call)
{
    return frame::list<wire::nd_request>(neighbours, call,
                                         [&](wire::nd_request &request) {
                                             request.subcommand = which;
                                             request.first = filter.first;
                                             request.second = filter.second;
                                             request.vsysid = filter.vsysid;
                                             frame::put_bytes(request.address, filter.address);
                                             request.first_request = filter.first_request;
                                         })
        .rows;
}

} // namespace

uint32_t get_nd_items_detail(uint16_t vsysid, uint16_t first, uint16_t second, const uint8_t *address,
                             row_callback row, void *context, print_callback print, uint32_t first_request,
                             int32_t maximum, uint32_t node, uint32_t instance) noexcept
{
    return list_neighbours(wire::nd_list, {vsysid, first, second, address, first_request},
                           {.where = frame::node_or_local(node, instance),
                            .print = print,
                            .row = row,
                            .context = context,
                            .maximum = static_cast<uint32_t>(maximum)});
}

uint32_t get_nd_items_static_detail(uint16_t vsysid, uint16_t first, uint16_t second, const uint8_t *address,
                                    row_callback row, void *context, print_callback print,
                                    uint32_t first_request, int32_t maximum, uint32_t node,
                                    uint32_t instance) noexcept
{
    return list_neighbours(wire::nd_static_list, {vsysid, first, second, address, first_request},
                           {.where = frame::node_or_local(node, instance),
                            .print = print,
                            .row = row,
                            .context = context,
                            .maximum = static_cast<uint32_t>(maximum)});
}

uint32_t get_nd_items(uint16_t second, const uint8_t *address, row_callback row, void *context,
                      print_callback print, uint32_t first_request, int32_t maximum, uint32_t node,
                      uint32_t instance) noexcept
{
    return get_nd_items_detail(0, 0, second, address, row, context, print, first_request, maximum, node,
                               instance);
}

uint32_t get_nd_items_ex2_vr(row_callback row, void *context, print_callback print, uint32_t first_request,
                             uint32_t maximum, const uint8_t *address, const uint8_t *mac, uint32_t selector,
                             int8_t option, uint16_t vrid, uint32_t *total) noexcept
{
    const frame::listing_call call{.print = print, .row = row, .context = context, .maximum = maximum};
    const frame::listing_result result = frame::list<wire::nd_filtered_request>(
        filtered_neighbours, call, [&](wire::nd_filtered_request &request) {
            request.subcommand = wire::nd_filtered_list;
            request.vrid = vrid;
            request.selector = selector;
            request.vsysid = get_mgi_vsysid();
            frame::put_bytes(request.address, address);
            request.option = static_cast<uint8_t>(option);
            frame::put_bytes(request.mac, mac);
            request.first_request = first_request;
        });
    if (result.end == frame::listing_result::ending::complete && total != nullptr)
        *total = result.total;
    return result.rows;
}

int nd_remove_dynamic_items_detail(uint16_t first, uint16_t second, uint16_t third, const uint8_t *address,
                                   print_callback print, uint32_t node, uint8_t option,
                                   uint32_t instance) noexcept
{
    return frame::run<wire::nd_clear_request>(clear_dynamic, frame::node_or_local(node, instance), print,
                                              [&](wire::nd_clear_request &request) {
                                                  request.subcommand = wire::nd_clear_dynamic;
                                                  frame::put_bytes(request.address, address);
                                                  request.third = third;
                                                  request.second = second;
                                                  request.first = first;
                                                  request.node = node;
                                                  request.option = option;
                                              })
        .status_or(-1);
}

int nd_generic_data_get(uint16_t first, uint16_t second, void *out, print_callback print, uint32_t node,
                        uint32_t instance) noexcept
{
    return frame::run<wire::nd_summary_request>(
               summary, frame::node_or_local(node, instance), print,
               [&](wire::nd_summary_request &request) {
                   request.subcommand = wire::nd_summary;
                   request.second = second;
                   request.first = first;
               },
               [&](frame::reply_view &reply) { reply.copy(out, 0, wire::nd_summary_size); })
        .status_or(-1);
}

void exec_ipv6_nd_dynamic_to_static_callback(const void *row) noexcept
{
    const auto *bytes = static_cast<const uint8_t *>(row);
    const uint8_t flags = bytes[wire::nd_row_flags];
    const uint8_t state = (flags >> wire::nd_state_shift) & wire::nd_state_mask;
    if ((flags & wire::nd_flag_static) != 0 || state == wire::nd_state_kept)
        return;
    const char *ifname = static_cast<const char *>(row) + wire::nd_row_interface;
    /* The row's own name is passed on. Only one that fills its field, and so has no end, is copied. */
    char full_name[wire::nd_row_interface_size + 1] = {};
    if (std::memchr(ifname, '\0', wire::nd_row_interface_size) == nullptr) {
        std::memcpy(full_name, ifname, wire::nd_row_interface_size);
        ifname = full_name;
    }
    static_cast<void>(
        frame::commit({.object = final_set_neighbor_neighbor,
                       .type = frame::mgi_set,
                       .attributes = {{wire::nd_attribute_address, bytes + wire::nd_row_address},
                                      {wire::nd_attribute_interface, &ifname},
                                      {wire::nd_attribute_mac, bytes + wire::nd_row_mac}},
                       .told = frame::refusal_text::unused},
                      {}));
}
