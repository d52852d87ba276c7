/* In-service upgrade. */
#include <libmix/issu.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

constexpr uint32_t capacity = 16000;
constexpr page_format processors{capacity, 20, 40, {8, 4}, {16, 4}, {12, 4}};

/* The manager's status counts, whatever its sign. */
shape asks(bytes reply = {}, uint32_t least = 0)
{
    shape is = answers(capacity, std::move(reply), least != 0 ? accepts::at_least : accepts::any, least);
    is.refused_by = refuses::not_zero;
    is.keeps_store = true;
    return is;
}
shape asks_with_result(bytes reply, uint32_t least, int64_t good)
{
    return asks(std::move(reply), least).set(&shape::good, good);
}
shape tells()
{
    return sends().set(&shape::keeps_store, true);
}

/* Eight bytes of the manager's, then the data. */
bytes headed(const bytes &data)
{
    return join({some_bytes(8), data});
}

/* The callback has no context: the call that is under way. */
given *current;
int take_status(const void *entry, int first)
{
    return given::take_row(entry, current, first);
}

shape lists_status()
{
    shape is = lists(processors, {2, 3});
    is.of_rows = nullptr;
    is.good = 0;
    is.refused_by = refuses::not_zero;
    is.keeps_store = true;
    for (exchange &each : is.exchanges) {
        each.lengths = accepts::at_least;
        each.fails = always(-1);
    }
    return is;
}

} // namespace

std::vector<client> upgrade_clients()
{
    return {
        {MIX_CALL(issu_lock_cfg, 1), tells()},
        {MIX_CALL(issu_send_nat_transfer, 1, 2, 3, 4), tells()},
        {MIX_CALL(issu_send_nat_merge, 1, 2), tells()},
        {MIX_CALL(issu_send_ssmha_warm_sync_poll, 1), tells()},
        {MIX_CALL(issu_send_sess_transfer, 1, 2, 3, 4), tells()},
        {MIX_CALL(issu_report_ssmha_warm_sync, 1), tells()},
        {MIX_CALL(issu_send_dmcu_switch, 1, 2), tells()},
        {MIX_CALL(issu_report_nat_transfer, 1), tells()},
        {MIX_CALL(issu_report_sess_transfer, 1, 2, 3), tells()},
        {MIX_CALL(issu_start, 1, "image", "second"), asks()},
        {MIX_CALL(issu_show_sum, 1, g.output), asks(headed(some_bytes(712)), 720)},
        {MIX_CALL(issu_show_gshut, 1, g.output), asks(headed(some_bytes(460)), 468)},
        {MIX_BODY(issu_show_cpu_status, current = &g; return issu_show_cpu_status(1, take_status);),
         lists_status()},
        {MIX_CALL(issu_ver_get, 1, 2, g.as<char>(), 100), asks(headed(text_field("version 7", 128)), 136)},
        {MIX_CALL(issu_buf_image_ver_get, g.as<char>(), 1000),
         asks(headed(text_field(std::string(128, 'v'), 128)), 136)},
        {MIX_CALL(issu_check, 1, g.as<uint32_t>(), g.as<char>(4), 200),
         asks(headed(join({le32(3), text_field("not now", 128)})), 140)},
        {MIX_CALL(issu_buf_image_load, "/tmp/image"), asks_with_result(headed(le32(77)), 12, 77)},
        {MIX_CALL(issu_sm_shut, 1, g.as<uint32_t>(), 2, 3, "module", "second"), asks(headed(le32(77)), 12)},
        {MIX_BODY(issu_image_clist_get, uint32_t length = 900;
                  const int result = issu_image_clist_get(1, "image", 2, g.as<char>(), &length);
                  if (result == 0) * g.as<uint32_t>(1000) = length;
                  return result != 0 && length != 900 ? -99 : result;),
         asks(headed(join({le32(0), le32(300), some_bytes(300)})), 16)},
    };
}

} // namespace mixtest
