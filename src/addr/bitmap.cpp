/*
 * VLAN bitmaps. Outside, bit v mod 8 of byte v div 8; inside, the 513 bytes are 32 lanes of 16 bytes and a
 * tail byte. Every lane and word is loaded and stored by memcpy: nothing is assumed about the bitmap's
 * alignment, and a block is read whole before it is written, so that operands may be the same bitmap.
 */
#include <libmix/bitmap.h>

#include <bit>
#include <cstring>

#include "addr/count_bits.h"

namespace
{

constexpr size_t bitmap_bytes = MIX_VLAN_BITMAP_SIZE;
constexpr size_t tail = bitmap_bytes - 1;
constexpr uint32_t most_vlans = bitmap_bytes * 8;
constexpr uint16_t highest_vlan = 4095;

/* The byte that holds vid; ids above 4103 are the caller's to avoid. */
constexpr size_t byte_of(uint32_t vid)
{
    return vid >> 3 & 0x1FFF;
}

constexpr uint8_t bit_of(uint32_t vid)
{
    return static_cast<uint8_t>(1u << (vid & 7));
}

template <class T>
T load(const uint8_t *at)
{
    T value;
    std::memcpy(&value, at, sizeof(value));
    return value;
}

template <class T>
void store(uint8_t *at, T value)
{
    std::memcpy(at, &value, sizeof(value));
}

using lane = uint64_t __attribute__((vector_size(16)));
constexpr size_t block = 4 * sizeof(lane);
static_assert(tail % block == 0);

/* out = op(a, b), lane by lane and for the tail byte. */
template <class Op>
void combine(const uint8_t *a, const uint8_t *b, uint8_t *out, Op op)
{
    for (size_t at = 0; at < tail; at += block) {
        const lane one = op(load<lane>(a + at), load<lane>(b + at));
        const lane two = op(load<lane>(a + at + 16), load<lane>(b + at + 16));
        const lane three = op(load<lane>(a + at + 32), load<lane>(b + at + 32));
        const lane four = op(load<lane>(a + at + 48), load<lane>(b + at + 48));
        store(out + at, one);
        store(out + at + 16, two);
        store(out + at + 32, three);
        store(out + at + 48, four);
    }
    out[tail] = static_cast<uint8_t>(op(a[tail], b[tail]));
}

/* The 64 ids from 64 * index on, the lowest in bit 0; the last word holds the tail byte alone. */
uint64_t word_at(const uint8_t *bitmap, uint32_t index)
{
    return index < tail / 8 ? load<uint64_t>(bitmap + size_t{index} * 8) : bitmap[tail];
}

/* Ids from `vid` on, in the word that holds it. */
constexpr uint64_t from(uint32_t vid)
{
    return ~uint64_t{0} << vid % 64;
}

/* Ids up to `vid`, in the word that holds it. */
constexpr uint64_t up_to(uint32_t vid)
{
    return ~uint64_t{0} >> (63 - vid % 64);
}

/* The lowest id from `vid` on that is set; most_vlans when there is none. */
uint32_t next_vlan(const uint8_t *bitmap, uint32_t vid)
{
    if (vid >= most_vlans)
        return most_vlans;
    uint64_t word = word_at(bitmap, vid / 64) & from(vid);
    for (uint32_t index = vid / 64;;) {
        if (word != 0)
            return index * 64 + static_cast<uint32_t>(std::countr_zero(word));
        if (++index > tail / 8)
            return most_vlans;
        word = word_at(bitmap, index);
    }
}

/* Ports are counted in 32 bits, so that a map of 65535 ports comes to its end. */
constexpr uint32_t no_port = 0x10000;

/* The lowest port from `port` on whose bitmap holds vid. */
uint32_t next_port(uint8_t *const *map, uint32_t vid, uint32_t port, uint16_t nports)
{
    for (; port < nports; port++) {
        if (vlan_is_in_bitmap(map[port], vid) != 0)
            return port;
    }
    return no_port;
}

} // namespace

int bitmap_port_set_vid(uint8_t *bitmap, uint32_t vid) noexcept
{
    bitmap[byte_of(vid)] |= bit_of(vid);
    return 0;
}

int vlan_is_in_bitmap(const uint8_t *bitmap, uint32_t vid) noexcept
{
    return (bitmap[byte_of(vid)] & bit_of(vid)) != 0;
}

uint16_t bitmap_get_port_vlan_num(const uint8_t *bitmap) noexcept
{
    const uint32_t in_blocks = mix::addr::count_bits(bitmap, tail / mix::addr::count_block);
    return static_cast<uint16_t>(in_blocks + static_cast<uint32_t>(std::popcount(bitmap[tail])));
}

