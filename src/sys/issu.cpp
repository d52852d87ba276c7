#include <libmix/issu.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "frame/frame.h"
#include "frame/listing.h"
#include "sys/issu_wire.h"

namespace
{

using namespace mix;
using wire::issu_code;

/* --- the error text --- */

constexpr size_t error_text_size = 256;
constexpr const char *default_err = "null";
constinit std::atomic<char *> err_str{nullptr}; /* taken at the first error, kept for ever */

char *error_store()
{
    char *store = err_str.load(std::memory_order_acquire);
    if (store != nullptr)
        return store;
    auto *fresh = static_cast<char *>(std::malloc(error_text_size));
    if (fresh == nullptr)
        return nullptr;
    fresh[0] = '\0';
    if (err_str.compare_exchange_strong(store, fresh))
        return fresh;
    std::free(fresh);
    return store;
}

/* What the frame tells its print callback goes into the store: this family never prints. Its texts have no
 * conversions. */
int store_error(const char *text, ...)
{
    set_err_str("%s", text);
    return 0;
}

/* --- commands --- */

constexpr frame::texts stored_texts{
    .no_request = {"No enough memory"},
    .no_reply = {"No enough memory"},
    .not_sent = {"Failed to send IPC message"},
    .refused = {"Handle error"},
    .bad_length = {"wrong msg len"},
    .bad_count = {"Wrong msg"},
};

struct asked {
    issu_code code;
    uint32_t request_size;
    uint32_t reply_minimum; /* 0: only the status counts */
};

constexpr asked asked_commands[] = {
    {issu_code::show_sum, sizeof(wire::issu_request), sizeof(wire::issu_sum_reply)},
    {issu_code::start, sizeof(wire::issu_start_request), 0},
    {issu_code::cpu_status, sizeof(wire::issu_page_request), sizeof(wire::issu_page_reply)},
    {issu_code::check, sizeof(wire::issu_request), sizeof(wire::issu_check_reply)},
    {issu_code::sm_shut, sizeof(wire::issu_shut_request), sizeof(wire::issu_result_reply)},
    {issu_code::ver_get, sizeof(wire::issu_request), sizeof(wire::issu_version_reply)},
    {issu_code::buf_image_ver_get, sizeof(wire::issu_request), sizeof(wire::issu_version_reply)},
    {issu_code::show_gshut, sizeof(wire::issu_request), sizeof(wire::issu_gshut_reply)},
    {issu_code::buf_image_load, sizeof(wire::issu_load_request), sizeof(wire::issu_result_reply)},
    {issu_code::image_clist, sizeof(wire::issu_clist_request), sizeof(wire::issu_clist_reply)},
};

struct told {
    issu_code code;
    uint32_t request_size;
    uint32_t daemon;
    uint32_t timeout_ms;
    bool tells_no_memory = true;
};

constexpr told told_commands[] = {
    {issu_code::nat_transfer, sizeof(wire::issu_words_request), wire::issu_main, 500},
    {issu_code::report_nat_transfer, sizeof(wire::issu_value_request), wire::issu_manager, 0},
    {issu_code::sess_transfer, sizeof(wire::issu_words_request), wire::issu_main, 500},
    {issu_code::report_sess_transfer, sizeof(wire::issu_value_request), wire::issu_manager, 0},
    {issu_code::nat_merge, sizeof(wire::issu_request), wire::issu_main, 500},
    {issu_code::lock_cfg, sizeof(wire::issu_value_request), wire::issu_config, 500, false},
    {issu_code::report_ssmha_warm_sync, sizeof(wire::issu_short_request), wire::issu_manager, 0},
    {issu_code::ssmha_warm_sync_poll, sizeof(wire::issu_short_request), wire::issu_main, 500},
    {issu_code::dmcu_switch, sizeof(wire::issu_request), wire::issu_main, 500},
};

template <class Row, size_t Rows>
constexpr const Row &row_of(const Row (&table)[Rows], issu_code code)
{
    size_t at = 0;
    while (table[at].code != code)
        at++;
    return table[at];
}

constexpr frame::exchange exchange_of(issu_code code)
{
    const asked &row = row_of(asked_commands, code);
    return {
        .daemon = wire::issu_manager,
        .type = wire::issu_type,
        .timeout_ms = 500,
        .request_size = row.request_size,
        .reply_capacity = wire::issu_reply_capacity,
        .refusal = frame::refused_when::status_not_zero,
        .length = row.reply_minimum != 0 ? frame::length_rule::at_least : frame::length_rule::any,
        .length_value = row.reply_minimum,
        .say = stored_texts,
    };
}

constexpr frame::notice notice_of(issu_code code)
{
    const told &row = row_of(told_commands, code);
    frame::notice what{
        .daemon = row.daemon,
        .type = wire::issu_type,
        .timed = true,
        .timeout_ms = row.timeout_ms,
        .request_size = row.request_size,
        .say = stored_texts,
    };
    if (!row.tells_no_memory)
        what.say.no_request = {};
    return what;
}

/* A processor of the board in that slot. */
constexpr frame::target processor(uint16_t slot, uint16_t cpu)
{
    return frame::at_node(uint32_t{slot} + 1, cpu);
}

template <issu_code Code, class Record, class Fill, class Deliver>
int ask(const frame::target &where, Fill &&fill, Deliver &&deliver)
{
    static constexpr frame::exchange what = exchange_of(Code);
    static_assert(what.request_size == sizeof(Record));
    const frame::outcome got = frame::run<Record>(
        what, where, store_error,
        [&](Record &request) {
            request.code = Code;
            fill(request);
        },
        deliver);
    return got.ok() ? 0 : -1;
}

template <issu_code Code, class Record, class Fill>
int tell(const frame::target &where, Fill &&fill)
{
    static constexpr frame::notice what = notice_of(Code);
    static_assert(what.request_size == sizeof(Record));
    const frame::outcome got = frame::notify<Record>(what, where, store_error, [&](Record &request) {
        request.code = Code;
        fill(request);
    });
    return got.ok() ? 0 : -1;
}

int refuse_parameter()
{
    store_error("Wrong parameter");
    return -1;
}

/* Commands that take a processor number and answer with a block that is copied whole. */
template <issu_code Code, class Reply>
int copy_block(uint32_t cpu, void *buffer)
{
    constexpr uint32_t at = sizeof(Reply::header);
    return ask<Code, wire::issu_request>(
        frame::local(), [&](wire::issu_request &request) { request.parameter = cpu; },
        [&](frame::reply_view &reply) { reply.copy(buffer, at, sizeof(Reply) - at); });
}

template <issu_code Code>
int copy_version(const frame::target &where, char *buffer, uint32_t size)
{
    return ask<Code, wire::issu_request>(where, frame::nothing_to_fill, [&](frame::reply_view &reply) {
        reply.text(buffer, size, offsetof(wire::issu_version_reply, version),
                   sizeof(wire::issu_version_reply::version));
    });
}

constexpr frame::listing cpu_status{
    .ask = exchange_of(issu_code::cpu_status),
    .request_cursor = MIX_FIELD(wire::issu_page_request, cursor),
    .header = sizeof(wire::issu_page_reply),
    .row_size = wire::issu_status_entry_size,
    .cursor = MIX_FIELD(wire::issu_page_reply, cursor),
    .count = MIX_FIELD(wire::issu_page_reply, count),
    .more = MIX_FIELD(wire::issu_page_reply, more),
    .first = frame::first_row::of_page,
    .page = frame::page_rule::holds,
};

/* The caller's callback has no context of its own, so it is the context. */
int deliver_status(const void *entry, void *context, int first)
{
    (*static_cast<issu_cpu_status_callback *>(context))(entry, first);
    return 0;
}

} // namespace

