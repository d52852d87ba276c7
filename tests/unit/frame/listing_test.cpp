#include "frame/listing.h"

#include "support/scripted_platform.h"

#include <climits>
#include <cstring>

using namespace mixtest;
using namespace mix::frame;

namespace
{

using ending = listing_result::ending;

/* first-request flag at 0, budget at 4, cursor at 8 */
struct [[gnu::packed]] record {
    uint32_t first;
    uint32_t budget;
    uint32_t cursor;
};

/* next cursor at 0, count at 4, rows of 2 bytes */
constexpr listing plain{
    .ask = {.daemon = 0,
            .type = 4,
            .request_size = 12,
            .reply_capacity = 40,
            .say = usual_texts("show failed, ret is %d\n")},
    .request_cursor = {8, 4},
    .request_budget = {4, 4},
    .request_first = {0, 4},
    .header = 8,
    .row_size = 2,
    .cursor = {0, 4},
    .count = {4, 4},
    .budget = budget_rule::below_one,
};

bytes page(uint32_t cursor, std::initializer_list<uint16_t> rows)
{
    bytes out = join({le32(cursor), le32(static_cast<uint32_t>(rows.size()))});
    for (const uint16_t row : rows)
        out = join({out, le16(row)});
    return out;
}

struct paged_listing : platform_test {
    collected_rows got{.row_size = 2};

    listing_result list_it(const listing &what, listing_call call = {})
    {
        call.row = collect_row;
        call.context = &got;
        call.print = collect_print;
        return list<record>(what, call, [](record &request) { request.first = 1; });
    }
    static void answer_with(std::initializer_list<bytes> pages)
    {
        for (const bytes &each : pages)
            platform().answers.push_back({0, 0, each, {}});
    }
    static uint32_t sent_u32(size_t message, size_t offset)
    {
        uint32_t value = 0;
        std::memcpy(&value, platform().messages.at(message).request.data() + offset, 4);
        return value;
    }
};

TEST_F(paged_listing, repeats_with_the_returned_cursor_until_it_is_0)
{
    answer_with({page(10, {1, 2}), page(20, {3}), page(0, {4, 5})});
    const listing_result result = list_it(plain);
    EXPECT_EQ(result.end, ending::complete);
    EXPECT_EQ(result.rows, 5u);
    ASSERT_EQ(platform().messages.size(), 3u);
    EXPECT_EQ(sent_u32(0, 8), 0u);
    EXPECT_EQ(sent_u32(1, 8), 10u);
    EXPECT_EQ(sent_u32(2, 8), 20u);
    EXPECT_EQ(got.rows, (std::vector<bytes>{{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}}));
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0, 0, 0}));
    for (const sent_message &sent : platform().messages)
        EXPECT_EQ(sent.capacity, 40u) << "the capacity is given anew for every page";
    EXPECT_EQ(platform().allocations, 2u) << "one request and one reply buffer for all pages";
}

TEST_F(paged_listing, sends_the_first_request_field_once)
{
    answer_with({page(1, {}), page(2, {1}), page(0, {})});
    EXPECT_EQ(list_it(plain).rows, 1u);
    EXPECT_EQ(sent_u32(0, 0), 1u);
    EXPECT_EQ(sent_u32(1, 0), 0u);
    EXPECT_EQ(sent_u32(2, 0), 0u);
}

TEST_F(paged_listing, marks_the_first_delivered_row_after_an_empty_page)
{
    answer_with({page(1, {}), page(0, {7, 8})});
    EXPECT_EQ(list_it(plain).rows, 2u);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0}));
}

TEST_F(paged_listing, marks_the_first_row_of_each_page_where_that_is_described)
{
    listing what = plain;
    what.first = first_row::of_page;
    answer_with({page(1, {1, 2}), page(0, {3})});
    EXPECT_EQ(list_it(what).rows, 3u);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 1}));
}

TEST_F(paged_listing, a_maximum_of_0_asks_for_everything)
{
    answer_with({page(1, {1, 2}), page(0, {})});
    EXPECT_EQ(list_it(plain).rows, 2u);
    EXPECT_EQ(sent_u32(0, 4), 0x7fffffffu);
    EXPECT_EQ(sent_u32(1, 4), 0x7ffffffdu);
}

