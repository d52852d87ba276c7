/* Population count by whatever the processor at hand has for it. */
#ifndef MIX_ADDR_COUNT_BITS_H
#define MIX_ADDR_COUNT_BITS_H

#include <cstddef>
#include <cstdint>

namespace mix::addr
{

/* The bits set in `words` 64-bit words at any alignment. */
uint32_t count_bits(const uint8_t *bytes, size_t words);

} // namespace mix::addr

#endif
