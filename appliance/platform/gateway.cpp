#include "appliance/platform/gateway.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "appliance/platform/transport.h"
#include "appliance/wire/message.h"
#include "platform/mgi.h"

namespace mixplatform
{

using namespace mix::wire;

namespace
{

/* A commit is on disk when it is answered, and disks can be slow. */
constexpr uint32_t gateway_timeout_ms = 5000;
constexpr uint32_t vsys_timeout_ms = 500;
constexpr size_t request_room = 32 * 1024;

/* A text that the caller may look at until the thread's next exchange. */
struct kept_text {
    int32_t result = result_ok;
    char text[gateway_text_max + 1] = "";

    void keep(int32_t of, std::string_view words)
    {
        result = of;
        words = fitting_text(words);
        std::copy(words.begin(), words.end(), text);
        text[words.size()] = '\0';
    }
};

/* The record that prepare_mgi_exchange was given, until make_mgi_exchange sends it. */
struct prepared_record {
    bool there = false;
    uint32_t object = 0;
    uint32_t mask = 0;
    size_t fields = 0;
    uint32_t field[record_fields_max] = {};
};

struct gateway_state {
    kept_text last;       /* of the last exchange */
    kept_text refusal;    /* of the last one that was refused */
    uint8_t language = 0; /* of the last exchange */
    prepared_record prepared;
};
thread_local gateway_state state;

/* The language of requests that name none: MIX_LANGUAGE, "zh" for Chinese. */
uint8_t usual_language()
{
    static const uint8_t language = [] {
        const char *chosen = std::getenv("MIX_LANGUAGE");
        const bool chinese = chosen != nullptr && std::strncmp(chosen, "zh", 2) == 0;
        return chinese ? language_chinese : language_english;
    }();
    return language;
}

/* Keeps how an exchange ended, and gives its result back. */
int conclude(int32_t result, uint8_t language, std::string_view text)
{
    state.language = language;
    if (result != result_ok && text.empty()) {
        const char *usual = text_of_result(result, language);
        text = usual != nullptr ? usual : "the management gateway refused the request";
    }
    state.last.keep(result, result != result_ok ? text : std::string_view());
    if (result != result_ok)
        state.refusal.keep(result, text);
    return result;
}

/* One exchange with the gateway. Nothing comes when there was no readable answer; then it is concluded. */
std::optional<gateway_reply> ask(uint32_t type, const writer &payload, uint8_t language)
{
    reply answer;
    if (exchange({gateway_daemon, type, payload.written(), gateway_timeout_ms}, answer) < 0) {
        conclude(result_unreachable, language, {});
        return std::nullopt;
    }
    if (answer.status < 0) {
        conclude(result_failed, language, {});
        return std::nullopt;
    }
    gateway_reply read;
    if (!decode_reply(answer.payload, read)) {
        conclude(result_nonsense, language, {});
        return std::nullopt;
    }
    return read;
}

using request_bytes = std::unique_ptr<uint8_t[]>;

/* Room for a request, on the heap: callers' stacks may be small. */
request_bytes room_for_request()
{
    return request_bytes(new (std::nothrow) uint8_t[request_room]);
}

int commit_object(uint32_t object, mgi_message *message)
{
    const request_bytes room = room_for_request();
    if (room == nullptr)
        return conclude(result_too_large, message->language, {});
    writer out({room.get(), request_room});
    if (!encode_commit(*message, *find_object(object), out))
        return conclude(result_too_large, message->language, {});
    message->resp_type = 0;
    const auto answer = ask(gateway_commit, out, message->language);
    if (!answer)
        return state.last.result;
    message->resp_type = answer->response_type;
    return conclude(answer->result, message->language, answer->text);
}

/* A batch without rows, for a read that could not be carried out. */
int deliver_nothing(mgi_batch_callback callback, int error, void *context)
{
    const uint8_t empty[batch_rows_at] = {};
    callback(empty, sizeof(empty), error, context);
    return error;
}

/*
 * Reads batch by batch: each answer carries the cookie of the next question. The batch is copied out of the
 * transport's buffer, because the callback may send messages of its own.
 */
int read_object(const object_description &object, size_t row_size, mgi_message message,
                mgi_batch_callback callback, void *context)
{
    const request_bytes room = room_for_request();
    const request_bytes batch(new (std::nothrow) uint8_t[maximum_payload]);
    if (room == nullptr || batch == nullptr)
        return deliver_nothing(callback, conclude(result_too_large, message.language, {}), context);
    uint8_t cookie[cookie_size];
    for (;;) {
        writer out({room.get(), request_room});
        if (!encode_commit(message, object, out))
            return deliver_nothing(callback, conclude(result_too_large, message.language, {}), context);
        const auto answer = ask(gateway_read, out, message.language);
        if (!answer)
            return deliver_nothing(callback, state.last.result, context);
        conclude(answer->result, message.language, answer->text);
        const bool more = answer->more && answer->result == result_ok;
        const size_t size = answer->batch.size();
        if (size == 0 && answer->result != result_ok)
            return deliver_nothing(callback, answer->result, context);
        const auto rows = rows_of_batch(answer->batch, row_size);
        if (!rows || (more && *rows == 0))
            return deliver_nothing(callback, conclude(result_nonsense, message.language, {}), context);
        const int32_t result = answer->result;
        std::copy(answer->batch.begin(), answer->batch.end(), batch.get());
        const int wanted = callback(batch.get(), static_cast<uint32_t>(size), result, context);
        if (!more || wanted != 0)
            return result;
        std::copy_n(batch.get(), cookie_size, cookie);
        message.cookie = cookie;
        message.cookie_length = cookie_size;
    }
}

std::optional<uint16_t> vsys_of_environment()
{
    const char *chosen = std::getenv("MIX_VSYS");
    if (chosen == nullptr)
        return std::nullopt;
    uint16_t id = 0;
    const char *end = chosen + std::strlen(chosen);
    const auto [stop, error] = std::from_chars(chosen, end, id);
    if (error != std::errc() || stop != end || end == chosen)
        return std::nullopt;
    return id;
}

} // namespace

int save(const save_request &request)
{
    const request_bytes room = room_for_request();
    if (room == nullptr)
        return conclude(result_too_large, usual_language(), {});
    writer out({room.get(), request_room});
    if (!encode_save(request, out))
        return conclude(result_too_large, usual_language(), {});
    const auto answer = ask(gateway_save, out, usual_language());
    return answer ? conclude(answer->result, usual_language(), answer->text) : state.last.result;
}

} // namespace mixplatform