TEST_F(paged_listing, a_filter_can_force_the_maximum)
{
    listing what = plain;
    what.filtered_maximum = 1;
    answer_with({page(5, {1}), page(5, {1, 2, 3})});
    EXPECT_EQ(list_it(what, {.maximum = 9, .filtered = true}).rows, 1u);
    EXPECT_EQ(sent_u32(0, 4), 1u);
    EXPECT_EQ(platform().messages.size(), 1u);
    EXPECT_EQ(list_it(what, {.maximum = 2}).rows, 3u) << "not without the filter";
    EXPECT_EQ(sent_u32(1, 4), 2u);
}

TEST_F(paged_listing, a_filter_changes_nothing_where_no_maximum_is_forced)
{
    answer_with({page(5, {1, 2, 3})});
    EXPECT_EQ(list_it(plain, {.maximum = 2, .filtered = true}).rows, 3u);
    EXPECT_EQ(sent_u32(0, 4), 2u);
}

TEST_F(paged_listing, stops_when_the_budget_falls_below_one)
{
    answer_with({page(1, {1, 2, 3, 4}), page(2, {5, 6, 7, 8})});
    const listing_result result = list_it(plain, {.maximum = 5});
    EXPECT_EQ(result.end, ending::complete);
    EXPECT_EQ(result.rows, 8u) << "a page that is larger than the budget is delivered whole";
    EXPECT_EQ(sent_u32(0, 4), 5u);
    EXPECT_EQ(sent_u32(1, 4), 1u);
    EXPECT_EQ(platform().messages.size(), 2u);
}

