/*
 * The general heap of a test program, which can be told to fail, which watches one block and counts what
 * libmix itself asks for. Included by one file of a program. A sanitizer has a heap of its own;
 * MIX_HEAP_IS_OURS is then not defined. (valgrind has one, too: seen then stays false.)
 */
#ifndef MIX_TESTS_GENERAL_HEAP_H
#define MIX_TESTS_GENERAL_HEAP_H

#ifndef MIX_SANITIZE
#define MIX_HEAP_IS_OURS

#include <link.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace mixtest
{

struct general_heap {
    size_t failing_size = 0; /* requests of this size fail; 0: none */
    size_t watched_size = 0; /* the next request of this size is watched; 0: none */
    void *watched = nullptr; /* the block, while it is not freed */
    int freed = 0;           /* how often the watched block was freed */

    /* Requests made by code of libmix.so, not by the C library on its behalf. */
    uintptr_t library_begin = 0, library_end = 0; /* empty: none are counted */
    uint32_t library_requests = 0;
    uint32_t failing_library_request = 0; /* the n-th fails; 0: none */
    bool seen = false;

    /* Behind the next request of this size another thread seems to run; 0: none. */
    size_t interrupted_size = 0;
    void (*interruption)() = nullptr; /* what it does */
};
inline constinit general_heap heap;

inline int find_libmix(dl_phdr_info *info, size_t, void *)
{
    if (std::strstr(info->dlpi_name, "libmix.so") == nullptr)
        return 0;
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const auto &part = info->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            heap.library_begin = info->dlpi_addr + part.p_vaddr;
            heap.library_end = heap.library_begin + part.p_memsz;
        }
    }
    return 1;
}

/* From now on libmix's requests are counted, and the n-th fails. */
inline void count_library_requests(uint32_t failing)
{
    if (heap.library_begin == 0)
        dl_iterate_phdr(find_libmix, nullptr);
    heap.library_requests = 0;
    heap.failing_library_request = failing;
}

/* Whether this request fails. */
inline bool counts_and_fails(const void *caller)
{
    heap.seen = true;
    const auto from = reinterpret_cast<uintptr_t>(caller);
    return from >= heap.library_begin && from < heap.library_end &&
           ++heap.library_requests == heap.failing_library_request;
}

} // namespace mixtest

extern "C" {
void *__libc_malloc(size_t size) noexcept;
void __libc_free(void *block) noexcept;

void *malloc(size_t size) noexcept
{
    using mixtest::heap;
    if ((size != 0 && size == heap.failing_size) || mixtest::counts_and_fails(__builtin_return_address(0)))
        return nullptr;
    void *block = __libc_malloc(size);
    if (size != 0 && size == heap.watched_size) {
        heap.watched = block;
        heap.watched_size = 0;
    }
    if (size != 0 && size == heap.interrupted_size) {
        heap.interrupted_size = 0;
        heap.interruption();
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
