/*
 * A model of the matcher, written from its definition: a state is the text of a pattern's prefix, and after
 * each byte the state is the longest suffix of what was read that is such a prefix. Slow, and without any of
 * the matcher's data structures. Beside it, random pattern sets and texts from fixed seeds.
 */
#ifndef MIX_TESTS_MATCH_MODEL_H
#define MIX_TESTS_MATCH_MODEL_H

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tracked_memory.h"

namespace mixtest
{

struct pattern {
    std::string bytes;
    bool nocase = false;
    uint64_t id = 0;
};
using pattern_set = std::vector<pattern>;

struct match {
    uint64_t id;
    int start;
    int len;
    bool operator==(const match &) const = default;
};
inline std::ostream &operator<<(std::ostream &out, const match &m)
{
    return out << "{id " << m.id << " start " << m.start << " len " << m.len << "}";
}

struct scan_result {
    std::vector<match> matches = {};
    uint32_t count = 0;
    uint32_t state = 0;
    uint32_t depth = 0;
    uint8_t quote = 0;
    bool operator==(const scan_result &) const = default;
};

inline std::string upper(std::string text)
{
    for (char &c : text) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 32);
    }
    return text;
}

class model
{
  public:
    explicit model(const pattern_set &patterns) : patterns_(patterns)
    {
        for (const pattern &one : patterns_)
            nocase_ = nocase_ || one.nocase;
        number_states();
        list_matches();
    }

    [[nodiscard]] size_t states() const { return labels_.size(); }
    [[nodiscard]] const std::deque<size_t> &list(size_t state) const { return lists_[state]; }
    [[nodiscard]] const std::string &label(size_t state) const { return labels_[state]; }

    /* Where a state leads on a byte (folded where case is ignored). */
    [[nodiscard]] size_t next(size_t state, char byte) const
    {
        return longest_suffix(labels_[state] + folded(std::string(1, byte)));
    }

    /* The bytes that occur in patterns, folded where case is ignored. */
    [[nodiscard]] std::set<uint8_t> alphabet() const
    {
        std::set<uint8_t> bytes;
        for (const pattern &one : patterns_) {
            for (char c : folded(one.bytes))
                bytes.insert(static_cast<uint8_t>(c));
        }
        return bytes;
    }

    /* Nodes of the complete automaton: transitions that lead anywhere but to the root. */
    [[nodiscard]] int transitions() const
    {
        int count = 0;
        const std::set<uint8_t> bytes = alphabet();
        for (size_t state = 0; state < states(); ++state) {
            for (uint8_t byte : bytes)
                count += next(state, static_cast<char>(byte)) != 0;
        }
        return count;
    }

    /* What a search of text reports; stop_at: the match (from 1) whose callback stops it. */
    [[nodiscard]] scan_result scan(const std::string &text, scan_result from, bool markup = false,
                                   uint32_t stop_at = 0) const
    {
        scan_result result{{}, 0, from.state < states() ? from.state : 0, from.depth, from.quote};
        const std::set<uint8_t> mapped = alphabet();
        size_t row = result.state;
        for (size_t at = 0; at < text.size(); ++at) {
            if (markup)
                step_markup(text[at], result.depth, result.quote);
            if (!mapped.count(static_cast<uint8_t>(folded(text.substr(at, 1))[0]))) {
                row = 0;
                continue;
            }
            row = next(row, text[at]);
            result.state = static_cast<uint32_t>(row);
            if (markup && result.depth != 0)
                continue;
            for (size_t index : lists_[row]) {
                const pattern &one = patterns_[index];
                ++result.count;
                const int start = static_cast<int>(at) - static_cast<int>(one.bytes.size()) + 1;
                if (nocase_ && !one.nocase && !as_written(text, one.bytes, start))
                    continue;
                result.matches.push_back({one.id, start, static_cast<int>(one.bytes.size())});
                if (result.matches.size() == stop_at)
                    return result;
            }
        }
        return result;
    }

    /* Every call a successful compilation makes of the memory functions, in order. */
    [[nodiscard]] std::vector<int64_t> compile_events() const
    {
        int64_t bound = 1;
        for (const pattern &one : patterns_)
            bound += static_cast<int64_t>(one.bytes.size());
        std::vector<int64_t> events(2, bound * 8);
        add_trie_events(events);
        events.push_back(static_cast<int64_t>(states()) * 4);
        add_queue_events(events, false);
        add_queue_events(events, true);
        events.push_back(-static_cast<int64_t>(states()) * 4);
        events.push_back(table_bytes());
        events.insert(events.end(), static_cast<size_t>(transitions()), -16);
        events.push_back(-bound * 8);
        for (auto one = patterns_.rbegin(); one != patterns_.rend(); ++one)
            events.push_back(-copy_size(*one));
        return events;
    }
    [[nodiscard]] int64_t table_bytes() const
    {
        return charset() * (nocase_ && states() <= 65535 ? 2 : 4) * static_cast<int64_t>(states());
    }
    [[nodiscard]] int64_t charset() const
    {
        const size_t real = real_charset();
        int64_t width = 1;
        while (static_cast<size_t>(width) < real)
            width *= 2;
        return width;
    }
    [[nodiscard]] size_t real_charset() const { return alphabet().size() + 1; }