int bitmap_is_include_specified_vlan(const uint8_t *bitmap, uint16_t lo, uint16_t hi) noexcept
{
    if (hi > highest_vlan || hi < lo)
        return 0;
    const uint32_t first = lo / 64;
    const uint32_t last = hi / 64;
    if (first == last)
        return (word_at(bitmap, first) & from(lo) & up_to(hi)) != 0;
    if ((word_at(bitmap, first) & from(lo)) != 0 || (word_at(bitmap, last) & up_to(hi)) != 0)
        return 1;
    for (uint32_t index = first + 1; index < last; index++) {
        if (word_at(bitmap, index) != 0)
            return 1;
    }
    return 0;
}

int bitmap_port_clear(uint8_t *bitmap) noexcept
{
    /* memset of this fixed size becomes a string instruction, which takes twice as long. */
    for (size_t at = 0; at < tail; at += block) {
        store(bitmap + at, lane{});
        store(bitmap + at + 16, lane{});
        store(bitmap + at + 32, lane{});
        store(bitmap + at + 48, lane{});
    }
    bitmap[tail] = 0;
    return 0;
}

int bitmap_port_copy(uint8_t *dst, const uint8_t *src) noexcept
{
    std::memmove(dst, src, bitmap_bytes);
    return 0;
}

int bitmap_port_or(const uint8_t *src, uint8_t *dst) noexcept
{
    combine(src, dst, dst, [](auto s, auto d) { return d | s; });
    return 0;
}

int bitmap_port_and(const uint8_t *src, uint8_t *dst) noexcept
{
    combine(src, dst, dst, [](auto s, auto d) { return d & s; });
    return 0;
}

int bitmap_port_not(const uint8_t *src, uint8_t *dst) noexcept
{
    combine(src, dst, dst, [](auto s, auto d) { return d & ~s; }); /* takes away; the name promises more */
    return 0;
}

int bitmap_port_diff(const uint8_t *a, const uint8_t *b, uint8_t *out) noexcept
{
    combine(a, b, out, [](auto x, auto y) { return x ^ y; });
    return 0;
}

int bitmap_port_cmp(const uint8_t *a, const uint8_t *b) noexcept
{
    return std::memcmp(a, b, bitmap_bytes) != 0;
}

int bitmap_is_zero(const uint8_t *bitmap) noexcept
{
    for (size_t at = 0; at < tail; at += block) {
        const lane any = (load<lane>(bitmap + at) | load<lane>(bitmap + at + 16)) |
                         (load<lane>(bitmap + at + 32) | load<lane>(bitmap + at + 48));
        if ((any[0] | any[1]) != 0)
            return 0;
    }
    return bitmap[tail] == 0;
}

int bitmap_debug(const void *) noexcept
{
    return 0;
}

int bitmap_port_for_each_vlan_action(const uint8_t *bitmap, void *context, bitmap_vlan_action action) noexcept
{
    for (uint32_t vid = next_vlan(bitmap, 0); vid < most_vlans; vid = next_vlan(bitmap, vid + 1))
        action(vid, context);
    return 0;
}

int bitmap_add_port2vlan(uint8_t *const *map, uint16_t port, uint32_t vid) noexcept
{
    return bitmap_port_set_vid(map[port], vid);
}

int bitmap_del_port_from_vlan(uint8_t *const *map, uint16_t port, uint32_t vid) noexcept
{
    map[port][byte_of(vid)] &= static_cast<uint8_t>(~bit_of(vid));
    return 0;
}

int bitmap_is_port_belong2vlan(uint8_t *const *map, uint16_t port, uint32_t vid) noexcept
{
    return vlan_is_in_bitmap(map[port], vid);
}

int bitmap_is_port_add2vlan(uint8_t *const *map, uint16_t port) noexcept
{
    return bitmap_is_zero(map[port]) == 0;
}

uint16_t bitmap_get_vlan_port_num(uint8_t *const *map, uint32_t vid, uint16_t nports) noexcept
{
    uint16_t count = 0;
    for (uint32_t port = next_port(map, vid, 0, nports); port != no_port;
         port = next_port(map, vid, port + 1, nports))
        count++;
    return count;
}

int bitmap_is_vlan_have_port(uint8_t *const *map, uint32_t vid, uint16_t nports) noexcept
{
    return next_port(map, vid, 0, nports) != no_port;
}

int bitmap_vlan_get_one_member(uint8_t *const *map, uint32_t vid, uint16_t nports, uint16_t *port) noexcept
{
    const uint32_t lowest = next_port(map, vid, 0, nports);
    if (lowest == no_port)
        return -1;
    *port = static_cast<uint16_t>(lowest);
    return 0;
}

int bitmap_vlan_for_each_port(uint8_t *const *map, uint32_t vid, uint16_t nports, void *context,
                              bitmap_port_action action) noexcept
{
    for (uint32_t port = next_port(map, vid, 0, nports); port != no_port;
         port = next_port(map, vid, port + 1, nports))
        action(static_cast<uint16_t>(port), context);
    return 0;
}
