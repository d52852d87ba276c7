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

/* type, capacity; header, row size, cursor width; where the request has first-request flag, budget, cursor */
INSTANTIATE_TEST_SUITE_P(
    neighbours, paged_listings,
    testing::Values(listing_case{"get_arp_items_detail", arp_items, 4, 3000, 8, 56, 4, 16, 20, 24,
                                 stopped_by::nothing, "ARP show failed, ret is -7\n"},
                    listing_case{"get_arp_mac_items_ex2_vr", arp_mac_items, 4, 3000, 8, 280, 4, 12, 16, 20,
                                 stopped_by::negative, "ARP show failed, ret is -7\n"},
                    listing_case{"get_nd_items_detail", nd_items, 133, 3000, 8, 64, 4, 32, 36, 40,
                                 stopped_by::nothing, "nd show failed, ret is -7\n"},
                    listing_case{"get_nd_items_static_detail", nd_static_items, 133, 3000, 8, 64, 4, 32, 36,
                                 40, stopped_by::nothing, "nd show failed, ret is -7\n"},
                    listing_case{"get_nd_items_ex2_vr", nd_filtered_items, 133, 3000, 16, 64, 4, 40, 44, 48,
                                 stopped_by::negative, "NEIGHBOR show failed, ret is -7\n",
                                 "ipcmsg send failed -3\n", "No enough memory\n"}),
    case_name);

} // namespace
