/* libmix: binary fields as hexadecimal text. */
#ifndef LIBMIX_HEX_H
#define LIBMIX_HEX_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Writes two lower-case digits, high nibble first, for each of the n bytes of in: 2n bytes, no terminator;
 * nothing when n is 0 or less. out and in must not overlap.
 */
MIX_API void hex_encode(char *out, const uint8_t *in, int n) MIX_NOEXCEPT;

/*
 * Reads n characters, two for each byte of out: (n + 1) / 2 bytes; nothing when n is 0 or less. No error is
 * told: a first character that is no digit leaves its byte as it was, and a second one adds nothing to it.
 * For an odd n the last pair reads the character after the n (in terminated text the terminator).
 * out may be equal to in; any other overlap is the caller's error.
 */
MIX_API void hex_decode(uint8_t *out, const char *in, int n) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
