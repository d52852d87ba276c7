#include <libmix/ip_util.h>

#include <endian.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace
{

constexpr uint8_t not_a_mask_octet = 255;

bool is_contiguous(uint32_t mask)
{
    return std::countl_one(mask) == std::popcount(mask);
}

/* Word i of a 16-byte mask, its first byte most significant. */
uint32_t mask_word(const uint8_t *mask, int i)
{
    uint32_t word;
    std::memcpy(&word, mask + static_cast<ptrdiff_t>(sizeof(word)) * i, sizeof(word));
    return be32toh(word);
}

} // namespace

uint32_t masknum_2_v4(uint32_t bits) noexcept
{
    return bits == 0 ? 0 : 0xFFFFFFFFu << ((32 - bits) % 32);
}

char *maskv4num_2_str(uint32_t bits, char *dst, int len) noexcept
{
    constexpr char all_ones[] = "255.255.255.255";
    if (len < static_cast<int>(sizeof(all_ones)))
        return nullptr;
    if (bits <= 31)
        return ipv4_2_str(masknum_2_v4(bits), dst, len);
    std::memcpy(dst, all_ones, sizeof(all_ones)); /* and nothing behind it, unlike the other masks */
    return dst;
}

int maskv4_2_num(uint32_t mask) noexcept
{
    int length = 0;
    bool full_so_far = true;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const uint8_t ones = mask_bmap_table[mask >> shift & 0xFF];
        if (ones == not_a_mask_octet || (!full_so_far && ones != 0))
            return -1;
        full_so_far = full_so_far && ones == 8;
        length += ones;
    }
    return length;
}

int maskv4str_2_num(const char *text) noexcept
{
    uint32_t mask;
    return ipv4str_2_uint(text, &mask) == 0 ? maskv4_2_num(mask) : -1;
}

int is_maskv4_str(const char *text) noexcept
{
    return maskv4str_2_num(text) >= 0;
}

void masknum_2_v6(uint8_t *out, int bits) noexcept
{
    bits = std::clamp(bits, 0, 128);
    const int full = bits / 8;
    std::memset(out, 0, 16);
    std::memset(out, 0xFF, static_cast<size_t>(full));
    if (bits % 8 != 0)
        out[full] = ipv6_maskbit[bits % 8];
}

int maskv6_2_num(const uint8_t *mask) noexcept
{
    int i = 0;
    while (i < 4 && mask_word(mask, i) == 0xFFFFFFFF)
        i++;
    if (i == 4)
        return 128;
    const uint32_t word = mask_word(mask, i);
    if (!is_contiguous(word))
        return -i; /* 0 for the first word, the same as a mask without ones: callers know */
    for (int j = i + 1; j < 4; j++) {
        if (mask_word(mask, j) != 0)
            return j == 1 ? -2 : -j; /* word 1 is reported as 2, on purpose */
    }
    return 32 * i + std::countl_one(word);
}
