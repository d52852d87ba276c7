/*
 * The table of libmix's clients: every exported function that asks a daemon or the management gateway, with a
 * call that succeeds, what a good daemon answers to it, and what is documented for each way to fail. The
 * sweeps take each row through everything that can go wrong.
 *
 * The rows know nothing of the platform they run on: the scripted one, or libmixplatform with peers of the
 * tests' own.
 */
#ifndef MIX_TESTS_SWEEP_CLIENT_H
#define MIX_TESTS_SWEEP_CLIENT_H

#include <libmix/mix_base.h>

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace mixtest
{

/* --- what a call gets --- */

/* What one call is given, and what it left there. */
struct given {
    static constexpr uint8_t untouched = 0x5A;
    static constexpr size_t error_size = 64;

    print_callback print = nullptr;
    int32_t maximum = 0; /* of listings that take one */
    bytes batch = {};    /* what the gateway reads back */
    int batch_error = 0;
    size_t row_size = 0;
    size_t kept = SIZE_MAX; /* how much of the caller's own message the reply overwrites */

    /* Filled with `untouched` before the call. */
    alignas(16) uint8_t output[12800];
    char error[error_size];

    bytes rows = {}; /* delivered, one behind the other */
    size_t row_count = 0;
    std::vector<int> first_flags = {};
    bytes handed = {};                        /* the buffer that was handed over */
    std::optional<uint32_t> told_length = {}; /* of it */

    template <class T>
    T *as(size_t offset = 0)
    {
        return reinterpret_cast<T *>(output + offset);
    }
    /* Where listings deliver; context is the `given`. */
    static int take_row(const void *row, void *context, int first)
    {
        auto *into = static_cast<given *>(context);
        const auto *from = static_cast<const uint8_t *>(row);
        into->rows.insert(into->rows.end(), from, from + into->row_size);
        into->first_flags.push_back(first);
        into->row_count++;
        return 0;
    }
    /* A pointer as it is before the function hands over a buffer. */
    void **no_buffer() { return as<void *>(); }
    /* Takes such a buffer, of that many bytes, and frees it. The pointer is not compared, its bytes are. */
    int64_t take_buffer(int result, size_t size);
    int64_t take_buffer(int result, size_t size, uint32_t told);
};

using client_call = int64_t (*)(given &);

/* --- what a good daemon answers --- */

/* The result that is the send call's own. */
inline constexpr int64_t result_of_send = std::numeric_limits<int64_t>::max();

struct failures {
    int64_t no_request, no_reply, not_sent, refused, bad_length;
};
constexpr failures always(int64_t result)
{
    return {result, result, result, result, result};
}

enum class accepts : uint8_t {
    any,
    exactly,
    at_least,
    reaches
}; /* at_least: and no more than the capacity */

struct exchange {
    uint32_t capacity = 0; /* of the reply buffer; 0: a message without an answer */
    bytes reply = {};
    int32_t status = 0;
    accepts lengths = accepts::any;
    uint32_t length = 0; /* for every rule but any */
    failures fails = always(-1);
    size_t rows_before = 0; /* delivered before it */
    bool tolerated = false; /* the function goes on without it and succeeds all the same */

    [[nodiscard]] bool takes(uint32_t received) const
    {
        switch (lengths) {
        case accepts::exactly:
            return received == length;
        case accepts::at_least:
            return received >= length && received <= capacity;
        case accepts::reaches:
            return received >= length;
        case accepts::any:
            break;
        }
        return true;
    }
};

enum class refuses : uint8_t { negative, not_zero, nothing }; /* by which status */

/* All of a row but its call. */
struct shape {
    std::vector<exchange> exchanges = {};
    int64_t good = 0;
    int64_t (*of_status)(int32_t) = nullptr; /* the result of a status that is no refusal; none: good */
    refuses refused_by = refuses::negative;
    bool result_is_length = false;
    bytes failed_output = {};  /* what a failure leaves at the start of the output */
    bool own_message = false;  /* the reply overwrites the caller's own buffer, on a refusal, too */
    bool hands_over = false;   /* its buffer, in which what was not received is cleared */
    size_t output_size = 1024; /* what is compared of it */
    std::map<std::string, uint32_t> board = {};

    std::optional<page_format> page = {};
    int64_t (*of_rows)(size_t) = nullptr; /* a listing's result; none: good */
    bool budgeted = false;                /* takes given.maximum */
    bool single_page = false;             /* ends whatever the cursor says */
    bool full_pages = false;              /* only a full page is followed by another */
    size_t row_size = 0;

    bool ignores_commits = false; /* the result is the same when the gateway refuses */
    bytes batch = {};             /* what the gateway reads back */
    bool keeps_store = false;     /* takes memory once that is never given back */
    bool waits = false;           /* tries again after a while, so that failures take their time */

    shape &&on(std::map<std::string, uint32_t> values) &&
    {
        board = std::move(values);
        return std::move(*this);
    }
    shape &&leaves(bytes on_failure) &&
    {
        failed_output = std::move(on_failure);
        return std::move(*this);
    }
    template <class Value>
    shape &&set(Value shape::*field, Value value) &&
    {
        this->*field = std::move(value);
        return std::move(*this);
    }
};

struct client {
    const char *name;
    client_call call;
    shape is;
};

/* The exported name and the call of it; `g` is what it is given. */
#define MIX_CALL(function, ...)                                                                              \
#function, [](mixtest::given &g) -> int64_t {                                                            \
        static_cast<void>(g);                                                                                \
        return static_cast<int64_t>(function(__VA_ARGS__));                                                  \
    }
