#include <cstring>

#include "match/matcher.h"

namespace
{

using namespace mix::match;

/* One search: what to look through and whom to tell. */
struct search {
    const tqac_matcher *matcher;
    const uint8_t *text;
    int length;
    tqac_match_callback report;
    uint64_t arg;
};

/* Whether a case-sensitive pattern stands as written in what the buffer holds of it. */
bool stands_as_written(const search &in, const tqac_pattern *entry, int start)
{
    const uint8_t *bytes = bytes_of(entry);
    if (start >= 0)
        return memcmp(in.text + start, bytes, static_cast<size_t>(entry->len)) == 0;
    return memcmp(in.text, bytes - start, static_cast<size_t>(entry->len + start)) == 0;
}

/* Counts and reports the matches of a state that end at `at`. True: the callback stops the search. */
template <bool NoCase>
bool report_matches(const search &in, uint32_t state, int at, uint32_t &count)
{
    for (const tqac_pattern *entry = in.matcher->match_lists[state]; entry; entry = entry->next) {
        ++count;
        const int start = at - entry->len + 1;
        if (NoCase && !entry->nocase && !stands_as_written(in, entry, start))
            continue;
        if (in.report(entry->id, start, in.arg, entry->len) != 0)
            return true;
    }
    return false;
}

/* Text is never inside a tag. */
struct no_markup {
    static constexpr bool hidden(uint8_t) { return false; }
};

/* Follows tags and their quoted attribute values. */
struct markup {
    uint32_t depth;
    uint8_t quote;

    bool hidden(uint8_t byte)
    {
        if (depth == 0) {
            if (byte == '<') {
                depth = 1;
                quote = 0;
            }
        } else if (quote != 0) {
            if (byte == quote)
                quote = 0;
        } else if (byte == '>') {
            --depth;
        } else if (byte == '<') {
            ++depth;
        } else if (byte == '\'' || byte == '"') {
            quote = byte;
        }
        return depth != 0;
    }
};

/* The shapes of a table: width of a cell, whether case is ignored, whether byte 255 has column 256. */
template <class Cell, bool NoCase, bool Column256>
struct shape {
    using cell_type = Cell;
    static constexpr bool nocase = NoCase;
    static constexpr bool column_256 = Column256;
};

/*
 * The plain loop: one cell a byte. A byte in no pattern leads to the root row but leaves the state word
 * alone, on purpose: a buffer that ends in such bytes hands on the state it had before them.
 */
template <class Shape, class Tags>
uint32_t scan(const search &in, uint32_t &state, Tags &tags)
{
    using cell_type = typename Shape::cell_type;
    const cell_type *table = static_cast<const cell_type *>(in.matcher->table);
    const uint8_t *map = in.matcher->input_map;
    const unsigned shift = in.matcher->charset_shift;
    const cell_type *row = table + (static_cast<size_t>(state) << shift);
    uint32_t count = 0;
    for (int at = 0; at < in.length; ++at) {
        const uint8_t byte = in.text[at];
        const bool hidden = tags.hidden(byte);
        const uint32_t column = map[byte];
        if (column == 0) {
            row = table;
            continue;
        }
        state = row[Shape::column_256 && byte == 255 ? 256 : column];
        row = table + (static_cast<size_t>(state) << shift);
        if (row[0] != 0 && !hidden && report_matches<Shape::nocase>(in, state, at, count))
            break;
    }
    return count;
}

bool searchable(const tqac_matcher *matcher)
{
    return matcher->compiled && matcher->error == 0 && matcher->table;
}

template <class Tags>
uint32_t scan_shape(const search &in, uint32_t &state, Tags &tags)
{
    if (in.matcher->nocase && in.matcher->state_size == 2)
        return scan<shape<uint16_t, true, false>>(in, state, tags);
    if (in.matcher->nocase)
        return scan<shape<uint32_t, true, false>>(in, state, tags);
    if (has_column_256(in.matcher))
        return scan<shape<uint32_t, false, true>>(in, state, tags);
    return scan<shape<uint32_t, false, false>>(in, state, tags);
}

/* The stream's state, put right in place when the matcher does not have it. */
uint32_t take_state(const tqac_matcher *matcher, uint32_t *state)
{
    if (*state >= static_cast<uint32_t>(matcher->num_states))
        *state = 0;
    return *state;
}

} // namespace

uint32_t tqac_search_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                      uint64_t arg, uint32_t *state) noexcept
{
    if (!searchable(matcher))
        return 0;
    const search in{matcher, static_cast<const uint8_t *>(buf), len, cb, arg};
    uint32_t current = take_state(matcher, state);
    no_markup tags;
    const uint32_t count = scan_shape(in, current, tags);
    *state = current;
    return count;
}

uint32_t tqac_search2_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                       uint64_t arg, uint32_t *state, uint32_t *depth, uint8_t *quote) noexcept
{
    if (!searchable(matcher))
        return 0;
    const search in{matcher, static_cast<const uint8_t *>(buf), len, cb, arg};
    uint32_t current = take_state(matcher, state);
    markup tags{*depth, *quote};
    const uint32_t count = scan_shape(in, current, tags);
    *state = current;
    *depth = tags.depth;
    *quote = tags.quote;
    return count;
}

int tqac_find(const tqac_matcher *matcher, print_callback print, const void *buf, int len) noexcept
{
    if (!matcher->table || !matcher->match_lists)
        return 0;
    const uint8_t *text = static_cast<const uint8_t *>(buf);
    uint32_t state = 0;
    bool found = false;
    for (int at = 0; at < len && !found; ++at) {
        const bool mapped = matcher->input_map[text[at]] != 0;
        state = mapped ? cell(matcher, state, column_of(matcher, text[at])) : 0;
        found = mapped && cell(matcher, state, 0) != 0;
    }
    if (!found)
        return 0;
    if (print)
        print("Found state %u\n", state);
    int printed = 0;
    for (const tqac_pattern *entry = matcher->match_lists[state]; entry; entry = entry->next, ++printed) {
        if (print)
            print("Pattern:%*s,n:%d,nocase:%d", entry->len, bytes_of(entry), entry->len,
                  static_cast<int>(entry->nocase));
    }
    return printed;
}
