/* The bytes of a fuzzer's input, taken apart front to back. */
#ifndef MIX_TESTS_INPUT_H
#define MIX_TESTS_INPUT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

namespace mixfuzz
{

/* Ends the process: what is fuzzed did what it may not. */
[[noreturn]] inline void complain(const char *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

class input
{
  public:
    input(const uint8_t *data, size_t size) : left_(data, size) {}

    /* A little-endian number; what is not there any more is zero. */
    template <class T>
    T take()
    {
        T value{};
        const auto from = take(sizeof value);
        if (!from.empty())
            std::memcpy(&value, from.data(), from.size());
        return value;
    }
    /* As many bytes as are left of that many. */
    std::span<const uint8_t> take(size_t count)
    {
        const auto taken = left_.first(count < left_.size() ? count : left_.size());
        left_ = left_.subspan(taken.size());
        return taken;
    }
    [[nodiscard]] bool empty() const { return left_.empty(); }

  private:
    std::span<const uint8_t> left_;
};

} // namespace mixfuzz

#endif
