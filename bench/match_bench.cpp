/*
 * The matchers beside their peers: the Rust aho-corasick crate's DFA (overlapping matches), Hyperscan,
 * memmem, std::boyer_moore_searcher, a plain vector search. Every figure is a median; in each round every
 * engine runs once, so that a machine that slows down slows all of them. All engines must agree on the number
 * of matches, or the run ends.
 */
#include <hs.h>
#include <libmix/bm.h>
#include <libmix/tqac.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

extern "C" {
struct peer;
peer *peer_new(const uint8_t *const *patterns, const size_t *lengths, size_t count, int nocase);
uint64_t peer_count(const peer *peer, const uint8_t *text, size_t length);
void peer_free(peer *peer);
}

namespace
{

using words = std::vector<std::string>;

int rounds = 5;
int unmet = 0;

[[noreturn]] void fail(const std::string &text)
{
    std::fprintf(stderr, "bench_match: %s\n", text.c_str());
    std::exit(1);
}

std::string contents(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail("can't read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/* Random words of 4 to 16 ASCII letters, no two the same when case is ignored; the same ones each time. */
words dictionary(const std::string &path, size_t count)
{
    std::ifstream file(path);
    std::vector<std::string> all;
    std::set<std::string> seen;
    for (std::string line; std::getline(file, line);) {
        std::string lower = line;
        for (char &c : lower)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const bool letters =
            std::all_of(lower.begin(), lower.end(), [](char c) { return c >= 'a' && c <= 'z'; });
        if (letters && lower.size() >= 4 && lower.size() <= 16 && seen.insert(lower).second)
            all.push_back(line);
    }
    if (all.size() < count)
        fail(path + " has too few words");
    std::mt19937 random(20240229);
    for (size_t i = 0; i < count; ++i)
        std::swap(all[i], all[i + random() % (all.size() - i)]);
    all.resize(count);
    return all;
}

/* Of this thread's processor time: other programs on the machine do not count. */
double now()
{
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const std::function<void()> &work)
{
    const double start = now();
    work();
    return now() - start;
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/* Runs every engine once a round; the medians. */
std::vector<double> medians(const std::vector<std::function<void()>> &engines)
{
    std::vector<std::vector<double>> taken(engines.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < engines.size(); ++i)
            taken[i].push_back(seconds(engines[i]));
    }
    std::vector<double> result;
    for (const auto &one : taken)
        result.push_back(median(one));
    return result;
}

/* A ratio, what it is held to (0: nothing), and whether it is. */
void print_ratio(const char *beside, double value, double bound)
{
    std::printf("  %6.2f x %-12s", value, beside);
    if (bound > 0 && value < bound) {
        std::printf(" NOT MET (%.2f)", bound);
        ++unmet;
    }
}

/* --- the three engines --- */

/* Memory for one matcher that is given back all at once, as a caller may choose to. */
struct arena {
    std::vector<char *> blocks = {};
    char *next = nullptr;
    size_t left = 0;

    void *take(size_t size)
    {
        size = (size + 15) & ~size_t{15};
        if (size > left) {
            left = std::max(size, size_t{1} << 20);
            next = static_cast<char *>(std::malloc(left));
            blocks.push_back(next);
        }
        left -= size;
        next += size;
        return next - size;
    }
    void give_back()
    {
        for (char *block : blocks)
            std::free(block);
        *this = {};
    }
};
arena the_arena;

void *allocate(int64_t size)
{
    return std::malloc(static_cast<size_t>(size));
}
int release(void *pointer)
{
    std::free(pointer);
    return 0;
}
void *allocate_in_arena(int64_t size)
{
    return the_arena.take(static_cast<size_t>(size));
}
int keep_in_arena(void *)
{
    return 0;
}

tqac_matcher *compile_mix(const words &set, bool nocase, tqac_alloc_function take = allocate,
                          tqac_free_function give = release)
{
    tqac_matcher *made = tqac_new(take, give, 0);
    for (size_t i = 0; i < set.size(); ++i)
        tqac_add_pattern(made, set[i].data(), static_cast<int>(set[i].size()), nocase, i + 1, 0);
    if (tqac_compile(made) != 0)
        fail("no memory");
    return made;
}

peer *compile_crate(const words &set, bool nocase)
{
    std::vector<const uint8_t *> bytes;
    std::vector<size_t> lengths;
    for (const std::string &word : set) {
        bytes.push_back(reinterpret_cast<const uint8_t *>(word.data()));
        lengths.push_back(word.size());
    }
    peer *made = peer_new(bytes.data(), lengths.data(), set.size(), nocase);
    if (!made)
        fail("the crate refuses the set");
    return made;
}

hs_database_t *compile_hyperscan(const words &set, bool nocase)
{
    std::vector<const char *> bytes;
    std::vector<size_t> lengths;
    std::vector<unsigned> flags(set.size(), nocase ? HS_FLAG_CASELESS : 0), ids;
    for (const std::string &word : set) {
        bytes.push_back(word.data());
        lengths.push_back(word.size());
        ids.push_back(static_cast<unsigned>(ids.size()));
    }
    hs_database_t *made = nullptr;
    hs_compile_error_t *error = nullptr;
    if (hs_compile_lit_multi(bytes.data(), flags.data(), ids.data(), lengths.data(),
                             static_cast<unsigned>(set.size()), HS_MODE_BLOCK, nullptr, &made,
                             &error) != HS_SUCCESS)
        fail(std::string("hyperscan: ") + error->message);
    return made;
}

int count_mix(uint64_t, int, uint64_t arg, int)
{
    ++*reinterpret_cast<uint64_t *>(arg);
    return 0;
}

int count_hyperscan(unsigned, unsigned long long, unsigned long long, unsigned, void *context)
{
    ++*static_cast<uint64_t *>(context);
    return 0;
}

/* One set in one case mode, compiled by all. */
struct engines {
    tqac_matcher *mix;
    peer *crate;
    hs_database_t *hyperscan;
    hs_scratch_t *scratch = nullptr;

    engines(const words &set, bool nocase)
        : mix(compile_mix(set, nocase)), crate(compile_crate(set, nocase)),
          hyperscan(compile_hyperscan(set, nocase))
    {
        if (hs_alloc_scratch(hyperscan, &scratch) != HS_SUCCESS)
            fail("no scratch");
    }
    ~engines()
    {
        tqac_free(mix);
        peer_free(crate);
        hs_free_scratch(scratch);
        hs_free_database(hyperscan);
    }
    engines(const engines &) = delete;
    engines &operator=(const engines &) = delete;

    uint64_t scan_mix(const char *text, size_t size) const
    {
        uint64_t count = 0;
        uint32_t state = 0;
        tqac_search_(mix, text, static_cast<int>(size), count_mix, reinterpret_cast<uintptr_t>(&count),
                     &state);
        return count;
    }
    uint64_t scan_crate(const char *text, size_t size) const
    {
        return peer_count(crate, reinterpret_cast<const uint8_t *>(text), size);
    }
    uint64_t scan_hyperscan(const char *text, size_t size) const
    {
        uint64_t count = 0;
        hs_scan(hyperscan, text, static_cast<unsigned>(size), 0, scratch, count_hyperscan, &count);
        return count;
    }
};

/* Scans a text in pieces, each on its own. */
template <class Scan>
uint64_t in_pieces(const std::string &text, size_t piece, Scan scan)
{
    uint64_t count = 0;
    for (size_t at = 0; at < text.size(); at += piece)
        count += scan(text.data() + at, std::min(piece, text.size() - at));
    return count;
}

void bench_search(const engines &all, size_t set, bool nocase, const char *kind, const std::string &text,
                  size_t piece)
{
    uint64_t counts[3] = {};
    const std::vector<double> taken = medians({
        [&] { counts[0] = in_pieces(text, piece, [&](auto *p, size_t n) { return all.scan_mix(p, n); }); },
        [&] { counts[1] = in_pieces(text, piece, [&](auto *p, size_t n) { return all.scan_crate(p, n); }); },
        [&] {
            counts[2] = in_pieces(text, piece, [&](auto *p, size_t n) { return all.scan_hyperscan(p, n); });
        },
    });
    if (counts[0] != counts[1] || counts[0] != counts[2])
        fail("the engines do not agree on the matches");
    const bool elf = std::strcmp(kind, "elf") == 0;
    const double mib = static_cast<double>(text.size()) / 1048576;
    std::printf("%6zu words %-6s %-4s %-6s %9llu matches %7.0f %7.0f %7.0f MiB/s", set,
                nocase ? "nocase" : "case", kind, piece == text.size() ? "whole" : "pieces",
                static_cast<unsigned long long>(counts[0]), mib / taken[0], mib / taken[1], mib / taken[2]);
    print_ratio("crate", taken[1] / taken[0], set == 10 || (set == 100 && elf) ? 3.0 : 1.2);
    print_ratio("hyperscan", taken[2] / taken[0], set == 10000 && !elf ? 1.0 : 0);
    std::printf("\n");
    std::fflush(stdout);
}

/* --- small buffers --- */

/* The loop that every other way through a text stands in for: one cell a byte. From the public record. */
template <class Cell>
uint64_t scan_plain(const tqac_matcher *matcher, const char *text, size_t size, uint32_t &state)
{
    uint64_t count = 0;
    const Cell *table = static_cast<const Cell *>(matcher->table);
    const Cell *row = table + (static_cast<size_t>(state) << matcher->charset_shift);
    for (size_t at = 0; at < size; ++at) {
        const uint32_t column = matcher->input_map[static_cast<uint8_t>(text[at])];
        if (column == 0) {
            row = table;
            continue;
        }
        state = row[column];
        row = table + (static_cast<size_t>(state) << matcher->charset_shift);
        if (row[0] == 0)
            continue;
        for (const tqac_pattern *one = matcher->match_lists[state]; one; one = one->next)
            count_mix(one->id, static_cast<int>(at) - one->len + 1, reinterpret_cast<uintptr_t>(&count),
                      one->len);
    }
    return count;
}

/* A stream in small pieces, its state carried along: the fast ways must not cost more than the plain loop. */
void bench_small(const words &set, bool nocase, const std::string &text, size_t piece)
{
    tqac_matcher *matcher = compile_mix(set, nocase);
    uint64_t counts[2] = {};
    uint32_t state = 0;
    const std::vector<double> taken = medians({
        [&] {
            state = 0;
            counts[0] = in_pieces(text, piece, [&](const char *p, size_t n) {
                uint64_t count = 0;
                tqac_search_(matcher, p, static_cast<int>(n), count_mix, reinterpret_cast<uintptr_t>(&count),
                             &state);
                return count;
            });
        },
        [&] {
            state = 0;
            counts[1] = in_pieces(text, piece, [&](const char *p, size_t n) {
                return matcher->state_size == 2 ? scan_plain<uint16_t>(matcher, p, n, state)
                                                : scan_plain<uint32_t>(matcher, p, n, state);
            });
        },
    });
    tqac_free(matcher);
    if (counts[0] != counts[1])
        fail("the plain loop does not agree on the matches");
    const double mib = static_cast<double>(text.size()) / 1048576;
    std::printf("%6zu words %-6s in %4zu bytes: %7.0f %7.0f MiB/s", set.size(), nocase ? "nocase" : "case",
                piece, mib / taken[0], mib / taken[1]);
    print_ratio("plain loop", taken[1] / taken[0], 0.95); /* 1, and what two runs of one program differ by */
    std::printf("\n");
    std::fflush(stdout);
}

/* --- compilation --- */

/* What a compilation and the matcher's end ask of the memory functions, to be asked again without them. */
struct memory_trace {
    std::vector<int64_t> calls = {}; /* a size, or minus the number (from 1) of the block released */
    std::unordered_map<void *, int64_t> numbers = {};
    int64_t made = 0;

    void replay() const
    {
        std::vector<void *> blocks;
        blocks.reserve(static_cast<size_t>(made));
        for (int64_t call : calls) {
            if (call < 0) {
                std::free(blocks[static_cast<size_t>(-call - 1)]);
                continue;
            }
            blocks.push_back(std::malloc(static_cast<size_t>(call)));
            std::memset(blocks.back(), 0, static_cast<size_t>(call));
        }
    }
};
memory_trace *tracing;

void *allocate_traced(int64_t size)
{
    void *block = std::malloc(static_cast<size_t>(size));
    tracing->calls.push_back(size);
    tracing->numbers[block] = ++tracing->made;
    return block;
}
int release_traced(void *block)
{
    tracing->calls.push_back(-tracing->numbers[block]);
    std::free(block);
    return 0;
}

memory_trace trace_of(const words &set)
{
    memory_trace made;
    tracing = &made;
    tqac_free(compile_mix(set, false, allocate_traced, release_traced));
    return made;
}

/*
 * The transition nodes and their order are promised, so with malloc a compilation can't be faster than malloc
 * and free are by themselves; that is measured beside it for sets whose trace fits in memory.
 */
void bench_compile(const words &set, double &each_transition)
{
    int32_t transitions = 0;
    const memory_trace memory = set.size() <= 10000 ? trace_of(set) : memory_trace{};
    const std::vector<double> taken = medians({
        [&] {
            tqac_matcher *made = compile_mix(set, false);
            transitions = made->num_trans;
            tqac_free(made);
        },
        [&] { hs_free_database(compile_hyperscan(set, false)); },
        [&] {
            compile_mix(set, false, allocate_in_arena, keep_in_arena);
            the_arena.give_back();
        },
        [&] { memory.replay(); },
    });
    const double nanoseconds = taken[0] * 1e9 / transitions;
    std::printf("%6zu words: malloc %8.1f ms (the calls alone %8.1f ms), arena %8.1f ms, hyperscan %8.1f ms, "
                "%5.1f ns a transition",
                set.size(), taken[0] * 1e3, taken[3] * 1e3, taken[2] * 1e3, taken[1] * 1e3, nanoseconds);
    print_ratio("hyperscan", taken[1] / taken[0], set.size() == 10000 ? 1.0 : 0);
    print_ratio("in an arena", taken[1] / taken[2], 0);
    std::printf("\n");
    std::fflush(stdout);
    each_transition = nanoseconds;
}

/* --- one pattern --- */

/* The usual vector search: places whose first and last byte fit, then a comparison. */
#if defined(__x86_64__)
[[gnu::target("avx2")]] long find_by_vector(const char *text, size_t size, const std::string &pattern)
{
    const size_t places = size - pattern.size() + 1;
    const __m256i first = _mm256_set1_epi8(pattern.front()), last = _mm256_set1_epi8(pattern.back());
    for (size_t at = 0; at < places; at += 32) {
        at = at + 32 <= places ? at : places - 32; /* the buffers are longer than a vector */
        const __m256i one = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + at));
        const __m256i other =
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + at + pattern.size() - 1));
        const __m256i both = _mm256_and_si256(_mm256_cmpeq_epi8(one, first), _mm256_cmpeq_epi8(other, last));
        for (auto mask = static_cast<unsigned>(_mm256_movemask_epi8(both)); mask; mask &= mask - 1) {
            const size_t place = at + static_cast<size_t>(__builtin_ctz(mask));
            if (std::memcmp(text + place, pattern.data(), pattern.size()) == 0)
                return static_cast<long>(place);
        }
    }
    return -1;
}
bool has_vector_search()
{
    return __builtin_cpu_supports("avx2");
}
#else
long find_by_vector(const char *, size_t, const std::string &)
{
    return -1;
}
bool has_vector_search()
{
    return false;
}
#endif

