#include <libmix/bhv.h>

#include "frame/listing.h"
#include "frame/record.h"
#include "misc/bhv_wire.h"

const bhv_mail_type bhv_mail_type_table[BHV_MAIL_TYPES + 1] = {
    {0, "smtp"},  {1, "webmail"}, {2, "163"},    {3, "gmail"},    {4, "hotmail"}, {5, "yahoo"}, {6, "126"},
    {7, "QQ"},    {8, "sina"},    {9, "tom"},    {10, "sohu"},    {11, "taobao"}, {12, "eyou"}, {13, "21cn"},
    {14, "yeah"}, {15, "188"},    {16, "sogou"}, {17, "koomail"}, {18, "139"},    {},
};

namespace
{

using namespace mix;

constexpr frame::texts object_texts()
{
    frame::texts say = frame::usual_texts("Failed to get bhv obj, ret is %d\n");
    say.bad_count = {"Received buf len is wrong, len is %d,correct:%d\n", frame::shows::length_and_expected};
    return say;
}

constexpr frame::listing objects{
    .ask = {.type = wire::bhv_obj_type,
            .request_size = sizeof(wire::bhv_obj_request),
            .reply_capacity = wire::bhv_obj_capacity,
            .say = object_texts()},
    .request_cursor = MIX_FIELD(wire::bhv_obj_request, cursor),
    .header = sizeof(wire::bhv_obj_page),
    .row_size = wire::bhv_obj_row_size,
    .cursor = MIX_FIELD(wire::bhv_obj_page, cursor),
    .count = MIX_FIELD(wire::bhv_obj_page, count),
    .full_page = wire::bhv_obj_rows,
};

constexpr frame::listing profiles{
    .ask = {.type = wire::bhv_profile_type,
            .request_size = sizeof(wire::bhv_profile_request),
            .reply_capacity = wire::bhv_profile_capacity,
            .say = frame::usual_texts("Failed to get bhv profile, ret is %d\n")},
    .request_cursor = MIX_FIELD(wire::bhv_profile_request, cursor),
    .header = sizeof(wire::bhv_profile_page),
    .row_size = wire::bhv_profile_row_size,
    .cursor = MIX_FIELD(wire::bhv_profile_page, cursor),
    .count = MIX_FIELD(wire::bhv_profile_page, count),
};

/* The caller's callback, which takes no first-row flag. */
struct receiver {
    bhv_callback cb;
    void *arg;
};

int deliver(const void *record, void *context, int)
{
    const auto *to = static_cast<const receiver *>(context);
    to->cb(record, to->arg);
    return 0;
}

frame::listing_call call_for(receiver &to, print_callback print)
{
    return {.print = print, .row = to.cb != nullptr ? deliver : nullptr, .context = &to};
}

} // namespace

const char *bhv_mail_type2name(uint32_t type) noexcept
{
    return type < BHV_MAIL_TYPES ? bhv_mail_type_table[type].name : "";
}

uint16_t get_bhv_obj(const char *name, uint8_t class_, uint8_t subclass, bhv_callback cb, void *arg,
                     print_callback print) noexcept
{
    receiver to{cb, arg};
    const auto result =
        frame::list<wire::bhv_obj_request>(objects, call_for(to, print), [&](wire::bhv_obj_request &request) {
            request.operation = wire::bhv_obj_operation;
            frame::put_name(request.name, name);
            request.object_class = class_;
            request.subclass = subclass;
        });
    return static_cast<uint16_t>(result.rows);
}

uint16_t get_bhv_profile(const char *name, bhv_callback cb, void *arg, print_callback print) noexcept
{
    receiver to{cb, arg};
    frame::listing_call call = call_for(to, print);
    call.single_page = name != nullptr && *name != '\0';
    const auto result =
        frame::list<wire::bhv_profile_request>(profiles, call, [&](wire::bhv_profile_request &request) {
            request.operation = wire::bhv_profile_operation;
            frame::put_name(request.name, name);
        });
    return static_cast<uint16_t>(result.rows);
}
