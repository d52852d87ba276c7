/* libmix: the host part of an HTTP Host value or of an absolute request target. */
#ifndef LIBMIX_HTTP_HOST_H
#define LIBMIX_HTTP_HOST_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Checks the first len bytes of buf (no terminator is needed or looked for): a name or an IPv6 literal in
 * brackets, an optional port, then the end of the bytes, a '/', or spaces and a carriage return, a line feed
 * or the 'H' of the protocol version; after such a terminator only line feeds may follow. Returns 0 when the
 * bytes are a beginning of that, also an incomplete one; -1 when they are not, when buf is NULL and when len
 * is 0.
 */
MIX_API int check_http_host(const char *buf, uint32_t len) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