  private:
    [[nodiscard]] std::string folded(const std::string &text) const { return nocase_ ? upper(text) : text; }

    [[nodiscard]] size_t longest_suffix(const std::string &text) const
    {
        for (size_t from = 0; from <= text.size(); ++from) {
            const auto found = numbers_.find(text.substr(from));
            if (found != numbers_.end())
                return found->second;
        }
        return 0;
    }

    /* Newest pattern first, each new prefix the next number. */
    void number_states()
    {
        numbers_[""] = 0;
        labels_ = {""};
        for (auto one = patterns_.rbegin(); one != patterns_.rend(); ++one) {
            const std::string bytes = folded(one->bytes);
            for (size_t length = 1; length <= bytes.size(); ++length) {
                const std::string prefix = bytes.substr(0, length);
                if (numbers_.try_emplace(prefix, labels_.size()).second)
                    labels_.push_back(prefix);
            }
        }
    }

    /* States by depth, then by their bytes' place: the order in which failure states are set. */
    [[nodiscard]] std::deque<size_t> breadth_first() const
    {
        std::deque<size_t> order = {0};
        for (size_t i = 0; i < order.size(); ++i) {
            for (int byte = 0; byte < 256; ++byte) {
                const auto found = numbers_.find(labels_[order[i]] + static_cast<char>(byte));
                if (found != numbers_.end())
                    order.push_back(found->second);
            }
        }
        return order;
    }

    [[nodiscard]] size_t failure(size_t state) const { return longest_suffix(labels_[state].substr(1)); }

    /* States of one byte inherit nothing, not even an empty pattern;
     * all others their failure state's list. */
    void list_matches()
    {
        lists_.resize(states());
        for (size_t index = patterns_.size(); index-- > 0;)
            lists_[numbers_[folded(patterns_[index].bytes)]].push_front(index);
        for (size_t state : breadth_first()) {
            if (labels_[state].size() < 2)
                continue;
            for (size_t index : lists_[failure(state)])
                lists_[state].push_front(index);
        }
    }

    static bool as_written(const std::string &text, const std::string &bytes, int start)
    {
        for (int i = 0; i < static_cast<int>(bytes.size()); ++i) {
            if (start + i >= 0 && text[static_cast<size_t>(start + i)] != bytes[static_cast<size_t>(i)])
                return false;
        }
        return true;
    }

    static void step_markup(char byte, uint32_t &depth, uint8_t &quote)
    {
        if (depth > 0 && quote == 0) {
            if (byte == '>')
                --depth;
            else if (byte == '<')
                ++depth;
            else if (byte == '\'' || byte == '"')
                quote = static_cast<uint8_t>(byte);
            return;
        }
        if (depth > 0) {
            if (static_cast<uint8_t>(byte) == quote)
                quote = 0;
            return;
        }
        if (byte == '<') {
            depth = 1;
            quote = 0;
        }
    }

    static int64_t copy_size(const pattern &one) { return static_cast<int64_t>(one.bytes.size()) + 25; }

    void add_trie_events(std::vector<int64_t> &events) const
    {
        std::set<std::string> made;
        for (auto one = patterns_.rbegin(); one != patterns_.rend(); ++one) {
            for (size_t length = 1; length <= one->bytes.size(); ++length) {
                if (made.insert(folded(one->bytes).substr(0, length)).second)
                    events.push_back(16);
            }
            events.push_back(copy_size(*one));
        }
    }

    /* One breadth-first walk: failure links with their copies, or completion with its nodes. */
    void add_queue_events(std::vector<int64_t> &events, bool completing) const
    {
        for (size_t state : breadth_first()) {
            if (state != 0)
                events.push_back(-16);
            for (int byte = 0; byte < 256; ++byte) {
                const auto child = numbers_.find(labels_[state] + static_cast<char>(byte));
                if (child != numbers_.end()) {
                    events.push_back(16);
                    if (!completing && state != 0) {
                        for (size_t index : lists_[failure(child->second)])
                            events.push_back(copy_size(patterns_[index]));
                    }
                } else if (completing && state != 0 && next_exact(state, static_cast<char>(byte)) != 0) {
                    events.push_back(16);
                }
            }
        }
    }
    [[nodiscard]] size_t next_exact(size_t state, char byte) const
    {
        return longest_suffix(labels_[state] + byte);
    }

    pattern_set patterns_;
    bool nocase_ = false;
    std::map<std::string, size_t> numbers_;
    std::vector<std::string> labels_;
    std::vector<std::deque<size_t>> lists_;
};

/* --- the library, called the way the model is --- */

