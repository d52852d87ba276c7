/* Which vector unit is there, and what is made for each. */
#include <atomic>
#include <cstring>

#include "match/fast.h"
#include "misc/processor.h"

#if defined(__x86_64__)
#include <immintrin.h>
#else
#include <arm_neon.h>
#endif

namespace mix::match
{

namespace
{

std::atomic<int> in_use{0};

/* A string to be found, and the two places of it that are compared first. */
struct needle {
    const uint8_t *bytes;
    int size;
    int one, two;
};

/* How common a byte is in what is searched, text more than anything: a wrong guess only costs time. */
constexpr uint8_t commonness(uint8_t byte)
{
    constexpr char most_common_first[] = " etaoinsrhldcumfpgwybvkxjqz";
    for (uint8_t i = 0; most_common_first[i]; ++i) {
        if (byte == static_cast<uint8_t>(most_common_first[i]))
            return static_cast<uint8_t>(100 - i);
    }
    return byte == '\n' || byte == 0xFF ? 80 : byte >= '0' && byte <= '9' ? 60 : byte < 0x80 ? 50 : 30;
}

struct commonness_table {
    uint8_t of[256];
};
constexpr commonness_table make_commonness()
{
    commonness_table table = {};
    for (unsigned byte = 0; byte < 256; ++byte)
        table.of[byte] = commonness(static_cast<uint8_t>(byte));
    return table;
}
constexpr commonness_table common = make_commonness();

/* The rarest byte and the rarest at another place. */
needle choose_probes(const uint8_t *bytes, int size)
{
    needle made{bytes, size, 0, size - 1};
    for (int i = 1; i < size; ++i) {
        if (common.of[bytes[i]] < common.of[bytes[made.one]])
            made.one = i;
    }
    made.two = made.one == 0 ? size - 1 : 0;
    for (int i = 0; i < size; ++i) {
        if (i != made.one && common.of[bytes[i]] < common.of[bytes[made.two]])
            made.two = i;
    }
    return made;
}

/* The first place of a mask, `step` bits a place, where the string stands; -1: at none. */
int confirm(const uint8_t *text, int at, uint64_t mask, int step, const needle &sought)
{
    for (; mask; mask &= mask - 1) {
        const int place = at + __builtin_ctzll(mask) / step;
        if (memcmp(text + place, sought.bytes, static_cast<size_t>(sought.size)) == 0)
            return place;
    }
    return -1;
}

uint32_t mark_plain(const uint32_t *matching, const uint32_t *rows, unsigned count)
{
    uint32_t mask = 0;
    for (unsigned i = 0; i < count; ++i)
        mask |= (matching[rows[i] / 32] >> rows[i] % 32 & 1) << i;
    return mask;
}

#if defined(__x86_64__)

vector_unit ask_processor()
{
    const processor has = this_processor();
    if (has.avx2)
        return vector_unit::avx2;
    return has.ssse3 ? vector_unit::ssse3 : vector_unit::none;
}

/* The last group of a text is moved back to end with it; places before `at` have been looked at. */
uint64_t from_place(uint64_t mask, int moved_back)
{
    return mask >> moved_back << moved_back;
}

[[gnu::target("ssse3")]] inline __m128i groups_at(const uint8_t *text, const __m128i *low,
                                                  const __m128i *high)
{
    const __m128i half = _mm_set1_epi8(15);
    __m128i groups = _mm_set1_epi8(-1);
    for (int place = 0; place < filter_window; ++place) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + place));
        groups = _mm_and_si128(groups, _mm_shuffle_epi8(low[place], _mm_and_si128(bytes, half)));
        groups = _mm_and_si128(groups,
                               _mm_shuffle_epi8(high[place], _mm_and_si128(_mm_srli_epi16(bytes, 4), half)));
    }
    return groups;
}

[[gnu::target("ssse3")]] candidates find_ssse3(const filter_masks &masks, const uint8_t *text, int at,
                                               int limit)
{
    __m128i low[filter_window], high[filter_window];
    for (int place = 0; place < filter_window; ++place) {
        low[place] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(masks.low[place]));
        high[place] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(masks.high[place]));
    }
    while (at < limit) {
        const int from = at + 16 <= limit ? at : limit - 16;
        const __m128i none = _mm_cmpeq_epi8(groups_at(text + from, low, high), _mm_setzero_si128());
        const uint64_t mask = from_place(static_cast<uint32_t>(_mm_movemask_epi8(none)) ^ 0xFFFFU, at - from);
        if (mask)
            return {from, mask};
        at = from + 16;
    }
    return {limit, 0};
}

