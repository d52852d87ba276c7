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
    const uint8_t *map = in.matcher->input_map, *text = in.text;
    const unsigned shift = in.matcher->charset_shift;
    const cell_type *row = table + (static_cast<size_t>(now.row) << shift);
    uint32_t state = now.state;
    ptrdiff_t at = now.at; /* as wide as an address, or each byte would cost a second count */
    for (; at < end && !(UntilRoot && row == table); ++at) {
        const uint8_t byte = text[at];
        const bool hidden = tags.hidden(byte);
        const uint32_t column = map[byte];
        if (column == 0) {
            row = table;
            continue;
        }
        state = row[Shape::column_256 && byte == 255 ? 256 : column];
        row = table + (static_cast<size_t>(state) << shift);
        if (row[0] != 0 && !hidden &&
            report_matches<Shape::nocase>(in, state, static_cast<int>(at), now.count)) {
            now.stopped = true;
            break;
        }
    }
    now.at = static_cast<int>(at);
    now.row = row == table ? 0 : state;
    now.state = state;
}

template <class Shape>
void scan_plain(const search &in, position &now, int end)
{
    no_markup tags;
    scan<Shape, false>(in, now, end, tags);
}

/* --- chains --- */

/* Six: as many as the registers of x86-64 hold, and about as many as the first cache's latency needs. */
constexpr int chain_count = 6;
/* Bytes of a sub-block: the rows of a whole block stay in the first cache. */
constexpr int sub_block = 512;
/* Sub-blocks below this are left to the plain loop. */
constexpr int least_sub_block = 32;

/* The rows after each byte of a block: those of the chains side by side, byte after byte. */
using block_rows = uint32_t[sub_block * chain_count];

/*
 * One step of a chain; Shift is charset_shift. With a spare column, one that is empty in every row, bytes in
 * no pattern have that column and need no test.
 */
template <class Cell, unsigned Shift, bool Spare>
inline uint32_t step(const Cell *table, const uint16_t *columns, uint32_t row, uint8_t byte)
{
    const size_t column = columns[byte];
    const uint32_t next = table[(static_cast<size_t>(row) << Shift) + column];
    return Spare || column != 0 ? next : 0;
}

/* Walks a block of chain_count sub-blocks of that length from `at` on; row: the one before its first byte. */
template <class Cell, unsigned Shift, bool Spare>
void walk_chains(const search &in, int at, ptrdiff_t length, uint32_t row, uint32_t *rows)
{
    const Cell *table = static_cast<const Cell *>(in.matcher->table);
    const uint16_t *columns = fast_of(in.matcher)->columns;
    const auto go = [=](uint32_t from, uint8_t byte) {
        return step<Cell, Shift, Spare>(table, columns, from, byte);
    };
    uint32_t a = row, b = 0, c = 0, d = 0, e = 0, f = 0;
    const uint8_t *low = in.text + at, *high = low + 3 * length;
    for (ptrdiff_t warm = -fast_of(in.matcher)->longest; warm < 0; ++warm) {
        b = go(b, low[length + warm]);
        c = go(c, low[2 * length + warm]);
        d = go(d, high[warm]);
        e = go(e, high[length + warm]);
        f = go(f, high[2 * length + warm]);
    }
    for (const uint32_t *end = rows + length * chain_count; rows != end; rows += chain_count, ++low, ++high) {
        rows[0] = a = go(a, low[0]);
        rows[1] = b = go(b, low[length]);
        rows[2] = c = go(c, low[2 * length]);
        rows[3] = d = go(d, high[0]);
        rows[4] = e = go(e, high[length]);
        rows[5] = f = go(f, high[2 * length]);
    }
}

using chain_walker = void (*)(const search &, int, ptrdiff_t, uint32_t, uint32_t *);

/* A row has two columns at least, with a spare one three; it has 257 at most, so that one of 512 has one to
 * spare. */
