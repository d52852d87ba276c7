/*
 * A daemon that answers anything, for the targets that fuzz the client functions. A target is a table of
 * clients; the driver in hostile_daemon.cpp picks one by an input's first byte, calls it on the scripted
 * platform and answers each of its requests from the rest of the input. An input is
 *
 *     u8 client, u8 flags, u8 value                     how it is called, see `call`
 *     for each exchange: u8 how, ...                    see hostile_daemon.cpp
 *
 * What a client may not do ends the process: read a byte that was not received (the address sanitizer), write
 * past an output (each is a heap block of its own), keep or free twice a buffer, miscount rows, print a text
 * that does not end.
 */
#ifndef MIX_TESTS_HOSTILE_DAEMON_H
#define MIX_TESTS_HOSTILE_DAEMON_H

#include <libmix/mix_base.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/input.h"

namespace mixfuzz
{

/* Reads every byte, so that one that may not be read is noticed. */
void touch(const void *bytes, size_t size);

/* How a client is called: the caller's side of one input. */
class call
{
  public:
    static constexpr uint8_t silent = 1, without_callback = 2, stopping = 4, with_texts = 8,
                             with_addresses = 16, board_of_choice = 32, short_of_memory = 64;

    call(uint8_t flags, uint8_t value) : flags_(flags), value_(value) {}

    [[nodiscard]] bool is(uint8_t flag) const { return (flags_ & flag) != 0; }
    /* One number for all arguments that are numbers: small, so that budgets and counts come to bear. */
    [[nodiscard]] uint8_t number() const { return value_; }
    [[nodiscard]] print_callback print() const;
    /* NULL, or a name; names are of a length that `number` decides, some with conversions in them. */
    [[nodiscard]] const char *text();
    /* NULL, or that many bytes in a block of their own. */
    [[nodiscard]] const uint8_t *bytes(size_t size);
    /* An output of exactly that size. */
    template <class T = uint8_t>
    T *out(size_t count)
    {
        blocks_.push_back(std::make_unique<uint8_t[]>(count * sizeof(T)));
        return reinterpret_cast<T *>(blocks_.back().get());
    }

    /* The row callback of a listing with rows of that many bytes; its context is this call. */
    template <size_t Size>
    [[nodiscard]] row_callback rows() const
    {
        return is(without_callback) ? nullptr : on_row<Size>;
    }
    int take_row(const void *row, size_t size);
    /* Every row that a listing counts was delivered: for those that no callback can stop. */
    void counted(uint64_t rows) const;
    /* Fewer may have been delivered when the callback stopped it. */
    void counted_unless_stopped(uint64_t rows) const;

  private:
    template <size_t Size>
    static int on_row(const void *row, void *context, int)
    {
        return static_cast<call *>(context)->take_row(row, Size);
    }

    uint8_t flags_, value_;
    uint64_t delivered_ = 0;
    std::string text_;
    std::vector<std::unique_ptr<uint8_t[]>> blocks_;
};

/* Where a page says how many rows it has, for answers that are pages.
 * Row size 0: the replies are no pages. */
struct page_layout {
    uint16_t header = 0, row = 0, count_at = 0, count_width = 0;
};

struct client {
    const char *name;
    void (*run)(call &);
    page_layout page = {};
    bool hands_over = false; /* its buffer, after it has cleared what was not received */
};

/* The target's table. Rows are only ever added at its end: inputs name a client by its number. */
extern const std::span<const client> clients;

} // namespace mixfuzz

#endif
