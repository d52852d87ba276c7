/* What the matcher's files share: its memory, its folding and the way a byte finds its cell. */
#ifndef MIX_MATCH_MATCHER_H
#define MIX_MATCH_MATCHER_H

#include <libmix/tqac.h>

namespace mix::match
{

/* The record is read by callers: its layout never changes. */
static_assert(sizeof(void *) == 8);
static_assert(offsetof(tqac_matcher, patterns) == 8 && offsetof(tqac_matcher, match_lists) == 24 &&
              offsetof(tqac_matcher, num_trans) == 40 && offsetof(tqac_matcher, table) == 48 &&
              offsetof(tqac_matcher, input_map) == 59 && offsetof(tqac_matcher, real_charset) == 316 &&
              offsetof(tqac_matcher, alloc) == 320 && offsetof(tqac_matcher, compiled) == 344 &&
              sizeof(tqac_matcher) == 352);
static_assert(offsetof(tqac_pattern, len) == 20 && offsetof(tqac_pattern, bytes) == 24);
static_assert(sizeof(trans_node) == 16);

/* xlatcase, without a load. */
constexpr uint8_t fold(uint8_t byte)
{
    return byte >= 'a' && byte <= 'z' ? static_cast<uint8_t>(byte - 'a' + 'A') : byte;
}

/* A pattern's bytes; the array of the record is declared with one. */
inline uint8_t *bytes_of(tqac_pattern *pattern)
{
    return reinterpret_cast<uint8_t *>(pattern) + offsetof(tqac_pattern, bytes);
}
inline const uint8_t *bytes_of(const tqac_pattern *pattern)
{
    return reinterpret_cast<const uint8_t *>(pattern) + offsetof(tqac_pattern, bytes);
}

/*
 * Where 256 different bytes occur, byte 255 shares the map entry 255 with byte 254 and has column 256 of a
 * row of 512. With 255 different bytes it has the entry 255 of its own right, and the row ends there.
 */
inline bool has_column_256(const tqac_matcher *matcher)
{
    return matcher->charset > 256;
}

/* The column of a byte that is in the map. */
inline uint32_t column_of(const tqac_matcher *matcher, uint8_t byte)
{
    return byte == 255 && has_column_256(matcher) ? 256 : matcher->input_map[byte];
}

/* A cell of the compiled table, whatever its width. */
inline uint32_t cell(const tqac_matcher *matcher, uint32_t state, uint32_t column)
{
    const size_t at = static_cast<size_t>(state) * matcher->charset + column;
    return matcher->state_size == 2 ? static_cast<const uint16_t *>(matcher->table)[at]
                                    : static_cast<const uint32_t *>(matcher->table)[at];
}

} // namespace mix::match

#endif
