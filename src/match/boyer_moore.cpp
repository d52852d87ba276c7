#include <libmix/bm.h>

#include <cstring>

#include "match/fast.h"

static_assert(offsetof(bm_state, length) == 34 && offsetof(bm_state, bad_char) == 36 &&
              offsetof(bm_state, good_suffix) == 548 && sizeof(bm_state) == 614);

namespace
{

/* The shift after k matched bytes: from the rightmost other place that the last k bytes may stand at. */
uint16_t shift_of_suffix(const char *pattern, int length, int k)
{
    for (int j = length - 1 - k; j >= 1 - k; --j) {
        if (bm_substring(pattern, static_cast<uint32_t>(length - k), j, static_cast<uint32_t>(k)))
            return static_cast<uint16_t>(length - j - k);
    }
    return static_cast<uint16_t>(length);
}

} // namespace

int bm_match_init(bm_state *state, const char *pattern) noexcept
{
    const size_t bytes = pattern ? strnlen(pattern, BM_PATTERN_MAX + 1) : 0;
    if (!state || !pattern || bytes > BM_PATTERN_MAX)
        return -1;
    memcpy(state->pattern, pattern, bytes + 1);
    const int length = static_cast<int>(bytes);
    state->length = static_cast<uint16_t>(length);
    for (uint16_t &distance : state->bad_char)
        distance = state->length;
    for (int i = 0; i < length; ++i)
        state->bad_char[static_cast<uint8_t>(pattern[i])] = static_cast<uint16_t>(length - 1 - i);
    state->good_suffix[0] = 1;
    for (int k = 1; k < length; ++k)
        state->good_suffix[k] = shift_of_suffix(state->pattern, length, k);
    return 0;
}

int bm_match_proc(const void *text, uint16_t text_len, const bm_state *state) noexcept
{
    if (!text || !text_len || !state || state->length == 0 || state->length > BM_PATTERN_MAX ||
        text_len < state->length)
        return -1;
    /* The first occurrence is what the tables lead to; a vector search gets there sooner. */
    return mix::match::find_substring(static_cast<const uint8_t *>(text), text_len,
                                      reinterpret_cast<const uint8_t *>(state->pattern), state->length);
}

int bm_substring(const char *pattern, uint32_t a, int b, uint32_t k) noexcept
{
    int64_t left = static_cast<int64_t>(a) + k - 1;
    int64_t right = static_cast<int64_t>(b) + k - 1;
    for (uint32_t compared = 0; compared < k && right >= 0; ++compared, --left, --right) {
        if (pattern[left] != pattern[right])
            return 0;
    }
    /* The candidate runs off the pattern's start: its beginning is the end of the suffix. */
    if (right < 0 || left < 0)
        return 1;
    return pattern[left] != pattern[right];
}
