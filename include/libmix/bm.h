/*
 * libmix: finding one short string, many times.
 *
 * The caller owns the state; once filled it is only read, so any number of threads may search with it.
 */
#ifndef LIBMIX_BM_H
#define LIBMIX_BM_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

#define BM_PATTERN_MAX 33 /* bytes of a pattern, without the terminating zero */

typedef struct bm_state {
    char pattern[BM_PATTERN_MAX + 1];
    uint16_t length;
    uint16_t bad_char[256];               /* per byte: from its rightmost place in the pattern to the end */
    uint16_t good_suffix[BM_PATTERN_MAX]; /* per number of bytes already matched: the shift */
} bm_state;

/*
 * Fills a state. pattern: zero-terminated, at most 33 bytes. Returns 0; -1 when state or pattern is NULL or
 * the pattern is longer, the state untouched then.
 */
MIX_API int bm_match_init(bm_state *state, const char *pattern) MIX_NOEXCEPT;

/*
 * Offset of the first occurrence in text, of text_len bytes. -1 when there is none, when an argument is NULL
 * or 0, and always for a pattern of length 0.
 */
MIX_API int bm_match_proc(const void *text, uint16_t text_len, const bm_state *state) MIX_NOEXCEPT;

/*
 * The suffix test of bm_match_init: 1 when the k bytes of pattern from a on may be aligned with those from b
 * on (b may lie before the start), the bytes before the two differing; else 0. k: 1 or more, a + k within the
 * pattern, 1 - k <= b < a.
 */
MIX_API int bm_substring(const char *pattern, uint32_t a, int b, uint32_t k) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