void set_err_str(const char *format, ...) noexcept
{
    char *store = error_store();
    if (store == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(store, error_text_size, format, arguments);
    va_end(arguments);
}

const char *issu_err_str_get(void) noexcept
{
    const char *store = err_str.load(std::memory_order_acquire);
    return store != nullptr ? store : default_err;
}

int issu_lock_cfg(uint32_t lock) noexcept
{
    return tell<issu_code::lock_cfg, wire::issu_value_request>(
        frame::local(), [=](wire::issu_value_request &request) { request.value = lock; });
}

int issu_send_nat_transfer(uint16_t a, uint16_t b, uint16_t c, uint16_t d) noexcept
{
    return tell<issu_code::nat_transfer, wire::issu_words_request>(frame::local(),
                                                                   [=](wire::issu_words_request &request) {
                                                                       request.a = a;
                                                                       request.b = b;
                                                                       request.c = c;
                                                                       request.d = d;
                                                                   });
}

int issu_send_ssmha_warm_sync_poll(uint16_t value) noexcept
{
    return tell<issu_code::ssmha_warm_sync_poll, wire::issu_short_request>(
        frame::local(), [=](wire::issu_short_request &request) { request.value = value; });
}

int issu_send_nat_merge(uint16_t slot, uint16_t cpu) noexcept
{
    return tell<issu_code::nat_merge, wire::issu_request>(processor(slot, cpu), frame::nothing_to_fill);
}

int issu_send_sess_transfer(uint16_t slot, uint16_t cpu, uint16_t c, uint16_t d) noexcept
{
    return tell<issu_code::sess_transfer, wire::issu_words_request>(processor(slot, cpu),
                                                                    [=](wire::issu_words_request &request) {
                                                                        request.a = slot;
                                                                        request.b = cpu;
                                                                        request.c = c;
                                                                        request.d = d;
                                                                    });
}

int issu_send_dmcu_switch(uint16_t slot, uint16_t cpu) noexcept
{
    return tell<issu_code::dmcu_switch, wire::issu_request>(processor(slot, cpu), frame::nothing_to_fill);
}

int issu_report_nat_transfer(uint32_t value) noexcept
{
    return tell<issu_code::report_nat_transfer, wire::issu_value_request>(
        frame::local(), [=](wire::issu_value_request &request) { request.value = value; });
}

int issu_report_ssmha_warm_sync(uint16_t value) noexcept
{
    return tell<issu_code::report_ssmha_warm_sync, wire::issu_short_request>(
        frame::local(), [=](wire::issu_short_request &request) { request.value = value; });
}

int issu_report_sess_transfer(uint16_t slot, uint16_t cpu, uint32_t value) noexcept
{
    return tell<issu_code::report_sess_transfer, wire::issu_value_request>(
        processor(slot, cpu), [=](wire::issu_value_request &request) { request.value = value; });
}

int issu_start(uint32_t mode, const char *name, const char *second_name) noexcept
{
    if (name == nullptr || second_name == nullptr)
        return refuse_parameter();
    return ask<issu_code::start, wire::issu_start_request>(
        frame::local(),
        [=](wire::issu_start_request &request) {
            request.mode = mode;
            frame::put_name(request.name, name);
            frame::put_name(request.second_name, second_name);
        },
        frame::nothing_to_deliver);
}

int issu_show_sum(uint32_t cpu, void *buffer) noexcept
{
    return copy_block<issu_code::show_sum, wire::issu_sum_reply>(cpu, buffer);
}

int issu_show_gshut(uint32_t cpu, void *buffer) noexcept
{
    return copy_block<issu_code::show_gshut, wire::issu_gshut_reply>(cpu, buffer);
}

int issu_show_cpu_status(uint32_t cpu, issu_cpu_status_callback callback) noexcept
{
    const frame::listing_call call{
        .where = frame::local(),
        .print = store_error,
        .row = callback != nullptr ? deliver_status : nullptr,
        .context = &callback,
    };
    const frame::listing_result result =
        frame::list<wire::issu_page_request>(cpu_status, call, [=](wire::issu_page_request &request) {
            request.code = issu_code::cpu_status;
            request.cpu = cpu;
        });
    return result.end == frame::listing_result::ending::complete ? 0 : -1;
}

int issu_ver_get(uint16_t slot, uint16_t cpu, char *buffer, uint32_t size) noexcept
{
    return copy_version<issu_code::ver_get>(processor(slot, cpu), buffer, size);
}

int issu_buf_image_ver_get(char *buffer, uint32_t size) noexcept
{
    return copy_version<issu_code::buf_image_ver_get>(frame::local(), buffer, size);
}

int issu_check(uint32_t cpu, uint32_t *result, char *buffer, uint32_t size) noexcept
{
    return ask<issu_code::check, wire::issu_request>(
        frame::local(), [=](wire::issu_request &request) { request.parameter = cpu; },
        [=](frame::reply_view &reply) {
            *result = reply.u32(offsetof(wire::issu_check_reply, result));
            reply.text(buffer, size, offsetof(wire::issu_check_reply, text));
        });
}

int issu_buf_image_load(const char *path) noexcept
{
    if (path == nullptr)
        return refuse_parameter();
    int answer = -1;
    ask<issu_code::buf_image_load, wire::issu_load_request>(
        frame::local(), [=](wire::issu_load_request &request) { frame::put_name(request.path, path); },
        [&](frame::reply_view &reply) {
            answer = static_cast<int>(reply.u32(offsetof(wire::issu_result_reply, result)));
        });
    return answer;
}

int issu_sm_shut(uint32_t cpu, uint32_t *result, uint16_t p, uint16_t q, const char *name,
                 const char *second_name) noexcept
{
    if (name == nullptr || second_name == nullptr)
        return refuse_parameter();
    return ask<issu_code::sm_shut, wire::issu_shut_request>(
        frame::local(),
        [=](wire::issu_shut_request &request) {
            request.cpu = cpu;
            frame::put_name(request.name, name);
            frame::put_name(request.second_name, second_name);
            request.p = p;
            request.q = q;
        },
        [=](frame::reply_view &reply) { *result = reply.u32(offsetof(wire::issu_result_reply, result)); });
}

int issu_image_clist_get(uint32_t cpu, const char *name, uint8_t selector, char *buffer,
                         uint32_t *len) noexcept
{
    if (name == nullptr)
        return refuse_parameter();
    return ask<issu_code::image_clist, wire::issu_clist_request>(
        frame::local(),
        [=](wire::issu_clist_request &request) {
            request.cpu = cpu;
            request.selector = selector;
            frame::put_name(request.name, name);
        },
        [=](frame::reply_view &reply) {
            *len = std::min(*len, reply.u32(offsetof(wire::issu_clist_reply, length)));
            reply.copy(buffer, sizeof(wire::issu_clist_reply), *len);
        });
}
