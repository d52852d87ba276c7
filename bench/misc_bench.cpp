/* The hex codec beside a loop over bytes and beside memcpy of what it writes; vector_set beside push_back. */
#include <libmix/hex.h>
#include <libmix/vector.h>

#include <cstring>
#include <vector>

#include "ratio.h"

namespace
{

constexpr int size = 4096; /* bytes of the binary form */
uint8_t binary[size];
char digits[2 * size];

void encode(benchmark::State &state)
{
    for (auto _ : state) {
        hex_encode(digits, binary, size);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encode);

[[gnu::noinline]] void encode_by_bytes(char *out, const uint8_t *in, int n)
{
    for (int i = 0; i < n; i++) {
        *out++ = "0123456789abcdef"[in[i] >> 4];
        *out++ = "0123456789abcdef"[in[i] & 15];
    }
}

void encode_loop(benchmark::State &state)
{
    for (auto _ : state) {
        encode_by_bytes(digits, binary, size);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encode_loop);

void copy_digits(benchmark::State &state)
{
    static char other[2 * size];
    for (auto _ : state) {
        std::memcpy(other, digits, sizeof(other));
        benchmark::DoNotOptimize(other);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copy_digits);

void decode(benchmark::State &state)
{
    for (auto _ : state) {
        hex_decode(binary, digits, 2 * size);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(decode);

constexpr int digit(char c)
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

[[gnu::noinline]] void decode_by_bytes(uint8_t *out, const char *in, int n)
{
    for (int i = 0; i < n / 2; i++) {
        if (const int high = digit(in[2 * i]); high >= 0)
            out[i] = static_cast<uint8_t>(high << 4);
        if (const int low = digit(in[2 * i + 1]); low >= 0)
            out[i] = static_cast<uint8_t>(out[i] | low);
    }
}

void decode_loop(benchmark::State &state)
{
    for (auto _ : state) {
        decode_by_bytes(binary, digits, 2 * size);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(decode_loop);

constexpr int elements = 256;

void set_in_vector(benchmark::State &state)
{
    for (auto _ : state) {
        vector *v = vector_init(1);
        for (int i = 0; i < elements; i++)
            vector_set(v, &binary[i]);
        vector_free(v);
    }
}
BENCHMARK(set_in_vector);

void push_back(benchmark::State &state)
{
    for (auto _ : state) {
        std::vector<void *> v;
        for (int i = 0; i < elements; i++)
            v.push_back(&binary[i]);
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK(push_back);

} // namespace

int main(int argc, char **argv)
{
    for (int i = 0; i < size; i++)
        binary[i] = static_cast<uint8_t>(i * 37);
    hex_encode(digits, binary, size);
    return mixbench::run(argc, argv,
                         {{"encode", "encode_loop", 0},
                          {"encode", "copy_digits", 0},
                          {"decode", "decode_loop", 0},
                          {"decode", "copy_digits", 0},
                          {"set_in_vector", "push_back", 0}});
}
