#include "addr/count_bits.h"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <atomic>
#include <immintrin.h>

#include "misc/processor.h"
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace
{

using mix::addr::count_block;

#if defined(__x86_64__)

/* None of this is in the baseline of the architecture but the first. */
using counter = uint32_t (*)(const uint8_t *bytes, size_t blocks);

inline uint64_t word_at(const uint8_t *bytes)
{
    uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

uint32_t count_plainly(const uint8_t *bytes, size_t blocks)
{
    uint32_t count = 0;
    for (const uint8_t *end = bytes + blocks * count_block; bytes != end; bytes += 8)
        count += static_cast<uint32_t>(std::popcount(word_at(bytes)));
    return count;
}

[[gnu::target("popcnt")]] uint32_t count_by_word(const uint8_t *bytes, size_t blocks)
{
    uint64_t count = 0;
    for (const uint8_t *end = bytes + blocks * count_block; bytes != end; bytes += 32) {
        count +=
            static_cast<uint64_t>(_mm_popcnt_u64(word_at(bytes)) + _mm_popcnt_u64(word_at(bytes + 8)) +
                                  _mm_popcnt_u64(word_at(bytes + 16)) + _mm_popcnt_u64(word_at(bytes + 24)));
    }
    return static_cast<uint32_t>(count);
}

/* By a table of the sixteen half bytes. Byte sums hold 16 blocks: two vectors each, at most 8 a byte, in two
 * sums. */
[[gnu::target("avx2")]] uint32_t count_by_table(const uint8_t *bytes, size_t blocks)
{
    const __m256i table = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 0, 1, 1, 2, 1, 2,
                                           2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
    const __m256i low_half = _mm256_set1_epi8(0x0F);
    __m256i low_sums = _mm256_setzero_si256();
    __m256i high_sums = _mm256_setzero_si256();
    for (const uint8_t *end = bytes + blocks * count_block; bytes != end; bytes += 32) {
        const __m256i at = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(bytes));
        const __m256i low = _mm256_and_si256(at, low_half);
        const __m256i high = _mm256_and_si256(_mm256_srli_epi16(at, 4), low_half);
        low_sums = _mm256_add_epi8(low_sums, _mm256_shuffle_epi8(table, low));
        high_sums = _mm256_add_epi8(high_sums, _mm256_shuffle_epi8(table, high));
    }
    const __m256i zero = _mm256_setzero_si256();
    const __m256i sums = _mm256_add_epi64(_mm256_sad_epu8(low_sums, zero), _mm256_sad_epu8(high_sums, zero));
    return static_cast<uint32_t>(_mm256_extract_epi64(sums, 0) + _mm256_extract_epi64(sums, 1) +
                                 _mm256_extract_epi64(sums, 2) + _mm256_extract_epi64(sums, 3));
}

[[gnu::target("avx512f,avx512vpopcntdq")]] uint32_t count_by_block(const uint8_t *bytes, size_t blocks)
{
    __m512i sums = _mm512_setzero_si512();
    for (const uint8_t *end = bytes + blocks * count_block; bytes != end; bytes += count_block)
        sums = _mm512_add_epi64(sums, _mm512_popcnt_epi64(_mm512_loadu_si512(bytes)));
    uint64_t lanes[8];
    _mm512_storeu_si512(lanes, sums);
    uint64_t count = 0;
    for (const uint64_t lane : lanes)
        count += lane;
    return static_cast<uint32_t>(count);
}

counter choose()
{
    const mix::processor has = mix::this_processor();
    if (!has.popcnt)
        return count_plainly;
    if (has.avx512_popcnt)
        return count_by_block;
    return has.avx2 ? count_by_table : count_by_word;
}

/* Asked at first use: a start-up constructor would run in every program that links the library. */
constinit std::atomic<counter> chosen = nullptr;

counter best()
{
    counter known = chosen.load(std::memory_order_relaxed);
    if (known == nullptr) {
        known = choose();
        chosen.store(known, std::memory_order_relaxed);
    }
    return known;
}

#elif defined(__aarch64__)

uint32_t count_by_vector(const uint8_t *bytes, size_t blocks)
{
    uint16x8_t sums = vdupq_n_u16(0);
    for (const uint8_t *end = bytes + blocks * count_block; bytes != end; bytes += 16)
        sums = vpadalq_u8(sums, vcntq_u8(vld1q_u8(bytes)));
    return vaddlvq_u16(sums);
}

constexpr auto best()
{
    return count_by_vector;
}

#endif

} // namespace

uint32_t mix::addr::count_bits(const uint8_t *bytes, size_t blocks)
{
    return best()(bytes, blocks);
}
