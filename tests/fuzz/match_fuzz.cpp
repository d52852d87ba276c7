/*
 * The fast searches and the short-pattern search against plain ones. Input: a byte of flags, a byte with the
 * number of patterns, each pattern as a length and its bytes, then the text. The text is repeated to lengths
 * at which the fast ways are taken, and is cut into pieces.
 */
#include <libmix/bm.h>
#include <libmix/tqac.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "match/fast.h"

namespace
{

struct reader {
    std::string_view left;

    uint8_t byte()
    {
        const std::string_view one = bytes(1);
        return one.empty() ? static_cast<uint8_t>(0) : static_cast<uint8_t>(one[0]);
    }
    std::string_view bytes(size_t count)
    {
        const std::string_view taken = left.substr(0, count);
        left.remove_prefix(taken.size());
        return taken;
    }
};

struct seen {
    uint64_t id;
    int start, len;
    bool operator==(const seen &) const = default;
};
struct results {
    std::vector<seen> matches = {};
    size_t stop_at = 0;
};

int collect(uint64_t id, int start, uint64_t arg, int len)
{
    results &to = *reinterpret_cast<results *>(arg);
    to.matches.push_back({id, start, len});
    return to.matches.size() == to.stop_at;
}

void check(bool holds)
{
    if (!holds)
        abort();
}

tqac_matcher *compile(reader &input)
{
    tqac_matcher *matcher = tqac_new([](int64_t size) { return malloc(static_cast<size_t>(size)); },
                                     [](void *pointer) {
                                         free(pointer);
                                         return 0;
                                     },
                                     0);
    const uint8_t casing = input.byte();
    for (uint64_t count = input.byte(), id = 1; id <= count && !input.left.empty(); ++id) {
        const std::string_view bytes = input.bytes(input.byte() % 40);
        const int nocase = casing % 3 == 0 ? 0 : casing % 3 == 1 ? 1 : static_cast<int>(id % 2);
        check(tqac_add_pattern(matcher, bytes.data(), static_cast<int>(bytes.size()), nocase, id, 0) == 0);
    }
    check(tqac_compile(matcher) == 0);
    return matcher;
}

/* Both ways through one piece, from the same state. The plain loop is the tag-aware search of text without
 * tags. */
void compare(const tqac_matcher *matcher, const std::string &text, uint32_t &state, size_t stop_at)
{
    results fast{{}, stop_at}, plain{{}, stop_at};
    uint32_t other = state, depth = 0;
    uint8_t quote = 0;
    const int length = static_cast<int>(text.size());
    const uint32_t count =
        tqac_search_(matcher, text.data(), length, collect, reinterpret_cast<uintptr_t>(&fast), &state);
    const uint32_t plain_count = tqac_search2_(matcher, text.data(), length, collect,
                                               reinterpret_cast<uintptr_t>(&plain), &other, &depth, &quote);
    check(count == plain_count && state == other && fast.matches == plain.matches);
}

void compare_substring(const std::string &text, std::string_view pattern)
{
    bm_state state;
    const std::string terminated(pattern.substr(0, pattern.find('\0')));
    if (bm_match_init(&state, terminated.c_str()) != 0 || terminated.empty())
        return;
    const std::string piece = text.substr(0, 65535);
    const size_t at = piece.find(terminated);
    check(bm_match_proc(piece.data(), static_cast<uint16_t>(piece.size()), &state) ==
          (at == std::string::npos ? -1 : static_cast<int>(at)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace mix::match;
    reader input{{reinterpret_cast<const char *>(data), size}};
    tqac_matcher *matcher = compile(input);
    const size_t stop_at = input.byte(), piece = 1 + input.byte() * 40u, repeats = 1 + input.byte() % 32;
    const std::string_view pattern = input.left.substr(0, 1 + stop_at % 33);
    std::string text;
    for (size_t i = 0; i < repeats; ++i)
        text += input.left;
    for (char &c : text)
        c = c == '<' ? '=' : c;
    for (vector_unit unit : {vector_unit::none, vector_unit::ssse3, vector_unit::avx2, vector_unit::neon}) {
        if (!has_vector_unit(unit))
            continue;
        use_vector_unit(unit);
        uint32_t state = 0;
        compare(matcher, text, state, 0);
        state = 0;
        compare(matcher, text, state, stop_at);
        for (size_t at = 0; at < text.size(); at += piece)
            compare(matcher, text.substr(at, piece), state, 0);
        compare_substring(text, pattern);
    }
    tqac_free(matcher);
    return 0;
}
