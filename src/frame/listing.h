/* The paged listing: one loop over a description of the page. */
#ifndef MIX_FRAME_LISTING_H
#define MIX_FRAME_LISTING_H

#include "frame/frame.h"

namespace mix::frame
{

/* What ends a listing beside the cursor. */
enum class budget_rule : uint8_t {
    none,        /* nothing */
    below_one,   /* a signed number of rows still wanted; a maximum of 0 means 0x7fffffff */
    exactly_zero /* an unsigned one: going past zero wraps and the listing goes on */
};
enum class row_answer : uint8_t { ignored, negative_stops, not_zero_stops };
enum class first_row : uint8_t { of_listing, of_page };
enum class page_rule : uint8_t {
    exact, /* the received length is header + count x row */
    holds  /* it is at least that */
};

struct listing {
    /* With a reply buffer of its own (never reply_in_request). A length rule of its own comes before the
     * page's. */
    exchange ask = {};

    /* Fields of the request that change from page to page. */
    field request_cursor = {};
    field request_budget = {};
    field request_first = {}; /* filled for the first request, 0 in every later one */

    /* The page. */
    uint16_t header = 0; /* bytes before the first row */
    uint16_t row_size = 0;
    field cursor = {};
    field count = {};
    field more = {};  /* where a page says by a flag of its own, not by its cursor, that another follows */
    field total = {}; /* where a page tells the number of all matching rows */

    budget_rule budget = budget_rule::none;
    row_answer answer = row_answer::ignored;
    first_row first = first_row::of_listing;
    page_rule page = page_rule::exact;
    uint32_t filtered_maximum = 0; /* not 0: the maximum of a call whose filter is given */
    uint16_t full_page = 0; /* when not 0, only a page of exactly this many rows is followed by another */
};

/* What the caller of one listing decides. */
struct listing_call {
    target where = {};
    print_callback print = nullptr;
    row_callback row = nullptr; /* NULL: rows are only counted */
    void *context = nullptr;
    uint32_t maximum = 0;
    bool filtered = false; /* the filter that filtered_maximum is for is given */
    uint32_t start_cursor = 0;
    bool single_page = false;
};

struct [[nodiscard]] listing_result {
    enum class ending : uint8_t { complete, stopped, failed };
    ending end = ending::complete; /* complete: cursor at its end or budget used up */
    stage failed_at = stage::done;
    uint32_t rows = 0;   /* all rows of the good pages, also when the callback stopped in the last of them */
    uint32_t cursor = 0; /* of the last good page */
    uint32_t total = 0;  /* of the last good page */
};

/* Pages through buffers that acquire() made and whose request is filled. */
listing_result page_through(const listing &what, const listing_call &call, buffers &owned);

template <class Record, class Fill>
listing_result list(const listing &what, const listing_call &call, Fill &&fill)
{
    static_assert(alignof(Record) == 1, "records are packed");
    buffers owned;
    const outcome got = acquire(what.ask, call.where, call.print, owned);
    if (!got.ok())
        return {.end = listing_result::ending::failed, .failed_at = got.at};
    fill(*reinterpret_cast<Record *>(owned.request));
    const listing_result result = page_through(what, call, owned);
    release(owned);
    return result;
}

} // namespace mix::frame

#endif
