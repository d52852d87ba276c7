#include <libmix/spoofing.h>

#include "frame/listing.h"
#include "frame/record.h"
#include "misc/digits.h"
#include "neigh/spoofing_wire.h"

namespace
{

using namespace mix;

/* --- statistics: 16-bit cursor and count, ARP with a budget, ND without --- */

constexpr frame::listing aspf_items{
    .ask = {.type = wire::aspf_type,
            .request_size = sizeof(wire::spoofing_list_request),
            .reply_capacity = wire::statistics_capacity,
            .say = frame::usual_texts("ARP spoofing statistics show failed, ret is %d\n")},
    .request_cursor = MIX_FIELD(wire::spoofing_list_request, cursor),
    .request_budget = MIX_FIELD(wire::spoofing_list_request, word),
    .header = sizeof(wire::aspf_page),
    .row_size = wire::aspf_row_size,
    .cursor = MIX_FIELD(wire::aspf_page, cursor),
    .count = MIX_FIELD(wire::aspf_page, count),
    .budget = frame::budget_rule::exactly_zero,
};

constexpr frame::listing ndspf_items{
    .ask = {.type = wire::ndspf_type,
            .request_size = sizeof(wire::spoofing_list_request),
            .reply_capacity = wire::statistics_capacity,
            .say = frame::usual_texts("ND spoofing statistics show failed, ret is %d\n")},
    .request_cursor = MIX_FIELD(wire::spoofing_list_request, cursor),
    .header = sizeof(wire::ndspf_page),
    .row_size = wire::ndspf_row_size,
    .cursor = MIX_FIELD(wire::ndspf_page, cursor),
    .count = MIX_FIELD(wire::ndspf_page, count),
};

constexpr frame::exchange aspf_clear{
    .type = wire::aspf_type,
    .request_size = sizeof(wire::aspf_clear_request),
    .say = frame::usual_texts("ARP spoofing statistics clear failed, ret is %d\n"),
};

constexpr frame::exchange ndspf_clear{
    .type = wire::ndspf_type,
    .request_size = sizeof(wire::ndspf_clear_request),
    .say = frame::usual_texts("ND spoofing statistics clear failed, ret is %d\n"),
};

/* --- inspection: at daemon 1, count before cursor, no budget --- */

constexpr frame::listing arpi_settings{
    .ask = {.daemon = wire::inspection_daemon,
            .type = wire::arpi_type,
            .request_size = sizeof(wire::arpi_request),
            .reply_capacity = wire::inspection_capacity,
            .say = frame::usual_texts("ARP inspection show failed, ret is %d\n")},
    .request_cursor = MIX_FIELD(wire::arpi_request, cursor),
    .header = sizeof(wire::inspection_page),
    .row_size = wire::arpi_row_size,
    .cursor = MIX_FIELD(wire::inspection_page, cursor),
    .count = MIX_FIELD(wire::inspection_page, count),
};

constexpr frame::listing ndi_settings{
    .ask = {.daemon = wire::inspection_daemon,
            .type = wire::ndi_type,
            .request_size = sizeof(wire::ndi_request),
            .reply_capacity = wire::inspection_capacity,
            .say = frame::usual_texts("ND inspection show failed, ret is %d\n")},
    .request_cursor = MIX_FIELD(wire::ndi_request, cursor),
    .header = sizeof(wire::inspection_page),
    .row_size = wire::ndi_row_size,
    .cursor = MIX_FIELD(wire::inspection_page, cursor),
    .count = MIX_FIELD(wire::inspection_page, count),
};

constexpr uint8_t mode_by_interface = 2;

constexpr bool selects_by_name(uint8_t mode)
{
    return mode == 1 || mode == mode_by_interface;
}

void put_selector(wire::inspection_selector &selector, uint8_t mode, const char *name, uint16_t number)
{
    if (selects_by_name(mode))
        frame::put_name(selector.name, name);
    else
        selector.number = number;
}

/* Vlan10 and Vlan10-20 name one VLAN and a range. */
void put_vlans(wire::arpi_request &request, const char *ifname)
{
    if (std::strncmp(ifname, "Vlan", 4) != 0)
        return;
    const char *at = std::strpbrk(ifname, "0123456789");
    if (at == nullptr)
        return;
    request.first_vlan = take_number<uint16_t>(at);
    if (*at++ == '-')
        request.last_vlan = take_number<uint16_t>(at);
}

} // namespace