template <class Cell, bool Spare>
chain_walker walker_for(unsigned shift)
{
    constexpr unsigned least = Spare ? 2 : 1;
    static constexpr chain_walker walkers[] = {
        walk_chains<Cell, least, Spare>,     walk_chains<Cell, least + 1, Spare>,
        walk_chains<Cell, least + 2, Spare>, walk_chains<Cell, least + 3, Spare>,
        walk_chains<Cell, least + 4, Spare>, walk_chains<Cell, least + 5, Spare>,
        walk_chains<Cell, least + 6, Spare>, walk_chains<Cell, least + 7, Spare>};
    return walkers[shift - least];
}

/* For each sub-block, the places in it whose row has matches, in order. */
struct block_hits {
    uint16_t places[chain_count][sub_block];
    int count[chain_count];
};

/* A hit by its index among the rows. */
inline void note_hit(block_hits &hits, unsigned index)
{
    const unsigned chain = index % chain_count;
    hits.places[chain][hits.count[chain]++] = static_cast<uint16_t>(index / chain_count);
}

template <class Cell>
void find_hits(const search &in, const uint32_t *rows, unsigned count, block_hits &hits)
{
    memset(hits.count, 0, sizeof(hits.count));
    const fast_data &fast = *fast_of(in.matcher);
    if (sizeof(Cell) == 2 || in.matcher->num_states <= flagged_states) {
        const row_marker mark = marker_in_use();
        for (unsigned index = 0; index < count; index += 32) {
            for (uint32_t mask = mark(fast.matching, rows + index, std::min(count - index, 32U)); mask;
                 mask &= mask - 1)
                note_hit(hits, index + static_cast<unsigned>(__builtin_ctz(mask)));
        }
        return;
    }
    const Cell *table = static_cast<const Cell *>(in.matcher->table);
    for (unsigned index = 0; index < count; ++index) {
        if (table[static_cast<size_t>(rows[index]) << in.matcher->charset_shift] != 0)
            note_hit(hits, index);
    }
}

/* Reports a block's matches in the order of the text. */
template <bool NoCase>
void report_hits(const search &in, position &now, const uint32_t *rows, int length, const block_hits &hits)
{
    for (int chain = 0; chain < chain_count; ++chain) {
        for (int i = 0; i < hits.count[chain]; ++i) {
            const int place = hits.places[chain][i];
            const uint32_t row = rows[place * chain_count + chain];
            if (report_matches<NoCase>(in, row, now.at + chain * length + place, now.count)) {
                now.stopped = true;
                now.state = row;
                return;
            }
        }
    }
}

/* The state word after a block: the row after its last byte that is in the map. */
void take_last_mapped(const search &in, position &now, const uint32_t *rows, int length)
{
    int last = length * chain_count - 1;
    while (last >= 0 && in.matcher->input_map[in.text[now.at + last]] == 0)
        --last;
    if (last >= 0)
        now.state = rows[last % length * chain_count + last / length];
}

template <class Shape>
void run_chains(const search &in, position &now, int end)
{
    using cell_type = typename Shape::cell_type;
    const fast_data &fast = *fast_of(in.matcher);
    const chain_walker walk = fast.spare_column ? walker_for<cell_type, true>(in.matcher->charset_shift)
                                                : walker_for<cell_type, false>(in.matcher->charset_shift);
    block_rows rows;
    block_hits hits;
    for (;;) {
        const int length = std::min(sub_block, (end - now.at) / chain_count);
        if (length < std::max(least_sub_block, fast.longest))
            break;
        walk(in, now.at, length, now.row, rows);
        find_hits<cell_type>(in, rows, static_cast<unsigned>(length * chain_count), hits);
        report_hits<Shape::nocase>(in, now, rows, length, hits);
        if (now.stopped)
            return;
        take_last_mapped(in, now, rows, length);
        now.row = rows[length * chain_count - 1];
        now.at += length * chain_count;
    }
    scan_plain<Shape>(in, now, end);
}

/* --- filter --- */

/*
 * What the filter has cost, in rough processor cycles, and what it may cost before chains are cheaper: less
 * in a short text, where there is less to win back, and with many patterns, where there is less hope to.
 */
constexpr int group_cost = 6, place_cost = 12, step_cost = 6;
constexpr int64_t first_allowance(int length, bool few)
{
    return few ? 200 : std::min(200, length / 8);
}
constexpr int64_t allowance(int bytes)
{
    return static_cast<int64_t>(bytes) * 3 / 2;
}