void bench_substring(const std::string &text, size_t size)
{
    constexpr size_t buffer = 65500;
    /* Real text of that length that the buffers before its own do not hold: mostly searched to the end. */
    const std::string pattern = text.substr(text.size() / 2 + 17, size);
    bm_state state;
    if (bm_match_init(&state, pattern.c_str()) != 0)
        fail("pattern");
    const std::boyer_moore_searcher searcher(pattern.begin(), pattern.end());
    uint64_t sums[4] = {};
    const auto over = [&](auto find) {
        uint64_t sum = 0;
        for (size_t at = 0; at + buffer <= text.size(); at += buffer)
            sum += static_cast<uint64_t>(find(text.data() + at) + 1);
        return sum;
    };
    const std::vector<double> taken = medians({
        [&] {
            sums[0] =
                over([&](const char *p) { return static_cast<long>(bm_match_proc(p, buffer, &state)); });
        },
        [&] {
            sums[1] = over([&](const char *p) {
                const void *at = memmem(p, buffer, pattern.data(), pattern.size());
                return at ? static_cast<const char *>(at) - p : -1L;
            });
        },
        [&] {
            sums[2] = over([&](const char *p) {
                const char *at = std::search(p, p + buffer, searcher);
                return at != p + buffer ? at - p : -1L;
            });
        },
        [&] {
            if (has_vector_search())
                sums[3] = over([&](const char *p) { return find_by_vector(p, buffer, pattern); });
        },
    });
    if (sums[0] != sums[1] || sums[0] != sums[2] || (has_vector_search() && sums[0] != sums[3]))
        fail("the searches do not agree");
    const double mib = static_cast<double>(text.size()) / 1048576;
    std::printf("%2zu bytes in %zu: %7.0f %7.0f %7.0f MiB/s", size, buffer, mib / taken[0], mib / taken[1],
                mib / taken[2]);
    print_ratio("memmem", taken[1] / taken[0], 2.0);
    print_ratio("std", taken[2] / taken[0], 0);
    if (has_vector_search())
        print_ratio("vector", taken[3] / taken[0], 0);
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        fail("usage: bench_match CORPUS-DIRECTORY [ROUNDS [LARGEST-SET]]");
    const std::string corpus = argv[1];
    rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    const size_t largest = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 100000;
    const std::string text = contents(corpus + "/text"), elf = contents(corpus + "/elf");
    const std::string common = "/usr/share/dict/american-english", huge = common + "-huge";

    std::printf("search: libmix, aho-corasick crate, hyperscan\n");
    for (size_t size : {10, 100, 1000, 10000, 100000}) {
        for (bool nocase : {false, true}) {
            if (size > largest)
                continue;
            const engines all(dictionary(size > 10000 ? huge : common, size), nocase);
            for (size_t piece : {text.size(), size_t{1460}}) {
                bench_search(all, size, nocase, "text", text, piece);
                bench_search(all, size, nocase, "elf", elf, piece);
            }
        }
    }

    std::printf("\nsmall buffers, as a stream: libmix, the plain loop\n");
    for (size_t size : {10, 100, 1000})
        for (bool nocase : {false, true})
            for (size_t piece : {64, 256, 1500})
                bench_small(dictionary(common, size), nocase, text, piece);

    std::printf("\nshort patterns: libmix, memmem, std::boyer_moore_searcher\n");
    for (size_t size : {4, 8, 16, 33})
        bench_substring(text, size);

    std::printf("\ncompilation\n");
    double small = 0, large = 0;
    for (size_t size : {1000, 10000, 100000}) {
        if (size <= largest)
            bench_compile(dictionary(huge, size), size == 1000 ? small : large);
    }
    if (large > 0)
        std::printf("a transition of the largest set takes %.2f times one of the smallest\n", large / small);
    std::printf("\n%d bounds not met\n", unmet);
    return 0;
}