inline void add_all(tqac_matcher *matcher, const pattern_set &patterns)
{
    for (const pattern &one : patterns)
        ASSERT_EQ(tqac_add_pattern(matcher, one.bytes.data(), static_cast<int>(one.bytes.size()), one.nocase,
                                   one.id, 0),
                  0);
}

inline matcher_pointer compiled(const pattern_set &patterns)
{
    matcher_pointer matcher = new_matcher();
    add_all(matcher.get(), patterns);
    EXPECT_EQ(tqac_compile(matcher.get()), 0);
    return matcher;
}

/* Gives a matcher that ignores case the table that it would have with more states: cells of 32 bits. */
inline void widen(tqac_matcher *matcher)
{
    ASSERT_EQ(matcher->state_size, 2);
    const size_t cells = static_cast<size_t>(matcher->num_states) * matcher->charset;
    uint16_t *const narrow = static_cast<uint16_t *>(matcher->table);
    uint32_t *const wide = static_cast<uint32_t *>(matcher->alloc(static_cast<int64_t>(cells * 4)));
    std::copy(narrow, narrow + cells, wide);
    matcher->free(narrow);
    matcher->table = wide;
    matcher->state_size = 4;
}

struct report {
    std::vector<match> matches = {};
    uint32_t stop_at = 0;
};
inline int collect_match(uint64_t id, int start, uint64_t arg, int len)
{
    report &to = *reinterpret_cast<report *>(arg);
    to.matches.push_back({id, start, len});
    return to.matches.size() == to.stop_at;
}

inline scan_result library_scan(const tqac_matcher *matcher, const std::string &text, scan_result from,
                                bool markup = false, uint32_t stop_at = 0)
{
    report seen{{}, stop_at};
    scan_result result{{}, 0, from.state, from.depth, from.quote};
    const uint64_t arg = reinterpret_cast<uintptr_t>(&seen);
    /* In memory of its own size, so that a read outside is seen by a sanitizer. */
    const std::vector<char> exact(text.begin(), text.end());
    const int length = static_cast<int>(exact.size());
    if (markup)
        result.count = tqac_search2_(matcher, exact.data(), length, collect_match, arg, &result.state,
                                     &result.depth, &result.quote);
    else
        result.count = tqac_search_(matcher, exact.data(), length, collect_match, arg, &result.state);
    result.matches = seen.matches;
    return result;
}

/* --- random input --- */

class random_source
{
  public:
    explicit random_source(uint32_t seed) : engine_(seed) {}
    /* From 0 to limit - 1. */
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(engine_() % limit); }
    std::string text(size_t length, const std::string &letters)
    {
        std::string made;
        while (made.size() < length)
            made += letters[below(static_cast<uint32_t>(letters.size()))];
        return made;
    }
    /* That many different bytes, letters of both cases among the first. */
    std::string letters(size_t count)
    {
        std::string all = "aAbBcC";
        for (int byte = 0; byte < 256; ++byte) {
            if (all.find(static_cast<char>(byte)) == std::string::npos)
                all += static_cast<char>(byte);
        }
        std::shuffle(all.begin() + 6, all.end(), engine_);
        return all.substr(0, count);
    }

  private:
    std::mt19937 engine_;
};

enum class casing { sensitive, insensitive, mixed };

/* Patterns that are prefixes and suffixes of each other, duplicates and, at times, an empty one. */
inline pattern_set random_patterns(random_source &random, size_t count, size_t longest,
                                   const std::string &letters, casing how)
{
    pattern_set made;
    for (size_t i = 0; i < count; ++i) {
        std::string bytes = random.text(1 + random.below(static_cast<uint32_t>(longest)), letters);
        const std::string &other = made.empty() ? bytes : made[random.below(static_cast<uint32_t>(i))].bytes;
        const uint32_t kind = random.below(8);
        if (kind == 0)
            bytes = other;
        else if (kind == 1)
            bytes = other.substr(0, random.below(static_cast<uint32_t>(other.size() + 1)));
        else if (kind == 2)
            bytes = other.substr(random.below(static_cast<uint32_t>(other.size() + 1)));
        const bool nocase = how == casing::insensitive || (how == casing::mixed && random.below(2) == 0);
        made.push_back({bytes, nocase, i + 1});
    }
    return made;
}

/* Random letters with whole patterns strewn in, some in other case, some bytes from outside. */
inline std::string random_text(random_source &random, size_t length, const std::string &letters,
                               const pattern_set &patterns)
{
    std::string text;
    while (text.size() < length) {
        const uint32_t kind = random.below(4);
        if (kind == 0 && !patterns.empty())
            text += patterns[random.below(static_cast<uint32_t>(patterns.size()))].bytes;
        else if (kind == 1 && !patterns.empty())
            text += upper(patterns[random.below(static_cast<uint32_t>(patterns.size()))].bytes);
        else if (kind == 2)
            text += random.text(1 + random.below(6), letters);
        else
            text += static_cast<char>(random.below(256));
    }
    text.resize(length);
    return text;
}

} // namespace mixtest

#endif
