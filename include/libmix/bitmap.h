/*
 * libmix: VLAN bitmaps of switch ports.
 *
 * A bitmap is 513 bytes at any alignment: VLAN id v is bit v mod 8 (from the least significant) of byte v
 * div 8. Ids lie in 0 to 4103; that is not checked. A port map is an array of pointers to bitmaps, indexed by
 * port number; it does not own them. Nothing here locks: callers keep writers of one bitmap apart.
 *
 * Every function returns 0 unless its comment says otherwise.
 */
#ifndef LIBMIX_BITMAP_H
#define LIBMIX_BITMAP_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

#define MIX_VLAN_BITMAP_SIZE 513

/* Called for one member; context is the caller's own. The result is ignored. */
typedef int (*bitmap_vlan_action)(uint32_t vid, void *context);
typedef int (*bitmap_port_action)(uint16_t port, void *context);

/* --- one bitmap --- */

/* Sets the bit. */
MIX_API int bitmap_port_set_vid(uint8_t *bitmap, uint32_t vid) MIX_NOEXCEPT;

/* Returns 1 if the bit is set, else 0. */
MIX_API int vlan_is_in_bitmap(const uint8_t *bitmap, uint32_t vid) MIX_NOEXCEPT;

/* Returns the number of bits set in all 513 bytes. */
MIX_API uint16_t bitmap_get_port_vlan_num(const uint8_t *bitmap) MIX_NOEXCEPT;

/* Returns 1 when an id from lo to hi, both included, is set; else, and for a hi above 4095 or below lo, 0. */
MIX_API int bitmap_is_include_specified_vlan(const uint8_t *bitmap, uint16_t lo, uint16_t hi) MIX_NOEXCEPT;

/* Zeroes the bitmap. */
MIX_API int bitmap_port_clear(uint8_t *bitmap) MIX_NOEXCEPT;

/* Copies src over dst: here the destination comes first. */
MIX_API int bitmap_port_copy(uint8_t *dst, const uint8_t *src) MIX_NOEXCEPT;

/* The combiners take the source first. src and dst may be the same bitmap. */
/* dst becomes dst OR src. */
MIX_API int bitmap_port_or(const uint8_t *src, uint8_t *dst) MIX_NOEXCEPT;
/* dst becomes dst AND src. */
MIX_API int bitmap_port_and(const uint8_t *src, uint8_t *dst) MIX_NOEXCEPT;
/* Clears in dst the bits that are set in src; nothing is inverted. */
MIX_API int bitmap_port_not(const uint8_t *src, uint8_t *dst) MIX_NOEXCEPT;
/* out becomes a XOR b; out may be a or b. */
MIX_API int bitmap_port_diff(const uint8_t *a, const uint8_t *b, uint8_t *out) MIX_NOEXCEPT;

/* Returns 1 if the bitmaps differ, 0 if they are equal. */
MIX_API int bitmap_port_cmp(const uint8_t *a, const uint8_t *b) MIX_NOEXCEPT;

/* Returns 1 if no bit is set, else 0. */
MIX_API int bitmap_is_zero(const uint8_t *bitmap) MIX_NOEXCEPT;

/* Does nothing; its argument may be anything. */
MIX_API int bitmap_debug(const void *anything) MIX_NOEXCEPT;

/* Calls action with each id that is set, in ascending order; a bit that action changes ahead of it counts. */
MIX_API int bitmap_port_for_each_vlan_action(const uint8_t *bitmap, void *context,
                                             bitmap_vlan_action action) MIX_NOEXCEPT;

/* --- port map; nports: its ports are 0 to nports - 1 --- */

/* Sets vid in the port's bitmap. */
MIX_API int bitmap_add_port2vlan(uint8_t *const *map, uint16_t port, uint32_t vid) MIX_NOEXCEPT;

/* Clears vid in the port's bitmap. */
MIX_API int bitmap_del_port_from_vlan(uint8_t *const *map, uint16_t port, uint32_t vid) MIX_NOEXCEPT;

/* Returns 1 if vid is set in the port's bitmap, else 0. */
MIX_API int bitmap_is_port_belong2vlan(uint8_t *const *map, uint16_t port, uint32_t vid) MIX_NOEXCEPT;

/* Returns 1 if the port's bitmap has any bit set, else 0. */
MIX_API int bitmap_is_port_add2vlan(uint8_t *const *map, uint16_t port) MIX_NOEXCEPT;

/* Returns the number of ports whose bitmap holds vid. */
MIX_API uint16_t bitmap_get_vlan_port_num(uint8_t *const *map, uint32_t vid, uint16_t nports) MIX_NOEXCEPT;

/* Returns 1 if any port's bitmap holds vid, else 0. */
MIX_API int bitmap_is_vlan_have_port(uint8_t *const *map, uint32_t vid, uint16_t nports) MIX_NOEXCEPT;

/* port: receives the lowest port whose bitmap holds vid. Returns -1, port untouched, when there is none. */
MIX_API int bitmap_vlan_get_one_member(uint8_t *const *map, uint32_t vid, uint16_t nports,
                                       uint16_t *port) MIX_NOEXCEPT;

/* Calls action with each port whose bitmap holds vid, in ascending order. */
MIX_API int bitmap_vlan_for_each_port(uint8_t *const *map, uint32_t vid, uint16_t nports, void *context,
                                      bitmap_port_action action) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
