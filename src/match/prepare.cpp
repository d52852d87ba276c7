#include <algorithm>
#include <bit>
#include <cstring>

#include "match/fast.h"

namespace mix::match
{

namespace
{

/* Patterns beyond this number leave so little for the filter to refuse that it is not worth its tables. */
constexpr int filter_patterns = 1500;
/* Up to this number the filter pays for texts of some dozen bytes. */
constexpr int few_patterns = 128;
/* Chains warm up over the longest pattern; with longer ones the warming would cost more than it brings. */
constexpr int chain_longest = 128;

/* One of the eight groups of patterns: which halves of bytes its patterns have at each place. */
struct group {
    uint16_t low[filter_window];
    uint16_t high[filter_window];

    /* How much of all texts passes, on a scale of its own. */
    [[nodiscard]] double passes() const
    {
        double share = 1;
        for (int place = 0; place < filter_window; ++place)
            share *= std::popcount(low[place]) * std::popcount(high[place]) / 256.0;
        return share;
    }
    void join(const group &other)
    {
        for (int place = 0; place < filter_window; ++place) {
            low[place] |= other.low[place];
            high[place] |= other.high[place];
        }
    }
};

/* The group of one pattern alone: every byte that shares a column with one of its own. */
group group_of(const tqac_matcher *matcher, const uint8_t *bytes, int window)
{
    group made = {};
    for (int place = 0; place < filter_window; ++place) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            if (place < window && matcher->input_map[byte] != matcher->input_map[bytes[place]])
                continue;
            made.low[place] = static_cast<uint16_t>(made.low[place] | 1U << (byte & 15));
            made.high[place] = static_cast<uint16_t>(made.high[place] | 1U << (byte >> 4));
        }
    }
    return made;
}

/* Puts a pattern into the group that it widens least. */
void add_to_groups(group (&groups)[8], const group &added)
{
    group *best = nullptr;
    double best_cost = 0;
    for (group &one : groups) {
        group joined = one;
        joined.join(added);
        const double cost = joined.passes() - one.passes();
        if (!best || cost < best_cost) {
            best = &one;
            best_cost = cost;
        }
    }
    best->join(added);
}

void write_masks(filter_masks &masks, const group (&groups)[8])
{
    for (int place = 0; place < filter_window; ++place) {
        for (unsigned half = 0; half < 16; ++half) {
            for (unsigned number = 0; number < 8; ++number) {
                const uint8_t bit = static_cast<uint8_t>(1U << number);
                if (groups[number].low[place] >> half & 1)
                    masks.low[place][half] |= bit;
                if (groups[number].high[place] >> half & 1)
                    masks.high[place][half] |= bit;
            }
        }
    }
}

void prepare_filter(tqac_matcher *matcher, fast_data &fast)
{
    const int window = std::min(filter_window, fast.shortest);
    group groups[8] = {};
    for (const tqac_pattern *pattern = matcher->patterns; pattern; pattern = pattern->next) {
        const uint8_t *bytes = bytes_of(pattern);
        add_to_groups(groups, group_of(matcher, bytes, window));
        const uint32_t hash = hash_of_beginning(matcher, bytes, window == 3);
        fast.beginnings[hash / 64] |= uint64_t{1} << hash % 64;
    }
    write_masks(fast.masks, groups);
    fast.filter = 1;
}

/* A matcher that ignores case takes the map entry for the column, whatever the byte. */
void prepare_columns(const tqac_matcher *matcher, fast_data &fast)
{
    fast.nocase = matcher->nocase;
    fast.spare_column = matcher->real_charset < matcher->charset;
    const uint16_t unmapped = fast.spare_column ? matcher->real_charset : uint16_t{0};
    for (unsigned byte = 0; byte < 256; ++byte)
        fast.columns[byte] = matcher->input_map[byte] ? matcher->input_map[byte] : unmapped;
    if (!matcher->nocase && has_column_256(matcher))
        fast.columns[255] = 256;
}

} // namespace

void prepare_fast(tqac_matcher *matcher)
{
    fast_data &fast = *fast_of(matcher);
    memset(static_cast<void *>(&fast), 0, sizeof(fast));
    int count = 0;
    for (const tqac_pattern *pattern = matcher->patterns; pattern; pattern = pattern->next, ++count) {
        fast.longest = std::max(fast.longest, pattern->len);
        fast.shortest = count ? std::min(fast.shortest, pattern->len) : pattern->len;
    }
    for (int32_t state = 0; state < std::min(matcher->num_states, flagged_states); ++state)
        fast.matching[state / 32] |= uint32_t{matcher->match_lists[state] != nullptr} << state % 32;
    prepare_columns(matcher, fast);
    /* An empty pattern matches at the root, where the fast ways never look. */
    fast.chains = fast.shortest >= 1 && fast.longest <= chain_longest;
    if (fast.chains && fast.shortest >= 3 && count <= filter_patterns)
        prepare_filter(matcher, fast);
    fast.few = count <= few_patterns;
}

} // namespace mix::match
