/* The neighbour families' listings, side by side. */
#include <libmix/arp.h>

#include "support/listing_suite.h"

using namespace mixtest;

namespace
{

using given = listing_case::given;
using stopped_by = listing_case::stopped_by;

INSTANTIATE_TEST_SUITE_P(neighbours, paged_listings,
                         testing::Values(listing_case{"get_arp_items_detail",
                                                      [](const given &with) {
                                                          return get_arp_items_detail(
                                                              1, 2, 3, 4, with.row, with.context, with.print,
                                                              with.first_request, with.maximum, 0, 0);
                                                      },
                                                      4, 3000, 8, 56, 4, 16, 20, 24, stopped_by::nothing,
                                                      "ARP show failed, ret is -7\n"},
                                         listing_case{"get_arp_mac_items_ex2_vr",
                                                      [](const given &with) {
                                                          return get_arp_mac_items_ex2_vr(
                                                              with.row, with.context, with.print,
                                                              with.first_request, with.maximum, 1, nullptr,
                                                              nullptr, nullptr, nullptr, 0, 0, 2, 3);
                                                      },
                                                      4, 3000, 8, 280, 4, 12, 16, 20, stopped_by::negative,
                                                      "ARP show failed, ret is -7\n"}),
                         case_name);

} // namespace
