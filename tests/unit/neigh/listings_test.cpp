/* The neighbour families' listings, side by side. */
#include <libmix/arp.h>
#include <libmix/nd.h>

#include "support/listing_suite.h"

using namespace mixtest;

namespace
{

using given = listing_case::given;
using stopped_by = listing_case::stopped_by;

const uint8_t any_address[16] = {};

int64_t arp_items(const given &with)
{
    return get_arp_items_detail(1, 2, 3, 4, with.row, with.context, with.print, with.first_request,
                                with.maximum, 0, 0);
}

int64_t arp_mac_items(const given &with)
{
    return get_arp_mac_items_ex2_vr(with.row, with.context, with.print, with.first_request, with.maximum, 1,
                                    nullptr, nullptr, nullptr, nullptr, 0, 0, 2, 3);
}

int64_t nd_items(const given &with)
{
    return get_nd_items_detail(1, 2, 3, nullptr, with.row, with.context, with.print, with.first_request,
                               with.maximum, 0, 0);
}

int64_t nd_static_items(const given &with)
{
    return get_nd_items_static_detail(1, 2, 3, nullptr, with.row, with.context, with.print,
                                      with.first_request, with.maximum, 0, 0);
}

int64_t nd_filtered_items(const given &with)
{
    return get_nd_items_ex2_vr(with.row, with.context, with.print, with.first_request,
                               static_cast<uint32_t>(with.maximum), any_address, nullptr, 0, 0, 0, nullptr);
}

/* The short forms of the listings above, which hand on all that is given here. */

int64_t arp_items_plain(const given &with)
{
    return get_arp_items(1, 2, 3, with.row, with.context, with.print, with.first_request, with.maximum);
}

int64_t arp_items_vr(const given &with)
{
    return get_arp_items_vr(1, 2, 3, 4, with.row, with.context, with.print, with.first_request, with.maximum);
}

int64_t arp_mac_items_ex2(const given &with)
{
    return get_arp_mac_items_ex2(with.row, with.context, with.print, with.first_request, with.maximum, 1,
                                 nullptr, nullptr, nullptr, nullptr, 0, 0);
}

int64_t arp_mac_items_ex_vr(const given &with)
{
    return get_arp_mac_items_ex_vr(with.row, with.context, with.print, with.first_request, with.maximum, 1,
                                   nullptr, nullptr, nullptr, nullptr, 2);
}

int64_t arp_mac_items_ex(const given &with)
{
    return get_arp_mac_items_ex(with.row, with.context, with.print, with.first_request, with.maximum, 1,
                                nullptr, nullptr, nullptr, nullptr);
}

int64_t arp_mac_items_vr(const given &with)
{
    return get_arp_mac_items_vr(with.row, with.context, with.print, with.first_request, with.maximum, 2, 3);
}

int64_t arp_mac_items_plain(const given &with)
{
    return get_arp_mac_items(with.row, with.context, with.print, with.first_request, with.maximum);
}

int64_t nd_items_plain(const given &with)
{
    return get_nd_items(1, nullptr, with.row, with.context, with.print, with.first_request, with.maximum, 0,
                        0);
}

constexpr auto arp_refused = "ARP show failed, ret is -7\n";

/* type, capacity; header, row size, cursor width; where the request has first-request flag, budget, cursor */

listing_case arp_entries(const char *name, int64_t (*call)(const given &))
{
    return {name, call, 4, 3000, 8, 56, 4, 16, 20, 24, stopped_by::nothing, arp_refused};
}

listing_case arp_joined(const char *name, int64_t (*call)(const given &))
{
    return {name, call, 4, 3000, 8, 280, 4, 12, 16, 20, stopped_by::negative, arp_refused};
}

listing_case nd_entries(const char *name, int64_t (*call)(const given &))
{
    return {name, call, 133, 3000, 8, 64, 4, 32, 36, 40, stopped_by::nothing, "nd show failed, ret is -7\n"};
}

INSTANTIATE_TEST_SUITE_P(neighbours, paged_listings,
                         testing::Values(arp_entries("get_arp_items_detail", arp_items),
                                         arp_entries("get_arp_items", arp_items_plain),
                                         arp_entries("get_arp_items_vr", arp_items_vr),
                                         arp_joined("get_arp_mac_items_ex2_vr", arp_mac_items),
                                         arp_joined("get_arp_mac_items_ex2", arp_mac_items_ex2),
                                         arp_joined("get_arp_mac_items_ex_vr", arp_mac_items_ex_vr),
                                         arp_joined("get_arp_mac_items_ex", arp_mac_items_ex),
                                         arp_joined("get_arp_mac_items_vr", arp_mac_items_vr),
                                         arp_joined("get_arp_mac_items", arp_mac_items_plain),
                                         nd_entries("get_nd_items_detail", nd_items),
                                         nd_entries("get_nd_items", nd_items_plain),
                                         nd_entries("get_nd_items_static_detail", nd_static_items),
                                         listing_case{"get_nd_items_ex2_vr", nd_filtered_items, 133, 3000, 16,
                                                      64, 4, 40, 44, 48, stopped_by::negative,
                                                      "NEIGHBOR show failed, ret is -7\n",
                                                      "ipcmsg send failed -3\n", "No enough memory\n"}),
                         case_name);

} // namespace
