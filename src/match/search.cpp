#include <algorithm>
#include <cstring>

#include "match/fast.h"

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
 * How far a search has got. A byte in no pattern leads to the root row but leaves the state word alone, on
 * purpose: a buffer that ends in such bytes hands on the state it had before them.
 */
struct position {
    int at;         /* the next byte */
    uint32_t row;   /* the state whose row is current */
    uint32_t state; /* the word to hand on */
    uint32_t count = 0;
    bool stopped = false;
};

/* The plain loop: one cell a byte. UntilRoot: only for as long as the row is not the root's. */
template <class Shape, bool UntilRoot, class Tags>
void scan(const search &in, position &now, int end, Tags &tags)
{
    using cell_type = typename Shape::cell_type;
    const cell_type *table = static_cast<const cell_type *>(in.matcher->table);
    const uint8_t *map = in.matcher->input_map;
    const unsigned shift = in.matcher->charset_shift;
    const cell_type *row = table + (static_cast<size_t>(now.row) << shift);
    uint32_t state = now.state;
    int at = now.at;
    for (; at < end && !(UntilRoot && row == table); ++at) {
        const uint8_t byte = in.text[at];
        const bool hidden = tags.hidden(byte);
        const uint32_t column = map[byte];
        if (column == 0) {
            row = table;
            continue;
        }
        state = row[Shape::column_256 && byte == 255 ? 256 : column];
        row = table + (static_cast<size_t>(state) << shift);
        if (row[0] != 0 && !hidden && report_matches<Shape::nocase>(in, state, at, now.count)) {
            now.stopped = true;
            break;
        }
    }
    now.at = at;
    now.row = row == table ? 0 : state;
    now.state = state;
}

template <class Shape>
void scan_plain(const search &in, position &now, int end)
{
    no_markup tags;
    scan<Shape, false>(in, now, end, tags);
}

/* --- chains
 * ---------------------------------------------------------------------------------------------------- */

constexpr int chain_count = 8;
/* Bytes of a sub-block: the states of a whole block stay in the first cache. */
constexpr int sub_block = 512;
/* Sub-blocks below this are left to the plain loop. */
constexpr int least_sub_block = 32;

/* One step of a chain; Shift is charset_shift. */
template <class Shape, unsigned Shift>
inline uint32_t step(const typename Shape::cell_type *table, const uint8_t *map, uint32_t row, uint8_t byte)
{
    const uint32_t column = map[byte];
    const uint32_t next =
        table[(static_cast<size_t>(row) << Shift) + (Shape::column_256 && byte == 255 ? 256 : column)];
    return column == 0 ? 0 : next;
}

/* The rows after each byte of a block of chain_count sub-blocks of that length, by offset from `at`. */
template <class Shape, unsigned Shift>
void walk_chains(const search &in, int at, int length, uint32_t row, uint32_t *rows)
{
    const auto *table = static_cast<const typename Shape::cell_type *>(in.matcher->table);
    const uint8_t *map = in.matcher->input_map;
    const uint8_t *text = in.text + at;
    uint32_t chain[chain_count] = {row};
    for (int warm = -fast_of(in.matcher)->longest; warm < 0; ++warm) {
#pragma GCC unroll 8
        for (int i = 1; i < chain_count; ++i)
            chain[i] = step<Shape, Shift>(table, map, chain[i], text[i * length + warm]);
    }
    for (int byte = 0; byte < length; ++byte) {
#pragma GCC unroll 8
        for (int i = 0; i < chain_count; ++i) {
            chain[i] = step<Shape, Shift>(table, map, chain[i], text[i * length + byte]);
            rows[i * length + byte] = chain[i];
        }
    }
}

using chain_walker = void (*)(const search &, int, int, uint32_t, uint32_t *);

template <class Shape>
chain_walker walker_for(unsigned shift)
{
    static constexpr chain_walker walkers[] = {
        walk_chains<Shape, 0>, walk_chains<Shape, 1>, walk_chains<Shape, 2>, walk_chains<Shape, 3>,
        walk_chains<Shape, 4>, walk_chains<Shape, 5>, walk_chains<Shape, 6>, walk_chains<Shape, 7>,
        walk_chains<Shape, 8>, walk_chains<Shape, 9>};
    return walkers[shift];
}

/* Whether a row has matches, from the small array where it covers the states. */
struct small_flags {
    const uint64_t *matching;
    bool operator()(uint32_t row) const { return matching[row / 64] >> row % 64 & 1; }
};
template <class Cell>
struct table_flags {
    const Cell *table;
    unsigned shift;
    bool operator()(uint32_t row) const { return table[static_cast<size_t>(row) << shift] != 0; }
};

