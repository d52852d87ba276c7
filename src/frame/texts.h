/* The failure texts of an exchange, as data. */
#ifndef MIX_FRAME_TEXTS_H
#define MIX_FRAME_TEXTS_H

#include <cstdint>

namespace mix::frame
{

/* What a text's conversions show, in their order. */
enum class shows : uint8_t {
    nothing,
    function,
    send_result,
    status,
    length,
    length_and_expected,
    function_sent_status,
    sent_status_length,
    function_sent_status_length
};

/* A text without a format is not printed. */
struct text {
    const char *format = nullptr;
    shows what = shows::nothing;
};

inline constexpr text no_enough_memory{"No enough memory\n", shows::nothing};
inline constexpr text function_no_enough_memory{"%s, No enough memory\n", shows::function};
inline constexpr text send_failed{"ipcmsg send failed\n", shows::nothing};
inline constexpr text wrong_length{"Received buf len is wrong, len is %d\n", shows::length};

struct texts {
    const char *function = nullptr; /* the exported name, for the texts that show it */
    text no_request = {};
    text no_reply = {};
    text not_sent = {};
    text refused = {};
    text bad_length = {};
    text bad_count = {}; /* a page whose rows don't fill its length; listings only */
};

/* The set most families print: a missing request buffer is told, a missing reply buffer is not. */
constexpr texts usual_texts(const char *refused)
{
    return {.no_request = no_enough_memory,
            .not_sent = send_failed,
            .refused = {refused, shows::status},
            .bad_length = wrong_length,
            .bad_count = wrong_length};
}

} // namespace mix::frame

#endif
