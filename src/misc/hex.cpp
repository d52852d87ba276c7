#include <libmix/hex.h>

#include <cstring>

#include "misc/digits.h"

namespace
{

/*
 * Sixteen bytes at once, in the compiler's own vector types: SSE2 on x86-64, NEON on arm64, both of which
 * every machine of the kind has. A comparison gives 0xff where it holds.
 */
using lanes [[gnu::vector_size(16)]] = uint8_t;
constexpr size_t width = sizeof(lanes);

lanes load(const void *from)
{
    lanes value;
    std::memcpy(&value, from, width);
    return value;
}

void store(void *to, lanes value)
{
    std::memcpy(to, &value, width);
}

lanes digits_of(lanes nibbles)
{
    return nibbles + '0' + (lanes(nibbles > 9) & ('a' - '9' - 1));
}

/* The value of each digit; `valid` gets 0xff where the character is one, the value is 0 elsewhere. */
lanes values_of(lanes characters, lanes &valid)
{
    const lanes decimal = characters - '0';
    const lanes letter = (characters | 0x20) - 'a';
    const lanes is_decimal = lanes(decimal <= 9);
    const lanes is_letter = lanes(letter <= 5);
    valid = is_decimal | is_letter;
    return (decimal & is_decimal) | ((letter + 10) & is_letter);
}

void encode_byte(char *out, uint8_t value)
{
    constexpr char digits[] = "0123456789abcdef";
    out[0] = digits[value >> 4];
    out[1] = digits[value & 15];
}

void decode_pair(uint8_t *out, const char *in)
{
    const int high = mix::hex_value(in[0]);
    const int low = mix::hex_value(in[1]);
    if (high >= 0)
        *out = static_cast<uint8_t>(high << 4);
    if (low >= 0)
        *out = static_cast<uint8_t>(*out | low);
}

} // namespace

void hex_encode(char *out, const uint8_t *in, int n) noexcept
{
    const size_t count = n > 0 ? static_cast<size_t>(n) : 0;
    size_t i = 0;
    for (; i + width <= count; i += width) {
        const lanes bytes = load(in + i);
        const lanes high = digits_of(bytes >> 4);
        const lanes low = digits_of(bytes & 15);
        store(out + 2 * i,
              __builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
        store(out + 2 * i + width, __builtin_shufflevector(high, low, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28,
                                                           13, 29, 14, 30, 15, 31));
    }
    for (; i < count; i++)
        encode_byte(out + 2 * i, in[i]);
}

void hex_decode(uint8_t *out, const char *in, int n) noexcept
{
    const size_t pairs = n > 0 ? (static_cast<size_t>(n) + 1) / 2 : 0;
    const size_t whole = n > 0 ? static_cast<size_t>(n) / 2 : 0; /* pairs inside the n characters */
    size_t i = 0;
    /* All of a step's characters and old bytes are read before its bytes are written, which with out equal to
     * in gives what one pair after the other gives: no pair writes a character that a later pair reads. */
    for (; i + width <= whole; i += width) {
        const lanes front = load(in + 2 * i);
        const lanes back = load(in + 2 * i + width);
        lanes high_valid, low_valid;
        const lanes high = values_of(
            __builtin_shufflevector(front, back, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30),
            high_valid);
        const lanes low = values_of(
            __builtin_shufflevector(front, back, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31),
            low_valid);
        const lanes old = load(out + i) & ~high_valid;
        store(out + i, (high << 4) | old | low);
    }
    for (; i < pairs; i++)
        decode_pair(out + i, in + 2 * i);
}