[[gnu::target("avx2")]] inline __m256i groups_at_wide(const uint8_t *text, const __m256i *low,
                                                      const __m256i *high)
{
    const __m256i half = _mm256_set1_epi8(15);
    __m256i groups = _mm256_set1_epi8(-1);
    for (int place = 0; place < filter_window; ++place) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + place));
        groups = _mm256_and_si256(groups, _mm256_shuffle_epi8(low[place], _mm256_and_si256(bytes, half)));
        groups = _mm256_and_si256(
            groups, _mm256_shuffle_epi8(high[place], _mm256_and_si256(_mm256_srli_epi16(bytes, 4), half)));
    }
    return groups;
}

[[gnu::target("avx2")]] candidates find_avx2(const filter_masks &masks, const uint8_t *text, int at,
                                             int limit)
{
    __m256i low[filter_window], high[filter_window];
    for (int place = 0; place < filter_window; ++place) {
        low[place] =
            _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(masks.low[place])));
        high[place] = _mm256_broadcastsi128_si256(
            _mm_loadu_si128(reinterpret_cast<const __m128i *>(masks.high[place])));
    }
    while (at < limit) {
        const int from = at + 32 <= limit ? at : limit - 32;
        const __m256i none =
            _mm256_cmpeq_epi8(groups_at_wide(text + from, low, high), _mm256_setzero_si256());
        const uint64_t mask = from_place(~static_cast<uint32_t>(_mm256_movemask_epi8(none)), at - from);
        if (mask)
            return {from, mask};
        at = from + 32;
    }
    return {limit, 0};
}

[[gnu::target("avx2")]] uint32_t mark_avx2(const uint32_t *matching, const uint32_t *rows, unsigned count)
{
    if (count < 32)
        return mark_plain(matching, rows, count);
    uint32_t mask = 0;
    for (int i = 0; i < 32; i += 8) {
        const __m256i eight = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows + i));
        const __m256i words =
            _mm256_i32gather_epi32(reinterpret_cast<const int *>(matching), _mm256_srli_epi32(eight, 5), 4);
        /* Shifts the row's bit to the top of its word, by 31 less the low five bits of the row. */
        const __m256i left = _mm256_andnot_si256(eight, _mm256_set1_epi32(31));
        const __m256 top = _mm256_castsi256_ps(_mm256_sllv_epi32(words, left));
        mask |= static_cast<uint32_t>(_mm256_movemask_ps(top)) << i;
    }
    return mask;
}

int find_substring_sse2(const uint8_t *text, int length, const needle &sought)
{
    const int limit = length - sought.size + 1;
    const __m128i first = _mm_set1_epi8(static_cast<char>(sought.bytes[sought.one]));
    const __m128i second = _mm_set1_epi8(static_cast<char>(sought.bytes[sought.two]));
    for (int at = 0; at < limit; at += 16) {
        at = at + 16 <= limit ? at : limit - 16;
        const __m128i one = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + at + sought.one));
        const __m128i two = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + at + sought.two));
        const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(one, first), _mm_cmpeq_epi8(two, second));
        const int place = confirm(text, at, static_cast<uint32_t>(_mm_movemask_epi8(both)), 1, sought);
        if (place >= 0)
            return place;
    }
    return -1;
}

[[gnu::target("avx2")]] inline __m256i both_at(const uint8_t *text, const needle &sought, __m256i first,
                                               __m256i second)
{
    const __m256i one = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + sought.one));
    const __m256i two = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + sought.two));
    return _mm256_and_si256(_mm256_cmpeq_epi8(one, first), _mm256_cmpeq_epi8(two, second));
}

/* Goes on, four vectors at a time, to where one of the four may hold the string or fewer are left. */
[[gnu::target("avx2")]] inline int skip_avx2(const uint8_t *text, int at, int limit, const needle &sought,
                                             __m256i first, __m256i second)
{
    for (; at + 128 <= limit; at += 128) {
        const __m256i a = _mm256_or_si256(both_at(text + at, sought, first, second),
                                          both_at(text + at + 32, sought, first, second));
        const __m256i b = _mm256_or_si256(both_at(text + at + 64, sought, first, second),
                                          both_at(text + at + 96, sought, first, second));
        const __m256i any = _mm256_or_si256(a, b);
        if (!_mm256_testz_si256(any, any))
            break;
    }
    return at;
}

[[gnu::target("avx2")]] int find_substring_avx2(const uint8_t *text, int length, const needle &sought)
{
    const int limit = length - sought.size + 1;
    const __m256i first = _mm256_set1_epi8(static_cast<char>(sought.bytes[sought.one]));
    const __m256i second = _mm256_set1_epi8(static_cast<char>(sought.bytes[sought.two]));
    for (int at = 0; at < limit;) {
        at = skip_avx2(text, at, limit, sought, first, second);
        for (int vector = 0; vector < 4 && at < limit; ++vector, at += 32) {
            at = at + 32 <= limit ? at : limit - 32;
            const uint32_t mask =
                static_cast<uint32_t>(_mm256_movemask_epi8(both_at(text + at, sought, first, second)));
            const int place = confirm(text, at, mask, 1, sought);
            if (place >= 0)
                return place;
        }
    }
    return -1;
}