/* Reports the matches of the rows after each of `count` bytes from `at` on, in order. */
template <class Shape, class Flags>
void report_rows(const search &in, position &now, const uint32_t *rows, int count, Flags matches)
{
    int i = 0;
    while (i < count) {
        if (i + 4 <= count &&
            !(matches(rows[i]) | matches(rows[i + 1]) | matches(rows[i + 2]) | matches(rows[i + 3]))) {
            i += 4;
            continue;
        }
        for (const int group_end = std::min(i + 4, count); i < group_end; ++i) {
            if (matches(rows[i]) && report_matches<Shape::nocase>(in, rows[i], now.at + i, now.count)) {
                now.stopped = true;
                now.state = rows[i];
                return;
            }
        }
    }
}

/* The state word after `count` bytes: the row after the last of them that is in the map. */
void take_last_mapped(const search &in, position &now, const uint32_t *rows, int count)
{
    int last = count - 1;
    while (last >= 0 && in.matcher->input_map[in.text[now.at + last]] == 0)
        --last;
    if (last >= 0)
        now.state = rows[last];
}

template <class Shape>
void run_chains(const search &in, position &now, int end)
{
    const fast_data &fast = *fast_of(in.matcher);
    const chain_walker walk = walker_for<Shape>(in.matcher->charset_shift);
    const bool small = in.matcher->num_states <= flagged_states;
    uint32_t rows[chain_count * sub_block];
    while (!now.stopped) {
        const int length = std::min(sub_block, (end - now.at) / chain_count);
        if (length < std::max(least_sub_block, fast.longest))
            break;
        const int count = length * chain_count;
        walk(in, now.at, length, now.row, rows);
        if (small)
            report_rows<Shape>(in, now, rows, count, small_flags{fast.matching});
        else
            report_rows<Shape>(in, now, rows, count,
                               table_flags<typename Shape::cell_type>{
                                   static_cast<const typename Shape::cell_type *>(in.matcher->table),
                                   in.matcher->charset_shift});
        if (now.stopped)
            return;
        take_last_mapped(in, now, rows, count);
        now.row = rows[count - 1];
        now.at += count;
    }
    if (!now.stopped)
        scan_plain<Shape>(in, now, end);
}

/* --- filter
 * ---------------------------------------------------------------------------------------------------- */

/* What the filter has cost, in rough processor cycles, and what it may cost before chains are cheaper. */
constexpr int group_cost = 4, place_cost = 8, step_cost = 6;
constexpr int64_t allowance(int bytes)
{
    return 500 + 2 * static_cast<int64_t>(bytes);
}

/* The automaton's run from one possible beginning; false: a callback stopped the search. */
template <class Shape>
void run_from(const search &in, position &run, int place, int end, int64_t &cost)
{
    if (place >= run.at) {
        run.at = place;
        run.row = 0;
        /* The first byte alone never matches: patterns are longer. */
        scan_plain<Shape>(in, run, std::min(place + 1, end));
    }
    const int before = run.at;
    if (!run.stopped) {
        no_markup tags;
        scan<Shape, true>(in, run, std::min(place + fast_of(in.matcher)->longest, end), tags);
    }
    cost += step_cost * (run.at - before + 2);
}

/* The plain loop's position at `end`, known the one at an earlier place. */
template <class Shape>
void settle(const search &in, position &now, int end)
{
    int last = end - 1;
    while (last >= now.at && in.matcher->input_map[in.text[last]] == 0)
        --last;
    const uint32_t first_row = now.row;
    if (end > now.at)
        now.row = 0;
    if (last >= now.at) {
        const int from = std::max(now.at, last + 1 - fast_of(in.matcher)->longest);
        uint32_t row = from == now.at ? first_row : 0;
        for (int at = from; at <= last; ++at) {
            const uint8_t byte = in.text[at];
            row = in.matcher->input_map[byte] == 0
                      ? 0
                      : static_cast<const typename Shape::cell_type *>(in.matcher->table)
                            [(static_cast<size_t>(row) << in.matcher->charset_shift) +
                             (Shape::column_256 && byte == 255 ? 256 : in.matcher->input_map[byte])];
        }
        now.state = row;
        if (last == end - 1)
            now.row = row;
    }
    now.at = end;
}