TEST_F(paged_listing, stops_when_the_budget_is_used_up_exactly)
{
    answer_with({page(1, {1, 2})});
    EXPECT_EQ(list_it(plain, {.maximum = 2}).rows, 2u);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_F(paged_listing, goes_on_with_a_budget_of_one)
{
    answer_with({page(1, {1}), page(2, {2})});
    EXPECT_EQ(list_it(plain, {.maximum = 2}).rows, 2u);
    EXPECT_EQ(platform().messages.size(), 2u);
}

TEST_F(paged_listing, a_maximum_that_is_negative_as_a_signed_number_makes_one_request)
{
    for (const uint32_t maximum : {0x80000000u, 0xffffffffu}) {
        platform().messages.clear();
        answer_with({page(1, {1, 2})});
        EXPECT_EQ(list_it(plain, {.maximum = maximum}).rows, 2u);
        EXPECT_EQ(platform().messages.size(), 1u);
        EXPECT_EQ(sent_u32(0, 4), maximum);
    }
}

TEST_F(paged_listing, an_unsigned_budget_stops_at_0_only)
{
    listing what = plain;
    what.budget = budget_rule::exactly_zero;
    answer_with({page(1, {1, 2}), page(2, {3}), page(0, {})});
    EXPECT_EQ(list_it(what, {.maximum = 1}).rows, 3u);
    EXPECT_EQ(sent_u32(1, 4), 0xffffffffu);
    EXPECT_EQ(sent_u32(2, 4), 0xfffffffeu);

    platform().messages.clear();
    answer_with({page(1, {1, 2})});
    EXPECT_EQ(list_it(what, {.maximum = 2}).rows, 2u);
    EXPECT_EQ(platform().messages.size(), 1u);

    platform().messages.clear();
    answer_with({page(1, {1}), page(0, {})});
    EXPECT_EQ(list_it(what, {.maximum = 0x80000000}).rows, 1u);
    EXPECT_EQ(platform().messages.size(), 2u);
}

TEST_F(paged_listing, has_no_budget_where_none_is_described)
{
    listing what = plain;
    what.budget = budget_rule::none;
    what.request_budget = {};
    answer_with({page(1, {1, 2}), page(0, {3})});
    EXPECT_EQ(list_it(what, {.maximum = 1}).rows, 3u);
    EXPECT_EQ(sent_u32(0, 4), 0u);
}

TEST_F(paged_listing, starts_at_the_callers_cursor)
{
    answer_with({page(0, {1})});
    EXPECT_EQ(list_it(plain, {.start_cursor = 0x11223344}).rows, 1u);
    EXPECT_EQ(sent_u32(0, 8), 0x11223344u);
}

TEST_F(paged_listing, reads_and_writes_16_bit_fields_in_any_order)
{
    listing what = plain;
    what.request_cursor = {8, 2};
    what.header = 4;
    what.count = {0, 2};
    what.cursor = {2, 2};
    answer_with({join({le16(1), le16(0xffff), le16(5)}), join({le16(0), le16(0)})});
    EXPECT_EQ(list_it(what).rows, 1u);
    EXPECT_EQ(sent_u32(1, 8), 0xffffu) << "two bytes only";
}

TEST_F(paged_listing, goes_on_by_a_flag_of_its_own)
{
    listing what = plain;
    what.header = 12;
    what.more = {8, 4};
    answer_with({join({le32(0), le32(0), le32(1)}), join({le32(9), le32(0), le32(0)})});
    const listing_result result = list_it(what);
    EXPECT_EQ(result.end, ending::complete);
    EXPECT_EQ(result.cursor, 9u);
    EXPECT_EQ(platform().messages.size(), 2u);
}

TEST_F(paged_listing, makes_one_request_when_one_page_is_asked_for)
{
    answer_with({page(33, {1})});
    const listing_result result = list_it(plain, {.single_page = true});
    EXPECT_EQ(result.end, ending::complete);
    EXPECT_EQ(result.cursor, 33u);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_F(paged_listing, goes_on_only_after_a_full_page_where_that_is_described)
{
    listing what = plain;
    what.full_page = 2;
    answer_with({page(1, {1, 2}), page(2, {3})});
    EXPECT_EQ(list_it(what).rows, 3u);
    EXPECT_EQ(platform().messages.size(), 2u);

    platform().messages.clear();
    answer_with({page(1, {1, 2, 3})});
    EXPECT_EQ(list_it(what).rows, 3u);
    EXPECT_EQ(platform().messages.size(), 1u) << "more rows than a full page is not a full page";
}

TEST_F(paged_listing, tells_the_total_of_its_last_page)
{
    listing what = plain;
    what.header = 12;
    what.total = {8, 4};
    answer_with({join({le32(1), le32(0), le32(70)}), join({le32(0), le32(0), le32(71)})});
    EXPECT_EQ(list_it(what).total, 71u);
}

struct answer_case {
    row_answer rule;
    int answer;
    bool stops;
};

TEST_F(paged_listing, a_row_callback_stops_it_only_as_described)
{
    const answer_case cases[] = {
        {row_answer::ignored, -1, false},       {row_answer::ignored, 1, false},
        {row_answer::negative_stops, -1, true}, {row_answer::negative_stops, INT_MIN, true},
        {row_answer::negative_stops, 1, false}, {row_answer::not_zero_stops, 1, true},
        {row_answer::not_zero_stops, -1, true}, {row_answer::not_zero_stops, 0, false},
    };
    for (const answer_case &each : cases) {
        platform().reset();
        listing what = plain;
        what.answer = each.rule;
        got = {.row_size = 2, .answer = each.answer, .answer_from = 1};
        answer_with({page(1, {1, 2, 3}), page(0, {4})});
        const listing_result result = list_it(what);
        EXPECT_EQ(result.end, each.stops ? ending::stopped : ending::complete);
        EXPECT_EQ(got.rows.size(), each.stops ? 2u : 4u);
        EXPECT_EQ(result.rows, each.stops ? 3u : 4u) << "the page that was received counts whole";
        EXPECT_EQ(platform().messages.size(), each.stops ? 1u : 2u);
        EXPECT_EQ(platform().outstanding(), 0u);
    }
}

TEST_F(paged_listing, counts_without_a_row_callback)
{
    answer_with({page(1, {1, 2}), page(0, {3})});
    const listing_result result = list<record>(plain, {.print = collect_print}, [](record &) {});
    EXPECT_EQ(result.rows, 3u);
}

struct page_case {
    const char *name;
    bytes reply;
    uint32_t length; /* claimed */
    stage at;
};

struct listing_pages : paged_listing, testing::WithParamInterface<page_case> {
};

TEST_P(listing_pages, must_bear_out_their_count)
{
    const page_case &each = GetParam();
    platform().answers = {{0, 0, page(1, {1}), {}}, {0, 0, each.reply, each.length}};
    const listing_result result = list_it(plain);
    if (each.at == stage::done) {
        EXPECT_EQ(result.end, ending::complete);
        EXPECT_EQ(printed, "");
        return;
    }
    EXPECT_EQ(result.end, ending::failed);
    EXPECT_EQ(result.failed_at, each.at);
    EXPECT_EQ(result.rows, 1u) << "rows of earlier pages stay";
    EXPECT_EQ(got.rows.size(), 1u);
    EXPECT_EQ(printed,
              "Received buf len is wrong, len is " + std::to_string(static_cast<int>(each.length)) + "\n");
}

bytes page_of(size_t rows)
{
    return join({le32(0), le32(static_cast<uint32_t>(rows)), repeat(7, rows * 2)});
}

INSTANTIATE_TEST_SUITE_P(
    lengths, listing_pages,
    testing::Values(
        page_case{"empty", {}, 0, stage::bad_length}, page_case{"one_byte", {0}, 1, stage::bad_count},
        page_case{"header_less_one", repeat(0, 7), 7, stage::bad_count},
        page_case{"header", page_of(0), 8, stage::done},
        page_case{"header_and_a_byte", repeat(0, 9), 9, stage::bad_count},
        page_case{"two_rows_of_three", join({le32(0), le32(3), le32(0)}), 12, stage::bad_count},
        page_case{"three_rows_of_two", join({le32(0), le32(2), le32(0), le16(0)}), 14, stage::bad_count},
        page_case{"full", page_of(16), 40, stage::done},
        page_case{"above_the_capacity", page_of(17), 42, stage::bad_length},
        page_case{"count_wraps_in_32_bits", join({le32(0), le32(0x80000000)}), 8, stage::bad_count},
        page_case{"length_beyond_all", page_of(0), 0xffffffff, stage::bad_length}),
    [](const auto &one) { return one.param.name; });

TEST_F(paged_listing, a_page_may_be_longer_than_its_rows_where_that_is_described)
{
    listing what = plain;
    what.page = page_rule::holds;
    what.ask.say.bad_length = {"wrong msg len", shows::nothing};
    what.ask.say.bad_count = {"Wrong msg", shows::nothing};
    answer_with({join({page(0, {1, 2}), {9, 9, 9}})});
    EXPECT_EQ(list_it(what).rows, 2u);
    EXPECT_EQ(printed, "");

    answer_with({repeat(0, 7)});
    EXPECT_EQ(list_it(what).failed_at, stage::bad_length);
    EXPECT_EQ(printed, "wrong msg len");

    printed.clear();
    answer_with({join({le32(0), le32(2), le16(1), {1}})});
    EXPECT_EQ(list_it(what).failed_at, stage::bad_count);
    EXPECT_EQ(printed, "Wrong msg");

    printed.clear();
    answer_with({repeat(0, 41)});
    EXPECT_EQ(list_it(what).failed_at, stage::bad_length);
    EXPECT_EQ(printed, "wrong msg len");
}

TEST_F(paged_listing, tells_the_expected_length_where_a_text_shows_it)
{
    listing what = plain;
    what.ask.say.bad_count = {"len is %d,correct:%d\n", shows::length_and_expected};
    answer_with({join({le32(0), le32(3), le32(0)})});
    EXPECT_EQ(list_it(what).rows, 0u);
    EXPECT_EQ(printed, "len is 12,correct:14\n");

    printed.clear();
    answer_with({{1, 2, 3}});
    EXPECT_EQ(list_it(what).rows, 0u);
    EXPECT_EQ(printed, "len is 3,correct:8\n") << "a count that was not received is 0";
}

struct failure_case {
    answer with;
    stage at;
    const char *text;
};

TEST_F(paged_listing, a_failure_on_a_later_page_keeps_what_was_delivered)
{
    const failure_case cases[] = {
        {{-1, 0, {}, {}}, stage::not_sent, "ipcmsg send failed\n"},
        {{0, -3, {}, {}}, stage::refused, "show failed, ret is -3\n"},
    };
    for (const failure_case &each : cases) {
        platform().reset();
        got = {.row_size = 2};
        answer_with({page(1, {1, 2})});
        platform().answers.push_back(each.with);
        const listing_result result = list_it(plain);
        EXPECT_EQ(result.end, ending::failed);
        EXPECT_EQ(result.failed_at, each.at);
        EXPECT_EQ(result.rows, 2u);
        EXPECT_EQ(got.rows.size(), 2u);
        EXPECT_EQ(printed, each.text);
    }
}

TEST_F(paged_listing, ends_at_once_without_buffers)
{
    platform().fail_allocation(1);
    listing_result result = list_it(plain);
    EXPECT_EQ(result.end, ending::failed);
    EXPECT_EQ(result.failed_at, stage::no_request);
    EXPECT_EQ(printed, "No enough memory\n");

    printed.clear();
    platform().fail_allocation(3);
    result = list_it(plain);
    EXPECT_EQ(result.failed_at, stage::no_reply);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(platform().messages.empty());
}

TEST_F(paged_listing, is_silent_without_a_print_callback)
{
    for (const answer &with : {answer{-1, 0, {}, {}}, answer{0, -1, {}, {}}, answer{0, 0, {}, {}}}) {
        platform().fallback = with;
        EXPECT_EQ(list<record>(plain, {}, [](record &) {}).rows, 0u);
    }
    EXPECT_TRUE(printed_formats.empty());
}

} // namespace
