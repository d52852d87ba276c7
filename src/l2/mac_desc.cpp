/* Descriptions of MAC addresses. */
#include <libmix/mac.h>

#include "frame/listing.h"
#include "frame/management.h"
#include "l2/mac_wire.h"

namespace
{

using namespace mix;

constexpr frame::listing descriptions{
    .ask{
        .type = wire::mac_desc_type,
        .request_size = sizeof(wire::mac_desc_request),
        .reply_capacity = wire::mac_page_capacity,
        .say = frame::usual_texts("MAC show failed, ret is %d\n"),
    },
    .request_cursor = MIX_FIELD(wire::mac_desc_request, cursor),
    .request_budget = MIX_FIELD(wire::mac_desc_request, budget),
    .request_first = MIX_FIELD(wire::mac_desc_request, start),
    .header = sizeof(wire::mac_desc_page),
    .row_size = wire::mac_desc_entry_size,
    .cursor = MIX_FIELD(wire::mac_desc_page, cursor),
    .count = MIX_FIELD(wire::mac_desc_page, count),
    .budget = frame::budget_rule::below_one,
    .answer = frame::row_answer::ignored,
    .filtered_maximum = 1,
};

} // namespace

int mac_description_add(const uint8_t *mac, const char *text, print_callback print, char *error,
                        int error_length, uint32_t language, uint8_t tag) noexcept
{
    if (text != nullptr && *text == '\0')
        return 0;
    return frame::commit({.object = final_set_md_macd,
                          .type = frame::mgi_add,
                          .language = static_cast<uint8_t>(language),
                          .vsysid = get_mgi_vsysid(),
                          .request_flag = tag,
                          .attributes = {{wire::mac_desc_attribute_mac, mac},
                                         frame::text_attribute(wire::mac_desc_attribute_text, &text)},
                          .told = frame::refusal_text::printed_and_copied},
                         {print, error, error_length});
}

int mac_description_remove(const uint8_t *mac, print_callback print, int all, uint32_t language,
                           uint16_t vsysid) noexcept
{
    return frame::commit({.object = final_set_md_macd,
                          .type = all != 0 ? frame::mgi_unset_all : frame::mgi_delete,
                          .language = static_cast<uint8_t>(language),
                          .vsysid = vsysid,
                          .attributes = {{wire::mac_desc_attribute_mac, all != 0 ? nullptr : mac}}},
                         {print});
}

int get_mac_desc_items(const uint8_t *mac, entry_callback entry, void *context, print_callback print,
                       uint32_t start, int maximum, uint16_t vsysid) noexcept
{
    const frame::listing_call call{.print = print,
                                   .row = entry,
                                   .context = context,
                                   .maximum = static_cast<uint32_t>(maximum),
                                   .filtered = mac != nullptr};
    const frame::listing_result result =
        frame::list<wire::mac_desc_request>(descriptions, call, [&](wire::mac_desc_request &request) {
            request.opcode = wire::mac_desc_list;
            request.start = start;
            request.has_mac = frame::put_bytes(request.mac, mac) ? 1 : 0;
            request.vsysid = vsysid;
        });
    return static_cast<int>(result.rows);
}
