/* The layer-2 families' listings, side by side. */
#include <libmix/dhcpsn.h>
#include <libmix/mac.h>

#include "support/listing_suite.h"

using namespace mixtest;

namespace
{

using given = listing_case::given;
using stopped_by = listing_case::stopped_by;

int64_t mac_items(const given &with)
{
    return get_mac_items(1, 2, 3, nullptr, with.row, with.context, with.print, with.first_request,
                         with.maximum, 0, 0, 0);
}

int64_t mac_desc_items(const given &with)
{
    return get_mac_desc_items(nullptr, with.row, with.context, with.print, with.first_request, with.maximum,
                              1);
}

int64_t dhcpsn_items(const given &with)
{
    return get_dhcpsn_items(1, 2, 3, 4, nullptr, with.row, with.context, with.print, with.first_request,
                            with.maximum);
}

/* type, capacity; header, row size, cursor width; where the request has start value, budget, cursor */
INSTANTIATE_TEST_SUITE_P(
    layer_2, paged_listings,
    testing::Values(listing_case{"get_mac_items", mac_items, 39, 2000, 4, 78, 2, 12, 16, 20,
                                 stopped_by::nothing, "MAC show failed, ret is -7\n"},
                    listing_case{"get_mac_desc_items", mac_desc_items, 93, 2000, 8, 198, 4, 4, 8, 12,
                                 stopped_by::nothing, "MAC show failed, ret is -7\n"},
                    listing_case{"get_dhcpsn_items", dhcpsn_items, 95, 3000, 8, 80, 4, 28, 32, 24,
                                 stopped_by::not_zero, "DHCP snooping show failed, ret is -7\n"}),
    case_name);

} // namespace
