/*
 * The fast ways through a text, and the private data they need. All of them deliver what the plain loop
 * delivers: the same candidates in the same order, the same early stop, the same state.
 *
 * Chains: one table load depends on the one before, so a single chain of loads leaves the processor waiting.
 * A block is cut into sub-blocks walked side by side; each but the first starts at the root the longest
 * pattern's length before its own beginning, which is enough, because a state is the longest suffix of the
 * text that begins a pattern and so depends on no more bytes than that. The states are kept by offset and
 * then looked through in order.
 *
 * Filter: in a set whose shortest pattern has three bytes or more, a vector filter finds the places where a
 * pattern may begin. From there the automaton itself runs on, from the root, until no pattern that began at
 * such a place can still be going. Where it is deep enough to report anything its state is the plain loop's
 * state: both are the longest suffix that begins a pattern, and that suffix begins at a place the filter
 * found.
 */
#ifndef MIX_MATCH_FAST_H
#define MIX_MATCH_FAST_H

#include "match/matcher.h"

namespace mix::match
{

/* Bytes of a pattern's beginning that the filter looks at; of patterns of three bytes only three. */
inline constexpr int filter_window = 4;

/* For each place in the window, which of eight groups of patterns a byte may belong to, by its two halves. */
struct filter_masks {
    uint8_t low[filter_window][16];
    uint8_t high[filter_window][16];
};

/* Follows the public record in the matcher's allocation. Written by a compilation, then only read. */
struct fast_data {
    int32_t longest;       /* bytes of the longest pattern */
    int32_t shortest;      /* of the shortest */
    uint8_t chains;        /* not 0: chains may be used */
    uint8_t filter;        /* not 0: the filter may be used */
    uint8_t few;           /* not 0: so few patterns that the filter pays for short texts, too */
    uint8_t spare_column;  /* not 0: bytes in no pattern have a column that is empty in every row */
    uint8_t nocase;        /* the matcher's when it was compiled: the columns below are for it */
    uint16_t columns[256]; /* a byte's column as a search takes it */
    filter_masks masks;
    uint64_t beginnings[512]; /* a bit for each hash of a pattern's first bytes */
    uint32_t matching[2048];  /* a bit for each state below 65536 that has matches */
};

/* States that `matching` covers. */
inline constexpr int32_t flagged_states = 65536;

inline fast_data *fast_of(tqac_matcher *matcher)
{
    return reinterpret_cast<fast_data *>(matcher + 1);
}
inline const fast_data *fast_of(const tqac_matcher *matcher)
{
    return reinterpret_cast<const fast_data *>(matcher + 1);
}

/* What tqac_new allocates. */
inline constexpr int64_t matcher_size = sizeof(tqac_matcher) + sizeof(fast_data);

/* Fills the private data of a compiled matcher whose pattern list is still there. */
void prepare_fast(tqac_matcher *matcher);

/* Hash of the columns of a pattern's first bytes. */
inline uint32_t hash_of_beginning(const tqac_matcher *matcher, const uint8_t *bytes, bool three)
{
    const uint8_t *map = matcher->input_map;
    const uint32_t columns = map[bytes[0]] | static_cast<uint32_t>(map[bytes[1]]) << 8 |
                             static_cast<uint32_t>(map[bytes[2]]) << 16 |
                             (three ? 0 : static_cast<uint32_t>(map[bytes[3]]) << 24);
    return (columns * 0x9E3779B1U) >> (32 - 15);
}

/* A group of neighbouring places of which at least one passes the filter. */
struct candidates {
    int at;        /* offset of the group's first place; not below the limit: none is left */
    uint64_t mask; /* a bit, or with step 4 four bits, for each place */
};

/*
 * A filter made for one kind of vector unit: the first group at or after `at`. Places up to limit - 1 are
 * looked at; text must be readable up to limit + filter_window - 2 and hold at least `width` places.
 */
struct vector_filter {
    candidates (*find)(const filter_masks &masks, const uint8_t *text, int at, int limit);
    int width; /* places of a group */
    int step;  /* bits of a place in the mask */
};

/* Vector units. The best one is asked of the processor at first use; tests choose. */
enum class vector_unit : int { unknown, none, ssse3, avx2, neon };
bool has_vector_unit(vector_unit unit);
void use_vector_unit(vector_unit unit); /* unknown: ask the processor again */
vector_unit vector_unit_in_use();

/* The filter for the unit in use; find is null without one. */
vector_filter filter_in_use();

/* Which of up to 32 rows have their bit set. */
using row_marker = uint32_t (*)(const uint32_t *matching, const uint32_t *rows, unsigned count);
row_marker marker_in_use();

/* Offset of the first occurrence, or -1; the pattern has 1 to 33 bytes and is not longer than the text. */
int find_substring(const uint8_t *text, int length, const uint8_t *pattern, int pattern_length);

} // namespace mix::match

#endif