#else

vector_unit ask_processor()
{
    return vector_unit::neon;
}

/* Four bits for each byte that is not 0. */
uint64_t mask_of(uint8x16_t bytes)
{
    const uint16x8_t set = vreinterpretq_u16_u8(vtstq_u8(bytes, bytes));
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(set, 4)), 0);
}

candidates find_neon(const filter_masks &masks, const uint8_t *text, int at, int limit)
{
    uint8x16_t low[filter_window], high[filter_window];
    for (int place = 0; place < filter_window; ++place) {
        low[place] = vld1q_u8(masks.low[place]);
        high[place] = vld1q_u8(masks.high[place]);
    }
    while (at < limit) {
        const int from = at + 16 <= limit ? at : limit - 16;
        uint8x16_t groups = vdupq_n_u8(0xFF);
        for (int place = 0; place < filter_window; ++place) {
            const uint8x16_t bytes = vld1q_u8(text + from + place);
            groups = vandq_u8(groups, vqtbl1q_u8(low[place], vandq_u8(bytes, vdupq_n_u8(15))));
            groups = vandq_u8(groups, vqtbl1q_u8(high[place], vshrq_n_u8(bytes, 4)));
        }
        const int skip = 4 * (at - from);
        const uint64_t mask = mask_of(groups) >> skip << skip;
        if (mask)
            return {from, mask};
        at = from + 16;
    }
    return {limit, 0};
}

int find_substring_neon(const uint8_t *text, int length, const needle &sought)
{
    const int limit = length - sought.size + 1;
    const uint8x16_t first = vdupq_n_u8(sought.bytes[sought.one]);
    const uint8x16_t second = vdupq_n_u8(sought.bytes[sought.two]);
    for (int at = 0; at < limit; at += 16) {
        at = at + 16 <= limit ? at : limit - 16;
        const uint8x16_t both = vandq_u8(vceqq_u8(vld1q_u8(text + at + sought.one), first),
                                         vceqq_u8(vld1q_u8(text + at + sought.two), second));
        const int place = confirm(text, at, mask_of(both) & 0x1111111111111111, 4, sought);
        if (place >= 0)
            return place;
    }
    return -1;
}

#endif

/* Texts too short for a vector. */
int find_substring_short(const uint8_t *text, int length, const needle &sought)
{
    for (int at = 0; at + sought.size <= length; ++at) {
        if (text[at] == sought.bytes[0] &&
            memcmp(text + at, sought.bytes, static_cast<size_t>(sought.size)) == 0)
            return at;
    }
    return -1;
}

} // namespace

bool has_vector_unit(vector_unit unit)
{
    const vector_unit best = ask_processor();
    return unit == vector_unit::none || unit == best ||
           (unit == vector_unit::ssse3 && best == vector_unit::avx2);
}

void use_vector_unit(vector_unit unit)
{
    in_use.store(static_cast<int>(unit), std::memory_order_relaxed);
}

/* Asked once; several threads that ask at the same time get the same answer. */
vector_unit vector_unit_in_use()
{
    const vector_unit known = static_cast<vector_unit>(in_use.load(std::memory_order_relaxed));
    if (known != vector_unit::unknown)
        return known;
    const vector_unit best = ask_processor();
    use_vector_unit(best);
    return best;
}

vector_filter filter_in_use()
{
    switch (vector_unit_in_use()) {
#if defined(__x86_64__)
    case vector_unit::ssse3:
        return {find_ssse3, 16, 1};
    case vector_unit::avx2:
        return {find_avx2, 32, 1};
#else
    case vector_unit::neon:
        return {find_neon, 16, 4};
#endif
    default:
        return {nullptr, 0, 1};
    }
}

row_marker marker_in_use()
{
#if defined(__x86_64__)
    if (vector_unit_in_use() == vector_unit::avx2)
        return mark_avx2;
#endif
    return mark_plain;
}

int find_substring(const uint8_t *text, int length, const uint8_t *pattern, int pattern_length)
{
    const int places = length - pattern_length + 1;
    const vector_unit unit = vector_unit_in_use();
    if (unit == vector_unit::none || places < 16)
        return find_substring_short(text, length, {pattern, pattern_length, 0, 0});
    const needle sought = choose_probes(pattern, pattern_length);
#if defined(__x86_64__)
    if (unit == vector_unit::avx2 && places >= 32)
        return find_substring_avx2(text, length, sought);
    return find_substring_sse2(text, length, sought);
#else
    return find_substring_neon(text, length, sought);
#endif
}

} // namespace mix::match