using namespace mixplatform;

void mgi_init_rqt_message(mgi_message *message)
{
    *message = {};
}

void mgi_set_rqt_type(mgi_message *message, uint32_t type)
{
    message->rqt_type = type;
}

void mgi_set_rqt_language(mgi_message *message, uint8_t language)
{
    message->language = language;
}

void mgi_set_rqt_vsysid(mgi_message *message, uint16_t vsysid)
{
    message->vsysid = vsysid;
}

void mgi_set_rqt_cookie(mgi_message *message, const void *cookie, uint32_t length)
{
    message->cookie = cookie;
    message->cookie_length = length;
}

int get_mgi_resp_type(const mgi_message *message)
{
    return message->resp_type;
}

uint16_t get_mgi_vsysid(void)
{
    static const std::optional<uint16_t> chosen = vsys_of_environment();
    if (chosen)
        return *chosen;
    reply answer;
    const int32_t result = exchange({gateway_daemon, gateway_current_vsys, {}, vsys_timeout_ms}, answer);
    return result == 0 && answer.status >= 0 ? static_cast<uint16_t>(answer.status) : uint16_t{0};
}

const char *mgi_get_rsp_err_string(int result)
{
    if (result == result_ok)
        return nullptr;
    if (result == state.refusal.result)
        return state.refusal.text;
    return text_of_result(result, state.language);
}

int prepare_mgi_exchange(const void *header, int, int, uint32_t record_size, int, int, uint32_t mask, int,
                         const void *record)
{
    prepared_record &to = state.prepared;
    to = {};
    const size_t fields = record_size / sizeof(uint32_t);
    if (header == nullptr || (record == nullptr && record_size != 0) || record_size % sizeof(uint32_t) != 0 ||
        fields > record_fields_max)
        return -1;
    std::memcpy(&to.object, header, sizeof(to.object));
    to.mask = mask;
    to.fields = fields;
    for (size_t i = 0; i < fields; i++) /* fields without their bit may never have been written */
        if ((mask >> i & 1) != 0)
            std::memcpy(&to.field[i], static_cast<const uint8_t *>(record) + i * sizeof(uint32_t),
                        sizeof(uint32_t));
    to.there = true;
    return 0;
}

int make_mgi_exchange(mgi_response_hook hook, uint32_t record_size)
{
    const prepared_record record = state.prepared;
    state.prepared.there = false;
    if (!record.there || record_size != record.fields * sizeof(uint32_t))
        return conclude(result_too_large, usual_language(), {});
    uint8_t room[sizeof(record_header) + sizeof(record.field)];
    writer out(room);
    if (!encode_record(record.object, record.mask, record.field, record.fields, usual_language(), out))
        return conclude(result_too_large, usual_language(), {});
    const auto answer = ask(gateway_record, out, usual_language());
    if (!answer)
        return state.last.result;
    const int result = conclude(answer->result, usual_language(), answer->text);
    if (result == result_ok && hook != nullptr)
        hook(record.field, record_size);
    return result;
}

const char *get_errString(int)
{
    return state.last.result != result_ok ? state.last.text : nullptr;
}

#define MIX_COMMIT(name, object)                                                                             \
    int name(mgi_message *message, void *, void *)                                                           \
    {                                                                                                        \
        return commit_object(object, message);                                                               \
    }
MIX_COMMIT(final_set_arp_arpe, object_arp)
MIX_COMMIT(final_set_neighbor_neighbor, object_neighbor)
MIX_COMMIT(final_set_gas_gase, object_gas)
MIX_COMMIT(final_set_mac_mace, object_mac_interface)
MIX_COMMIT(final_set_mac_mace_ml, object_mac)
MIX_COMMIT(final_set_md_macd, object_mac_description)
MIX_COMMIT(final_set_if_if_dhcpsn, object_dhcpsn)

int final_get_if_if_dhcpsn(mgi_message *message, mgi_batch_callback callback, void *context)
{
    return read_object(*find_object(object_dhcpsn), dhcpsn_row_size, *message, callback, context);
}
