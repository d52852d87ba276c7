#include "frame/management.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace mix::frame
{

void exchange_record(uint32_t object, mgi_response_hook hook, const uint32_t *fields, uint32_t count,
                     print_callback print)
{
    struct {
        uint32_t object;
        uint8_t zero[36];
    } header{object, {}};
    static_assert(sizeof(header) == 40);

    const uint32_t size = count * static_cast<uint32_t>(sizeof(uint32_t));
    auto *record = static_cast<uint32_t *>(std::malloc(size));
    if (record == nullptr)
        return;
    std::memcpy(record, fields, size);
    record[0] = 0;
    uint32_t mask = 0;
    for (uint32_t i = 1; i < count; i++)
        mask |= fields[i] != 0 ? 1u << i : 0u;

    prepare_mgi_exchange(&header, 1, 2, size, 0, 0, mask, 0, record);
    make_mgi_exchange(hook, size);
    const char *text = get_errString(0);
    if (text != nullptr && print != nullptr)
        print("%s", text);
    std::free(record);
}

static void copy_text(const refusal_place &place, const char *text)
{
    if (place.buffer != nullptr && place.length > 0)
        std::snprintf(place.buffer, static_cast<size_t>(place.length), "%s", text);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" /* the prefix is a constant of the change */
static void tell(const change &what, const refusal_place &place, int result)
{
    if (what.told == refusal_text::unused)
        return;
    const char *text = mgi_get_rsp_err_string(result);
    if (what.told == refusal_text::to_standard_output) {
        if (text != nullptr)
            std::printf(what.prefix, text);
        return;
    }
    if (text != nullptr && place.print != nullptr)
        place.print("%s", text);
    const bool copied =
        (what.told == refusal_text::printed_and_copied && text != nullptr) ||
        (what.told == refusal_text::copied_only_if_printed && text != nullptr && place.print != nullptr) ||
        what.told == refusal_text::copied_even_if_absent;
    if (copied)
        copy_text(place, text);
}
#pragma GCC diagnostic pop

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security" /* parameter errors are constants without conversions */
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static int refuse_parameters(const change &what, const refusal_place &place)
{
    if (place.print != nullptr)
        place.print(what.parameter_error);
    copy_text(place, what.parameter_error);
    return -1;
}
#pragma GCC diagnostic pop

int commit(const change &what, const refusal_place &place, int *response)
{
    mgi_message message;
    mgi_init_rqt_message(&message);
    if (what.parameter_error != nullptr)
        return refuse_parameters(what, place);
    mgi_set_rqt_type(&message, what.type);
    if (what.language)
        mgi_set_rqt_language(&message, *what.language);
    if (what.vsysid)
        mgi_set_rqt_vsysid(&message, *what.vsysid);
    if (what.request_flag)
        message.request_flag = *what.request_flag;
    for (const attribute &each : what.attributes)
        message.attr[each.number] = each.value;
    const int result = what.object(&message, nullptr, nullptr);
    if (response != nullptr)
        *response = get_mgi_resp_type(&message);
    if (result != 0)
        tell(what, place, result);
    return result;
}

} // namespace mix::frame