uint32_t get_aspf_stats_items(uint16_t vsysid, uint32_t start, uint32_t maximum, row_callback row,
                              void *context, print_callback print) noexcept
{
    const frame::listing_call call{
        .print = print, .row = row, .context = context, .maximum = maximum, .start_cursor = start};
    return frame::list<wire::spoofing_list_request>(aspf_items, call,
                                                    [&](wire::spoofing_list_request &request) {
                                                        request.subcommand = wire::aspf_list;
                                                        request.vsysid = vsysid;
                                                    })
        .rows;
}

int aspf_stats_clear(uint16_t vsysid, const uint8_t *mac, uint16_t selector, print_callback print) noexcept
{
    static_cast<void>(frame::run<wire::aspf_clear_request>(
        aspf_clear, frame::local(), print, [&](wire::aspf_clear_request &request) {
            request.subcommand = mac != nullptr ? wire::aspf_clear_one : wire::aspf_clear_all;
            request.vsysid = vsysid;
            if (frame::put_bytes(request.mac, mac))
                request.selector = selector;
        }));
    return 0;
}

uint32_t get_ndspf_stats_items(uint16_t vsysid, uint32_t word, row_callback row, void *context,
                               print_callback print) noexcept
{
    const frame::listing_call call{.print = print, .row = row, .context = context};
    return frame::list<wire::spoofing_list_request>(ndspf_items, call,
                                                    [&](wire::spoofing_list_request &request) {
                                                        request.subcommand = wire::ndspf_list;
                                                        request.vsysid = vsysid;
                                                        request.word = word;
                                                    })
        .rows;
}

int ndspf_stats_clear(uint16_t vsysid, print_callback print) noexcept
{
    static_cast<void>(frame::run<wire::ndspf_clear_request>(ndspf_clear, frame::local(), print,
                                                            [&](wire::ndspf_clear_request &request) {
                                                                request.subcommand = wire::ndspf_clear_all;
                                                                request.vsysid = vsysid;
                                                            }));
    return 0;
}

uint32_t arpi_config_show(uint16_t vsysid, const char *name, uint16_t number, uint8_t mode, row_callback row,
                          void *context, print_callback print) noexcept
{
    const frame::listing_call call{.print = print, .row = row, .context = context};
    return frame::list<wire::arpi_request>(arpi_settings, call,
                                           [&](wire::arpi_request &request) {
                                               request.subcommand = wire::inspection_show;
                                               request.mode = mode;
                                               request.vsysid = vsysid;
                                               put_selector(request.selector, mode, name, number);
                                               request.rows_per_page = wire::arpi_rows_per_page;
                                           })
        .rows;
}

uint32_t show_arpi_config_by_if(uint16_t vsysid, uint32_t, row_callback row, void *context,
                                const char *ifname, print_callback print) noexcept
{
    const frame::listing_call call{.print = print, .row = row, .context = context};
    return frame::list<wire::arpi_request>(arpi_settings, call,
                                           [&](wire::arpi_request &request) {
                                               request.subcommand = wire::inspection_show;
                                               request.mode = mode_by_interface;
                                               request.vsysid = vsysid;
                                               frame::put_name(request.ifname, ifname);
                                               put_vlans(request, ifname);
                                               request.rows_per_page = wire::arpi_rows_per_page;
                                           })
        .rows;
}

uint32_t ndi_config_show(uint16_t vsysid, const char *name, uint16_t number, uint8_t mode, row_callback row,
                         void *context, print_callback print) noexcept
{
    const frame::listing_call call{.print = print, .row = row, .context = context};
    return frame::list<wire::ndi_request>(ndi_settings, call,
                                          [&](wire::ndi_request &request) {
                                              request.subcommand = wire::inspection_show;
                                              request.vsysid = vsysid;
                                              request.mode = mode;
                                              put_selector(request.selector, mode, name, number);
                                              request.rows_per_page = wire::ndi_rows_per_page;
                                          })
        .rows;
}
