/*
 * The general heap of a test program, which can be told to fail and which watches one block. Included by one
 * file of a program. A sanitizer has a heap of its own; MIX_HEAP_IS_OURS is then not defined.
 */
#ifndef MIX_TESTS_GENERAL_HEAP_H
#define MIX_TESTS_GENERAL_HEAP_H

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define MIX_HEAP_IS_OURS

#include <cstddef>
#include <cstdlib>

namespace mixtest
{

struct general_heap {
    size_t failing_size = 0; /* requests of this size fail; 0: none */
    size_t watched_size = 0; /* the next request of this size is watched; 0: none */
    void *watched = nullptr; /* the block, while it is not freed */
    int freed = 0;           /* how often the watched block was freed */
};
inline constinit general_heap heap;

} // namespace mixtest

extern "C" {
void *__libc_malloc(size_t size) noexcept;
void __libc_free(void *block) noexcept;

void *malloc(size_t size) noexcept
{
    using mixtest::heap;
    if (size != 0 && size == heap.failing_size)
        return nullptr;
    void *block = __libc_malloc(size);
    if (size != 0 && size == heap.watched_size) {
        heap.watched = block;
        heap.watched_size = 0;
    }
    return block;
}

void free(void *block) noexcept
{
    using mixtest::heap;
    if (block != nullptr && block == heap.watched) {
        heap.watched = nullptr;
        heap.freed++;
    }
    __libc_free(block);
}
}

#endif

#endif