/* The automaton's run from one possible beginning; false: a callback stopped the search. */
template <class Shape>
void run_from(const search &in, position &run, int place, int64_t &cost)
{
    if (place >= run.at) {
        run.at = place;
        run.row = 0;
        /* The first byte alone never matches: patterns are longer. */
        scan_plain<Shape>(in, run, place + 1);
    }
    const int before = run.at;
    no_markup tags;
    scan<Shape, true>(in, run, std::min(place + fast_of(in.matcher)->longest, in.length), tags);
    cost += step_cost * (run.at - before + 2);
}

/* The plain loop's position at `end`, known the one at an earlier place. */
template <class Cell>
void settle(const search &in, position &now, int end)
{
    int last = end - 1;
    while (last >= now.at && in.matcher->input_map[in.text[last]] == 0)
        --last;
    const uint32_t first_row = now.row;
    now.row = 0;
    if (last >= now.at) {
        const int from = std::max(now.at, last + 1 - fast_of(in.matcher)->longest);
        uint32_t row = from == now.at ? first_row : 0;
        const Cell *table = static_cast<const Cell *>(in.matcher->table);
        const uint16_t *columns = fast_of(in.matcher)->columns;
        for (int at = from; at <= last; ++at) {
            const size_t cell_at =
                (static_cast<size_t>(row) << in.matcher->charset_shift) + columns[in.text[at]];
            row = in.matcher->input_map[in.text[at]] == 0 ? 0 : table[cell_at];
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
    int64_t cost = -first_allowance(in.length, fast.few != 0);
    int end = in.length;
    position run = now;
    if (run.row != 0)
        run_from<Shape>(in, run, run.at - 1, cost);
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
                run_from<Shape>(in, run, place, cost);
        }
        at = group.at + filter.width;
    }
    if (!run.stopped && end == in.length) {
        /* The last places are not looked at by the filter. */
        if (run.at < limit) {
            run.at = limit;
            run.row = 0;
        }
        scan_plain<Shape>(in, run, end);
    }
    now.count = run.count;
    now.stopped = run.stopped;
    if (run.stopped)
        now.state = run.state;
    else
        settle<typename Shape::cell_type>(in, now, end);
}

/* Texts below these are left to the plain loop: no filter pays, and the chains have no block to share. */
constexpr int least_with_few = 64, least_with_many = chain_count * least_sub_block;
/* Texts below this leave no time to find out that many patterns let too much pass. */
constexpr int least_filtered = 256;
/* Bytes that chains go over before the filter is tried again; doubled each time. */
constexpr int first_rest = 16384, longest_rest = 1 << 24;

bool is_for_the_fast_ways(const tqac_matcher *matcher, int length)
{
    const fast_data &fast = *fast_of(matcher);
    const int least = fast.few ? least_with_few : least_with_many;
    /* A pattern added since may have made the matcher ignore case: the prepared columns are then others. */
    return fast.chains && length >= least && fast.nocase == matcher->nocase;
}

/* The filter for a text of that length; find is null where there is none or it would not pay. */
vector_filter filter_for(const fast_data &fast, int length)
{
    const bool pays = fast.filter && (fast.few || length >= least_filtered);
    return pays ? filter_in_use() : vector_filter{nullptr, 0, 1};
}

template <class Shape>
void run_fast(const search &in, position &now)
{
    const vector_filter filter = filter_for(*fast_of(in.matcher), in.length);
    if (!filter.find)
        return run_chains<Shape>(in, now, in.length);
    for (int rest = first_rest; !now.stopped && now.at < in.length; rest = std::min(rest * 2, longest_rest)) {
        const int from = now.at;
        run_filter<Shape>(in, now, filter);
        if (now.stopped)
            return;
        if (now.at - from > rest)
            rest = first_rest;
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
    const bool fast = is_for_the_fast_ways(matcher, len);
    with_shape(matcher, [&](auto table) {
        if (fast)
            run_fast<decltype(table)>(in, now);
        else
            scan_plain<decltype(table)>(in, now, len);
    });
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
