/* The ARP table: changes. */
#include <libmix/arp.h>
#include <libmix/mac.h>

#include "frame/frame.h"
#include "frame/management.h"
#include "neigh/arp_wire.h"
#include "platform/services.h"

namespace
{

using namespace mix;

constexpr frame::exchange clear_dynamic{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_clear_request),
    .say = {.function = "arp_remove_dynamic_items_detail",
            .no_request = frame::function_no_enough_memory,
            .no_reply = frame::no_enough_memory,
            .not_sent = frame::send_failed,
            .refused = {"ARP clear failed, ret is %d\n", frame::shows::status}},
};

constexpr frame::exchange scan{
    .type = wire::arp_type,
    .request_size = sizeof(wire::arp_scan_request),
};

uint8_t byte_at(const void *row, size_t offset)
{
    return static_cast<const uint8_t *>(row)[offset];
}

template <class Number>
Number number_at(const void *row, size_t offset)
{
    Number value;
    std::memcpy(&value, static_cast<const uint8_t *>(row) + offset, sizeof(value));
    return value;
}

int remove_listed(const void *row, void *context, int)
{
    return arp_remove_one_static_items_vrouter(row, context);
}

} // namespace

int arp_add_static_items(uint16_t vrid, uint32_t address, const uint8_t *mac, const char *description,
                         uint8_t option, print_callback print, char *error, int32_t error_length,
                         uint8_t language, uint8_t request_flag, uint16_t vsysid) noexcept
{
    if (description != nullptr && *description != '\0')
        mac_description_add(mac, description, print, nullptr, 0, language, request_flag);
    const char *name = get_vrname_by_vrid(vrid);
    return frame::commit({.object = final_set_arp_arpe,
                          .type = frame::mgi_set,
                          .language = language,
                          .vsysid = vsysid,
                          .request_flag = request_flag,
                          .attributes = {{wire::arp_attribute_address, &address},
                                         {wire::arp_attribute_vrid, &vrid},
                                         {wire::arp_attribute_mac, mac},
                                         {wire::arp_attribute_vrname, &name},
                                         {wire::arp_attribute_option, &option}},
                          .told = frame::refusal_text::copied_only_if_printed},
                         {print, error, error_length});
}

int arp_remove_static_items(uint16_t vrid, uint32_t address, print_callback print, uint32_t all,
                            uint8_t language, uint8_t request_flag, uint16_t vsysid) noexcept
{
    const uint32_t which = all != 0 ? 0 : address;
    const char *name = get_vrname_by_vrid(vrid);
    return frame::commit({.object = final_set_arp_arpe,
                          .type = frame::mgi_delete,
                          .language = language,
                          .vsysid = vsysid,
                          .request_flag = request_flag,
                          .attributes = {{wire::arp_attribute_address, &which},
                                         {wire::arp_attribute_vrid, &vrid},
                                         {wire::arp_attribute_vrname, &name}}},
                         {print});
}

int arp_remove_static_conf(uint16_t vrid, uint8_t language, uint8_t request_flag) noexcept
{
    const char *name = get_vrname_by_vrid(vrid);
    return frame::commit(
        {.object = final_set_arp_arpe,
         .type = frame::mgi_unset_all,
         .language = language,
         .request_flag = request_flag,
         .attributes = {{wire::arp_attribute_vrid, &vrid}, {wire::arp_attribute_vrname, &name}},
         .told = frame::refusal_text::to_standard_output,
         .prefix = "Error: unset install in arp %s\n"},
        {});
}

int arp_remove_one_static_items_vrouter(const void *row, void *context) noexcept
{
    const auto *what = static_cast<const arp_removal_context *>(context);
    const uint8_t kind = byte_at(row, wire::arp_row_kind);
    if (number_at<uint16_t>(row, wire::arp_row_vrid) != what->vrid)
        return 0;
    if (kind != wire::arp_kind_static && kind != wire::arp_kind_static_too)
        return 0;
    arp_remove_static_items(what->vrid, number_at<uint32_t>(row, wire::arp_row_address), console_print, 0,
                            static_cast<uint8_t>(what->language), static_cast<uint8_t>(what->request_flag),
                            what->vsysid);
    return 0;
}

int arp_remove_all_static_items_vrouter(uint16_t vrid, uint32_t, uint32_t request_flag,
                                        uint16_t vsysid) noexcept
{
    arp_removal_context context{request_flag, 0, vrid, vsysid};
    get_arp_items_detail(vsysid, vrid, 0, 0, remove_listed, &context, console_print, 0, 0, 0, 0);
    return 0;
}

int arp_remove_dynamic_items_detail(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                                    print_callback print, uint32_t node, uint8_t option,
                                    uint16_t instance) noexcept
{
    return frame::run<wire::arp_clear_request>(clear_dynamic, frame::node_or_local(node, instance), print,
                                               [&](wire::arp_clear_request &request) {
                                                   request.subcommand = wire::arp_clear_dynamic;
                                                   request.vsysid = vsysid;
                                                   request.third = third;
                                                   request.second = second;
                                                   request.vrid = vrid;
                                                   request.node = node;
                                                   request.option = option;
                                               })
        .status_or(-1);
}

int arp_remove_dynamic_items(uint16_t second, uint32_t third, print_callback print, uint8_t option) noexcept
{
    return arp_remove_dynamic_items_detail(0, 1, second, third, print, 0, option, 0);
}

int arp_remove_dynamic_items_vr(uint16_t vrid, uint16_t second, uint32_t third, print_callback print,
                                uint8_t option) noexcept
{
    return arp_remove_dynamic_items_detail(0, vrid, second, third, print, 0, option, 0);
}

int arp_active_scan(uint32_t first, uint32_t second, int16_t option) noexcept
{
    return frame::run<wire::arp_scan_request>(scan, frame::local(), nullptr,
                                              [&](wire::arp_scan_request &request) {
                                                  request.subcommand = wire::arp_scan;
                                                  request.option = option;
                                                  request.first = first;
                                                  request.second = second;
                                                  request.vsysid = get_mgi_vsysid();
                                              })
        .status_or(-1);
}

int arp_mgi_get_resp(const void *, uint32_t) noexcept
{
    return 0;
}
