#include <libmix/gas.h>

#include "frame/listing.h"
#include "frame/management.h"
#include "frame/record.h"
#include "neigh/gas_wire.h"

namespace
{

using namespace mix;

constexpr frame::texts show_texts = frame::usual_texts("Gratuitous ARP send show failed, ret is %d\n");

constexpr frame::listing senders{
    .ask = {.type = wire::gas_type,
            .request_size = sizeof(wire::gas_list_request),
            .reply_capacity = wire::gas_page_capacity,
            .say = show_texts},
    .request_cursor = MIX_FIELD(wire::gas_list_request, cursor),
    .header = sizeof(wire::gas_page),
    .row_size = wire::gas_row_size,
    .cursor = MIX_FIELD(wire::gas_page, cursor),
    .count = MIX_FIELD(wire::gas_page, count),
};

constexpr frame::exchange lookup{
    .type = wire::gas_type,
    .request_size = sizeof(wire::gas_lookup_request),
    .say = show_texts,
};

} // namespace

int gas_add_item(uint8_t language, uint32_t address, const uint8_t *mac, const char *ifname, uintptr_t second,
                 uint8_t option, print_callback print, char *error_buffer, int32_t error_length) noexcept
{
    const bool complete = ifname != nullptr && mac != nullptr && second != 0 && option != 0;
    uint8_t own_mac[6] = {};
    frame::put_bytes(own_mac, mac);
    return frame::commit({.object = final_set_gas_gase,
                          .type = frame::mgi_add,
                          .language = language,
                          .attributes = {{wire::gas_address, &address},
                                         {wire::gas_ifname, &ifname},
                                         {wire::gas_second, &second},
                                         {wire::gas_mac, own_mac},
                                         {wire::gas_option, &option}},
                          .told = frame::refusal_text::printed_and_copied,
                          .parameter_error = complete ? nullptr : "Parameter error\n"},
                         {print, error_buffer, error_length});
}

int gas_del_item(uint8_t language, uint32_t address, const char *ifname, print_callback print,
                 char *error_buffer, int32_t error_length) noexcept
{
    return frame::commit({.object = final_set_gas_gase,
                          .type = frame::mgi_delete,
                          .language = language,
                          .attributes = {{wire::gas_address, &address}, {wire::gas_ifname, &ifname}},
                          .told = frame::refusal_text::copied_even_if_absent,
                          .parameter_error = ifname != nullptr ? nullptr : "ifname error\n"},
                         {print, error_buffer, error_length});
}

uint32_t gas_get_item(uint16_t selector, row_callback row, void *context, print_callback print) noexcept
{
    return frame::list<wire::gas_list_request>(senders, {.print = print, .row = row, .context = context},
                                               [&](wire::gas_list_request &request) {
                                                   request.subcommand = wire::gas_list;
                                                   request.selector = selector;
                                               })
        .rows;
}

uint32_t gas_get_item_one(uint32_t, uint32_t address, uint16_t selector, print_callback print) noexcept
{
    const frame::outcome result = frame::run<wire::gas_lookup_request>(
        lookup, frame::local(), print, [&](wire::gas_lookup_request &request) {
            request.subcommand = wire::gas_lookup;
            request.address = address;
            request.selector = selector;
        });
    return result.at == frame::stage::no_request ? 0 : result.length;
}
