#include "frame/listing.h"

namespace mix::frame
{

/* The rows still wanted, by either rule. */
class row_budget
{
  public:
    row_budget(budget_rule rule, uint32_t maximum) : rule_(rule), left_(maximum != 0 ? maximum : 0x7fffffffu)
    {
    }

    [[nodiscard]] uint32_t left() const { return left_; }

    /* Takes a page's rows off; true when no further page is wanted. */
    bool spend(uint32_t rows)
    {
        const int64_t rest = int64_t{static_cast<int32_t>(left_)} - rows;
        left_ -= rows;
        switch (rule_) {
        case budget_rule::below_one:
            return rest < 1;
        case budget_rule::exactly_zero:
            return left_ == 0;
        case budget_rule::none:
            break;
        }
        return false;
    }

  private:
    budget_rule rule_;
    uint32_t left_;
};

static bool stops(row_answer rule, int answer)
{
    switch (rule) {
    case row_answer::negative_stops:
        return answer < 0;
    case row_answer::not_zero_stops:
        return answer != 0;
    case row_answer::ignored:
        break;
    }
    return false;
}

/* The count is believed only when the received bytes bear it out. */
static outcome check_page(const listing &what, const reply_view &page, outcome result, print_callback print)
{
    const uint64_t needed = what.header + uint64_t{page.number(what.count)} * what.row_size;
    const bool shorter_than_header = what.page == page_rule::holds && result.length < what.header;
    if (result.length == 0 || result.length > what.ask.reply_capacity || shorter_than_header)
        result.at = stage::bad_length;
    else if (what.page == page_rule::exact ? result.length != needed : result.length < needed)
        result.at = stage::bad_count;
    report(what.ask.say, result, print, static_cast<uint32_t>(needed));
    return result;
}

/* False when the callback stopped the listing. */
static bool deliver_rows(const listing &what, const listing_call &call, const uint8_t *row, uint32_t count,
                         bool first)
{
    if (call.row == nullptr)
        return true;
    for (uint32_t i = 0; i < count; i++, row += what.row_size) {
        const int answer = call.row(row, call.context, first && i == 0 ? 1 : 0);
        if (stops(what.answer, answer))
            return false;
    }
    return true;
}

static bool is_last_page(const listing &what, const listing_call &call, const reply_view &page,
                         uint32_t count)
{
    const field &next = what.more.present() ? what.more : what.cursor;
    return page.number(next) == 0 || call.single_page || (what.full_page != 0 && count != what.full_page);
}

listing_result page_through(const listing &what, const listing_call &call, buffers &owned)
{
    using ending = listing_result::ending;
    const bool forced = call.filtered && what.filtered_maximum != 0;
    row_budget budget(what.budget, forced ? what.filtered_maximum : call.maximum);
    listing_result result{.cursor = call.start_cursor};
    for (;;) {
        put(owned.request, what.request_budget, budget.left());
        put(owned.request, what.request_cursor, result.cursor);
        outcome got = transact(what.ask, owned.destination, owned.request, what.ask.request_size, owned.reply,
                               what.ask.reply_capacity, call.print);
        const reply_view page(owned.reply, std::min(got.length, what.ask.reply_capacity));
        if (got.ok())
            got = check_page(what, page, got, call.print);
        if (!got.ok()) {
            result.end = ending::failed;
            result.failed_at = got.at;
            return result;
        }

        const uint32_t count = page.number(what.count);
        const bool first = what.first == first_row::of_page || result.rows == 0;
        result.rows += count;
        result.cursor = page.number(what.cursor);
        result.total = page.number(what.total);
        if (!deliver_rows(what, call, page.bytes() + what.header, count, first)) {
            result.end = ending::stopped;
            return result;
        }
        const bool spent = budget.spend(count);
        if (spent || is_last_page(what, call, page, count))
            return result;
        put(owned.request, what.request_first, 0);
    }
}

} // namespace mix::frame
