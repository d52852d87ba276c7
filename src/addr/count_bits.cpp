#include "addr/count_bits.h"

#include <atomic>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace
{

using counter = uint32_t (*)(const uint8_t *bytes, size_t words);

[[gnu::always_inline]] inline uint64_t word_at(const uint8_t *bytes, size_t index)
{
    uint64_t word;
    std::memcpy(&word, bytes + 8 * index, sizeof(word));
    return word;
}

#if defined(__x86_64__)

/* Sums of pairs, of fours, of eights, then all bytes by one multiplication. */
uint32_t bits_of(uint64_t word)
{
    word -= word >> 1 & 0x5555555555555555;
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32_t>(word * 0x0101010101010101 >> 56);
}

uint32_t count_by_sums(const uint8_t *bytes, size_t words)
{
    uint32_t count = 0;
    for (size_t i = 0; i < words; i++)
        count += bits_of(word_at(bytes, i));
    return count;
}

/* The instruction is not in the baseline of this architecture. */
[[gnu::target("popcnt")]] uint32_t count_by_instruction(const uint8_t *bytes, size_t words)
{
    uint64_t count = 0;
    for (size_t i = 0; i < words; i++)
        count += static_cast<uint64_t>(__builtin_popcountll(word_at(bytes, i)));
    return static_cast<uint32_t>(count);
}

counter choose()
{
    unsigned a;
    unsigned b;
    unsigned c = 0;
    unsigned d;
    const bool known = __get_cpuid(1, &a, &b, &c, &d) != 0;
    return known && (c & bit_POPCNT) != 0 ? count_by_instruction : count_by_sums;
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

#else

uint32_t count_in_baseline(const uint8_t *bytes, size_t words)
{
    uint32_t count = 0;
    for (size_t i = 0; i < words; i++)
        count += static_cast<uint32_t>(std::popcount(word_at(bytes, i)));
    return count;
}

counter best()
{
    return count_in_baseline;
}

#endif

} // namespace

uint32_t mix::addr::count_bits(const uint8_t *bytes, size_t words)
{
    return best()(bytes, words);
}