/* For what takes more than one expression: the body calls `function`. */
#define MIX_BODY(function, ...)                                                                              \
#function, [](mixtest::given &g) -> int64_t {                                                            \
        static_cast<void>(g);                                                                                \
        static_cast<void>(function);                                                                         \
        __VA_ARGS__                                                                                          \
    }
#define MIX_ROWS mixtest::given::take_row, &g

/* --- what the caller sees of a call --- */

struct seen {
    int64_t result;
    bytes output;
    bytes error;
    bytes rows;
    size_t row_count;
    std::vector<int> first_flags;
    bytes handed;
    std::optional<uint32_t> told_length;

    /* The output, and the error buffer too unless told otherwise, are as a failure leaves them. */
    [[nodiscard]] bool is_untouched(const shape &of, bool error_too = true) const;
};

/* Makes the call. `with` has its print callback, maximum and batch; all else is set here. */
seen call(const client &one, given &with);

/* Where two calls differ for their caller; empty: nowhere. */
std::string difference(const seen &one, const seen &other);

/* That the call failed at an exchange by the documented result: nothing written, no row of a later page. */
void expect_failed(const client &one, const seen &got, size_t at, int64_t result, bool refused = false);

/* Bytes that differ from each other. */
inline bytes some_bytes(size_t size)
{
    bytes out(size);
    for (size_t i = 0; i < size; i++)
        out[i] = static_cast<uint8_t>(i * 7 + i / 256 + 1);
    return out;
}

/* --- the common shapes --- */

/* The status is the result. */
inline shape answers_status(failures fails, uint32_t capacity = 4)
{
    return {.exchanges = {{.capacity = capacity, .status = 5, .fails = fails}},
            .good = 5,
            .of_status = [](int32_t status) { return int64_t{status}; }};
}

/* One exchange whose reply is taken with any length; what it does not reach is zero. */
inline shape answers(uint32_t capacity, bytes reply, failures fails = always(-1), int64_t good = 0)
{
    return {.exchanges = {{.capacity = capacity, .reply = std::move(reply), .fails = fails}}, .good = good};
}
inline shape answers(uint32_t capacity, bytes reply, accepts lengths, uint32_t length,
                     failures fails = always(-1), int64_t good = 0)
{
    shape is = answers(capacity, std::move(reply), fails, good);
    is.exchanges[0].lengths = lengths;
    is.exchanges[0].length = length;
    return is;
}

/* Exactly these bytes, and the status is the result. */
inline shape answers_status_and(bytes reply, failures fails)
{
    shape is = answers_status(fails, static_cast<uint32_t>(reply.size()));
    is.exchanges[0].lengths = accepts::exactly;
    is.exchanges[0].length = is.exchanges[0].capacity;
    is.exchanges[0].reply = std::move(reply);
    return is;
}

inline shape sends(int64_t failure = -1)
{
    return {.exchanges = {{.fails = always(failure)}}};
}

/* Changes through the gateway; no exchange with a daemon. */
inline shape commits()
{
    return {};
}
inline shape commits_whatever_comes()
{
    return {.ignores_commits = true};
}

/* A listing of pages of so many rows; its result is the number of rows. */
inline shape lists(const page_format &format, std::initializer_list<uint32_t> pages)
{
    shape is{.page = format, .of_rows = [](size_t rows) { return static_cast<int64_t>(rows); }};
    is.row_size = format.row_size;
    size_t rows = 0;
    for (const uint32_t *count = pages.begin(); count != pages.end(); count++) {
        const uint32_t next = count + 1 == pages.end() ? 0 : 0x123;
        bytes reply = format.page(next, *count, static_cast<uint8_t>(rows));
        const auto length = static_cast<uint32_t>(reply.size());
        is.exchanges.push_back({.capacity = format.capacity,
                                .reply = std::move(reply),
                                .lengths = accepts::exactly,
                                .length = length,
                                .fails = always(static_cast<int64_t>(rows)),
                                .rows_before = rows});
        rows += *count;
    }
    is.good = static_cast<int64_t>(rows);
    return is;
}
/* Such a listing that takes a maximum. */
inline shape lists_up_to(const page_format &format)
{
    return lists(format, {2, 3}).set(&shape::budgeted, true);
}

/* The same bytes right before inaccessible memory, until the next call. */
const uint8_t *guarded_row(const bytes &row);

/* --- the table --- */

std::vector<client> neighbour_clients();
std::vector<client> switching_clients();
std::vector<client> upgrade_clients();
std::vector<client> chassis_clients();
std::vector<client> virtual_chassis_clients();
std::vector<client> port_clients();
std::vector<client> other_clients();

/* All of them. */
const std::vector<client> &clients();

inline void PrintTo(const client &one, std::ostream *out)
{
    *out << one.name;
}

} // namespace mixtest

#endif