/* Goes on to the end of the text, or to where the filter turns out to let too much pass. */
template <class Shape>
void run_filter(const search &in, position &now, const vector_filter &filter)
{
    const fast_data &fast = *fast_of(in.matcher);
    const bool three = fast.shortest == 3;
    const int limit = in.length - filter_window + 1;
    int64_t cost = 0;
    int end = in.length;
    position run = now;
    if (run.row != 0)
        run_from<Shape>(in, run, run.at - 1, end, cost);
    for (int at = now.at; !run.stopped;) {
        const candidates group = filter.find(fast.masks, in.text, at, limit);
        if (group.at >= limit)
            break;
        if (cost > allowance(group.at - now.at)) {
            end = std::max(group.at, run.at);
            break;
        }
        cost += group_cost;
        const uint64_t place_bits = (uint64_t{1} << filter.step) - 1;
        for (uint64_t mask = group.mask; mask && !run.stopped;) {
            const int bit = __builtin_ctzll(mask) / filter.step;
            mask &= ~(place_bits << (bit * filter.step));
            const int place = group.at + bit;
            cost += place_cost;
            const uint32_t hash = hash_of_beginning(in.matcher, in.text + place, three);
            if (fast.beginnings[hash / 64] >> hash % 64 & 1)
                run_from<Shape>(in, run, place, in.length, cost);
        }
        at = group.at + filter.width;
    }
    now.count = run.count;
    if (!run.stopped && end == in.length && run.at < end) {
        /* The last places are not looked at by the filter. */
        if (run.at < limit || run.row == 0) {
            run.at = std::max(run.at, limit);
            run.row = 0;
        }
        scan_plain<Shape>(in, run, end);
        now.count = run.count;
    }
    now.stopped = run.stopped;
    if (run.stopped)
        now.state = run.state;
    else
        settle<Shape>(in, now, end);
}

/* Texts below this are left to the plain loop. */
constexpr int least_fast = 48;
/* Bytes that chains go over before the filter is tried again; doubled each time. */
constexpr int first_rest = 16384, longest_rest = 1 << 24;

template <class Shape>
void run_fast(const search &in, position &now)
{
    const fast_data &fast = *fast_of(in.matcher);
    if (!fast.chains || in.length < least_fast)
        return scan_plain<Shape>(in, now, in.length);
    const vector_filter filter = fast.filter ? filter_in_use() : vector_filter{nullptr, 0, 1};
    for (int rest = first_rest; !now.stopped && now.at < in.length; rest = std::min(rest * 2, longest_rest)) {
        if (filter.find && in.length - now.at >= least_fast)
            run_filter<Shape>(in, now, filter);
        else
            rest = in.length;
        if (!now.stopped && now.at < in.length)
            run_chains<Shape>(in, now, in.length - now.at > rest ? now.at + rest : in.length);
    }
}

bool searchable(const tqac_matcher *matcher)
{
    return matcher->compiled && matcher->error == 0 && matcher->table;
}

/* Calls for the shape of the matcher's table. */
template <class Call>
void with_shape(const tqac_matcher *matcher, Call call)
{
    if (matcher->nocase && matcher->state_size == 2)
        call(shape<uint16_t, true, false>{});
    else if (matcher->nocase)
        call(shape<uint32_t, true, false>{});
    else if (has_column_256(matcher))
        call(shape<uint32_t, false, true>{});
    else
        call(shape<uint32_t, false, false>{});
}

/* The stream's state, put right in place when the matcher does not have it. */
position begin_at(const tqac_matcher *matcher, uint32_t *state)
{
    if (*state >= static_cast<uint32_t>(matcher->num_states))
        *state = 0;
    return {0, *state, *state};
}

} // namespace

uint32_t tqac_search_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                      uint64_t arg, uint32_t *state) noexcept
{
    if (!searchable(matcher))
        return 0;
    const search in{matcher, static_cast<const uint8_t *>(buf), len, cb, arg};
    position now = begin_at(matcher, state);
    with_shape(matcher, [&](auto table) { run_fast<decltype(table)>(in, now); });
    *state = now.state;
    return now.count;
}

uint32_t tqac_search2_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                       uint64_t arg, uint32_t *state, uint32_t *depth, uint8_t *quote) noexcept
{
    if (!searchable(matcher))
        return 0;
    const search in{matcher, static_cast<const uint8_t *>(buf), len, cb, arg};
    position now = begin_at(matcher, state);
    markup tags{*depth, *quote};
    with_shape(matcher, [&](auto table) { scan<decltype(table), false>(in, now, len, tags); });
    *state = now.state;
    *depth = tags.depth;
    *quote = tags.quote;
    return now.count;
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
