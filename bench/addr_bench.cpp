/*
 * Address words beside inet_pton alone, over a million mixed words; whole-bitmap operations beside memcpy of
 * the same 513 bytes; a wide empty VLAN range beside a loop over its bits.
 */
#include <libmix/bitmap.h>
#include <libmix/ip_util.h>

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ratio.h"

namespace
{

/* --- words --- */

constexpr size_t word_count = 1'000'000;

std::string address(std::mt19937 &random)
{
    char text[INET_ADDRSTRLEN];
    return ipv4_2_str(static_cast<uint32_t>(random()), text, sizeof text);
}

/* Half are addresses, the others prefixes, beginnings,
 * addresses with a character too many and plain words. */
std::string mixed_word(std::mt19937 &random)
{
    std::string text = address(random);
    switch (random() % 10) {
    case 0:
    case 1:
        return text + "/" + std::to_string(random() % 40);
    case 2:
        return text.substr(0, random() % text.size());
    case 3:
        return text.insert(random() % text.size(), 1, ".0a1"[random() % 4]);
    case 4:
        return "interface";
    default:
        return text;
    }
}

/* One after the other in one piece of memory. */
const std::vector<const char *> &words()
{
    static std::vector<char> texts;
    static std::vector<const char *> all;
    if (!all.empty())
        return all;
    std::mt19937 random(4711);
    std::vector<size_t> starts;
    for (size_t i = 0; i < word_count; i++) {
        const std::string word = mixed_word(random);
        starts.push_back(texts.size());
        texts.insert(texts.end(), word.c_str(), word.c_str() + word.size() + 1);
    }
    for (const size_t start : starts)
        all.push_back(texts.data() + start);
    return all;
}

template <class Judge>
void judge_words(benchmark::State &state, Judge judge)
{
    const auto &all = words();
    for (auto _ : state) {
        int sum = 0;
        for (const char *word : all)
            sum += judge(word);
        benchmark::DoNotOptimize(sum);
    }
}

void words_inet_pton(benchmark::State &state)
{
    judge_words(state, [](const char *word) {
        in_addr parsed;
        return inet_pton(AF_INET, word, &parsed);
    });
}
BENCHMARK(words_inet_pton)->Unit(benchmark::kMillisecond);

void words_is_ipv4_str(benchmark::State &state)
{
    judge_words(state, is_ipv4_str);
}
BENCHMARK(words_is_ipv4_str)->Unit(benchmark::kMillisecond);

void words_ipv4_prefix_match(benchmark::State &state)
{
    judge_words(state, ipv4_prefix_match);
}
BENCHMARK(words_ipv4_prefix_match)->Unit(benchmark::kMillisecond);

/* --- bitmaps --- */

constexpr size_t size = MIX_VLAN_BITMAP_SIZE;

/* At an odd address, as inside a packed record. */
struct bitmaps {
    uint8_t odd = 0;
    uint8_t a[size];
    uint8_t b[size];
    uint8_t zero[size] = {};
} maps;

template <class Operation>
void operate(benchmark::State &state, Operation operation)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(operation());
        benchmark::ClobberMemory();
    }
}

void bitmap_memcpy(benchmark::State &state)
{
    size_t bytes = size;
    operate(state, [&] {
        benchmark::DoNotOptimize(bytes); /* so that it is the C library's, not the compiler's own */
        return std::memcpy(maps.b, maps.a, bytes);
    });
}
BENCHMARK(bitmap_memcpy);

void bitmap_or(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_or(maps.a, maps.b); });
}
BENCHMARK(bitmap_or);

void bitmap_and(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_and(maps.a, maps.b); });
}
BENCHMARK(bitmap_and);

void bitmap_not(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_not(maps.a, maps.b); });
}
BENCHMARK(bitmap_not);

void bitmap_diff(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_diff(maps.a, maps.b, maps.b); });
}
BENCHMARK(bitmap_diff);

void bitmap_cmp(benchmark::State &state)
{
    std::memcpy(maps.b, maps.a, size);
    operate(state, [] { return bitmap_port_cmp(maps.a, maps.b); });
}
BENCHMARK(bitmap_cmp);

void bitmap_zero(benchmark::State &state)
{
    operate(state, [] { return bitmap_is_zero(maps.zero); });
}
BENCHMARK(bitmap_zero);

void bitmap_copy(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_copy(maps.b, maps.a); });
}
BENCHMARK(bitmap_copy);

void bitmap_clear(benchmark::State &state)
{
    operate(state, [] { return bitmap_port_clear(maps.b); });
}
BENCHMARK(bitmap_clear);

void bitmap_count(benchmark::State &state)
{
    operate(state, [] { return bitmap_get_port_vlan_num(maps.a); });
}
BENCHMARK(bitmap_count);

/* --- a range --- */

void range_words(benchmark::State &state)
{
    operate(state, [] { return bitmap_is_include_specified_vlan(maps.zero, 1, 4094); });
}
BENCHMARK(range_words);

[[gnu::noinline]] int include_by_bits(const uint8_t *bitmap, uint32_t lo, uint32_t hi)
{
    for (uint32_t vid = lo; vid <= hi; vid++) {
        if ((bitmap[vid >> 3] & 1 << (vid & 7)) != 0)
            return 1;
    }
    return 0;
}

void range_bits(benchmark::State &state)
{
    operate(state, [] { return include_by_bits(maps.zero, 1, 4094); });
}
BENCHMARK(range_bits);

} // namespace

int main(int argc, char **argv)
{
    std::mt19937 random(1);
    for (uint8_t &byte : maps.a)
        byte = static_cast<uint8_t>(random());
    return mixbench::run(argc, argv,
                         {{"words_is_ipv4_str", "words_inet_pton", 2.5},
                          {"words_ipv4_prefix_match", "words_inet_pton", 2.5},
                          {"bitmap_or", "bitmap_memcpy", 3},
                          {"bitmap_and", "bitmap_memcpy", 3},
                          {"bitmap_not", "bitmap_memcpy", 3},
                          {"bitmap_diff", "bitmap_memcpy", 3},
                          {"bitmap_cmp", "bitmap_memcpy", 3},
                          {"bitmap_zero", "bitmap_memcpy", 3},
                          {"bitmap_copy", "bitmap_memcpy", 3},
                          {"bitmap_clear", "bitmap_memcpy", 3},
                          {"bitmap_count", "bitmap_memcpy", 3},
                          {"range_words", "range_bits", 10, true}});
}
