/*
 * Buffers that end, for who reads them, where a reply ends: an inaccessible page follows the bytes that were
 * received. The buffer itself is as large as asked for and may be written until it is closed.
 */
#ifndef MIX_TESTS_GUARDED_BUFFERS_H
#define MIX_TESTS_GUARDED_BUFFERS_H

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace mixtest
{

class guarded_buffers
{
  public:
    guarded_buffers() = default;
    guarded_buffers(const guarded_buffers &) = delete;
    guarded_buffers &operator=(const guarded_buffers &) = delete;
    ~guarded_buffers()
    {
        for (const cell &each : cells_)
            munmap(each.base, 2 * half);
    }

    /* A buffer of that size whose first `readable` bytes (all of them when it is more) stay accessible. */
    uint8_t *take(uint32_t size, uint32_t readable)
    {
        if (size > half)
            std::abort();
        cell &mine = free_cell();
        mine.buffer = mine.base + half - std::min(size, readable);
        return mine.buffer;
    }
    bool give_back(const void *buffer)
    {
        cell *mine = cell_of(buffer);
        if (mine == nullptr)
            return false;
        open(buffer);
        mine->buffer = nullptr;
        return true;
    }
    /* From now on reading, or writing, on is fatal. Does nothing with another's buffer. */
    void close(const void *buffer) { protect(buffer, true); }
    void open(const void *buffer) { protect(buffer, false); }

  private:
    static constexpr size_t half = 64 * 1024; /* a multiple of every page size in use */
    struct cell {
        uint8_t *base;
        uint8_t *buffer;
        bool closed;
    };

    cell *cell_of(const void *buffer)
    {
        const auto mine = std::find_if(cells_.begin(), cells_.end(),
                                       [=](const cell &each) { return each.buffer == buffer; });
        return buffer != nullptr && mine != cells_.end() ? &*mine : nullptr;
    }
    cell &free_cell()
    {
        for (cell &each : cells_)
            if (each.buffer == nullptr)
                return each;
        void *base = mmap(nullptr, 2 * half, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED)
            std::abort();
        cells_.push_back({static_cast<uint8_t *>(base), nullptr, false});
        return cells_.back();
    }
    void protect(const void *buffer, bool closed)
    {
        cell *mine = cell_of(buffer);
        if (mine == nullptr || mine->closed == closed)
            return;
        if (mprotect(mine->base + half, half, closed ? PROT_NONE : PROT_READ | PROT_WRITE) != 0)
            std::abort();
        mine->closed = closed;
    }

    std::vector<cell> cells_;
};

} // namespace mixtest

#endif
