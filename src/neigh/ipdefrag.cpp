#include <libmix/ipdefrag.h>

#include "frame/frame.h"
#include "frame/management.h"
#include "neigh/ipdefrag_wire.h"

namespace
{

using namespace mix;

constexpr frame::exchange show{
    .type = wire::ipdefrag_type,
    .request_size = sizeof(wire::ipdefrag_request),
    .reply_capacity = sizeof(wire::ipdefrag_reply),
    .length = frame::length_rule::exactly,
    .length_value = sizeof(wire::ipdefrag_reply),
    .say = frame::usual_texts("fragment setting show failed, ret is %d\n"),
};

} // namespace

int get_ipdefrag_para(uint32_t *first, uint32_t *second, print_callback print) noexcept
{
    return frame::run<wire::ipdefrag_request>(
               show, frame::local(), print,
               [](wire::ipdefrag_request &request) { request.subcommand = wire::ipdefrag_show; },
               [&](frame::reply_view &reply) {
                   *first = reply.u16(offsetof(wire::ipdefrag_reply, first));
                   *second = reply.u16(offsetof(wire::ipdefrag_reply, second));
               })
        .status_or(-1);
}

int set_ipdefrag_para(int32_t first, int32_t second, print_callback print) noexcept
{
    uint32_t fields[wire::ipdefrag_change_fields] = {};
    fields[wire::ipdefrag_first] = static_cast<uint32_t>(first);
    fields[wire::ipdefrag_second] = static_cast<uint32_t>(second);
    frame::exchange_record(wire::ipdefrag_object, ip_defrag_mgi_get_resp, fields,
                           wire::ipdefrag_change_fields, print);
    return 0;
}

int ip_defrag_mgi_get_resp(const void *, uint32_t) noexcept
{
    return 0;
}
