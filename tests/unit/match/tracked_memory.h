/*
 * The memory functions that tests give to a matcher: they record every call, fail a chosen allocation, fill
 * fresh memory with a pattern, and know what is still out.
 */
#ifndef MIX_TESTS_TRACKED_MEMORY_H
#define MIX_TESTS_TRACKED_MEMORY_H

#include <gtest/gtest.h>
#include <libmix/tqac.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace mixtest
{

struct tracked_memory {
    std::vector<int64_t> events; /* sizes of allocations, negative sizes of releases, in call order */
    uint32_t allocations = 0;
    uint32_t failing = 0; /* this allocation, counted from 1, returns NULL */
    uint32_t bad_frees = 0;
    int free_result = 0;
    std::unordered_map<void *, int64_t> out;
    std::function<void(int64_t)> on_allocation;

    static tracked_memory &get()
    {
        static tracked_memory memory;
        return memory;
    }
    static void *allocate(int64_t size)
    {
        tracked_memory &self = get();
        if (self.on_allocation)
            self.on_allocation(size);
        if (++self.allocations == self.failing)
            return nullptr;
        void *memory = std::malloc(static_cast<size_t>(size));
        std::memset(memory, 0xA5, static_cast<size_t>(size));
        self.out[memory] = size;
        self.events.push_back(size);
        return memory;
    }
    static int release(void *memory)
    {
        tracked_memory &self = get();
        const auto found = self.out.find(memory);
        if (found == self.out.end()) {
            ++self.bad_frees;
            return self.free_result;
        }
        self.events.push_back(-found->second);
        self.out.erase(found);
        std::free(memory);
        return self.free_result;
    }
};

inline tracked_memory &memory()
{
    return tracked_memory::get();
}

struct matcher_deleter {
    void operator()(tqac_matcher *matcher) const { tqac_free(matcher); }
};
using matcher_pointer = std::unique_ptr<tqac_matcher, matcher_deleter>;

inline matcher_pointer new_matcher()
{
    return matcher_pointer(tqac_new(tracked_memory::allocate, tracked_memory::release, 0));
}

/*
 * Fresh memory and no hooks for each test; nothing left, nothing freed twice at its end. From the constructor
 * to the destructor, so that matchers which are members of a test count as well.
 */
struct matcher_test : testing::Test {
    matcher_test() { memory() = {}; }
    ~matcher_test() override
    {
        tqac_register_callback(nullptr, nullptr);
        EXPECT_TRUE(memory().out.empty()) << memory().out.size() << " allocations left";
        EXPECT_EQ(memory().bad_frees, 0u);
    }
};

} // namespace mixtest

#endif
