/* Population count by the best that the processor at hand has for it. */
#ifndef MIX_ADDR_COUNT_BITS_H
#define MIX_ADDR_COUNT_BITS_H

#include <cstddef>
#include <cstdint>

namespace mix::addr
{

inline constexpr size_t count_block = 64; /* bytes */

/* The bits set in so many blocks at any alignment, at most 16 of them. */
uint32_t count_bits(const uint8_t *bytes, size_t blocks);

} // namespace mix::addr

#endif
