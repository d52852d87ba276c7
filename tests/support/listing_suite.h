/*
 * What every paged listing is tested for alike. Included by one file of a test program, which instantiates
 * paged_listings with a value for each listing; fields are given as literal offsets.
 */
#ifndef MIX_TESTS_LISTING_SUITE_H
#define MIX_TESTS_LISTING_SUITE_H

#include "support/client_suite.h"

namespace mixtest
{

struct listing_case {
    /* What the caller of one listing gives. */
    struct given {
        row_callback row;
        void *context;
        print_callback print = collect_print;
        int32_t maximum = 0;
        uint32_t first_request = 0;
    };
    enum class stopped_by { nothing, negative, not_zero };

    const char *name;
    std::function<int64_t(const given &)> call;
    uint32_t type;
    uint32_t capacity;
    uint32_t header;
    uint32_t row_size;
    size_t cursor_width; /* the page starts with its cursor and its count, both of this width */
    size_t sent_first, sent_budget, sent_cursor;
    stopped_by answer;
    const char *refused; /* with a status of -7 */
    const char *not_sent = "ipcmsg send failed\n";
    const char *no_reply = "";

    [[nodiscard]] uint32_t fullest() const { return (capacity - header) / row_size; }
};

inline void PrintTo(const listing_case &one, std::ostream *out)
{
    *out << one.name;
}

class paged_listings : public platform_test, public testing::WithParamInterface<listing_case>
{
  protected:
    const listing_case &what = GetParam();
    collected_rows got{.row_size = what.row_size};

    int64_t run(listing_case::given with = {nullptr, nullptr})
    {
        with.row = collect_row;
        with.context = &got;
        return what.call(with);
    }
    int64_t run_up_to(int32_t maximum) { return run({nullptr, nullptr, collect_print, maximum}); }

    [[nodiscard]] bytes page_claiming(uint32_t cursor, uint32_t count, uint32_t rows,
                                      uint8_t number = 0) const
    {
        const page_format format{what.capacity,
                                 what.header,
                                 what.row_size,
                                 {0, what.cursor_width},
                                 {what.cursor_width, what.cursor_width}};
        return format.page_claiming(cursor, count, rows, number);
    }
    [[nodiscard]] bytes page(uint32_t cursor, uint32_t rows, uint8_t number = 0) const
    {
        return page_claiming(cursor, rows, rows, number);
    }
    static void answer_with(std::initializer_list<bytes> pages)
    {
        for (const bytes &each : pages)
            platform().answers.push_back({0, 0, each, {}});
    }
    static uint32_t sent_number(size_t message, size_t offset)
    {
        const bytes &request = platform().messages.at(message).request;
        uint32_t value = 0;
        std::memcpy(&value, request.data() + offset, sizeof value);
        return value;
    }
    void expect_wrong_length(const answer &with)
    {
        platform().answers = {with};
        const uint32_t length = with.length.value_or(static_cast<uint32_t>(with.reply.size()));
        printed.clear();
        EXPECT_EQ(run(), 0);
        EXPECT_EQ(printed,
                  "Received buf len is wrong, len is " + std::to_string(static_cast<int32_t>(length)) + "\n");
        EXPECT_TRUE(got.rows.empty());
        printed.clear();
        platform().answers = {with};
        EXPECT_EQ(run({nullptr, nullptr, nullptr}), 0);
        EXPECT_EQ(printed, "");
    }
};

TEST_P(paged_listings, go_on_with_the_returned_cursor_until_it_is_0)
{
    answer_with({page(7, 2, 1), page(0x1234, 1, 3), page(0, 2, 4)});
    EXPECT_EQ(run({nullptr, nullptr, collect_print, 9, 0xabcd}), 5);
    ASSERT_EQ(platform().messages.size(), 3u);
    const uint32_t cursors[] = {0, 7, 0x1234}, budgets[] = {9, 7, 6}, firsts[] = {0xabcd, 0, 0};
    for (size_t i = 0; i < 3; i++) {
        EXPECT_EQ(sent_number(i, what.sent_cursor), cursors[i]);
        EXPECT_EQ(sent_number(i, what.sent_budget), budgets[i]);
        EXPECT_EQ(sent_number(i, what.sent_first), firsts[i]);
        EXPECT_EQ(platform().messages[i].type, what.type);
        EXPECT_EQ(platform().messages[i].by, sender::send_and_recv);
        EXPECT_EQ(platform().messages[i].capacity, what.capacity) << "reset before each request";
        EXPECT_EQ(platform().messages[i].timeout_ms, 500u);
        EXPECT_EQ(platform().messages[i].request[0], platform().messages[0].request[0]);
    }
    ASSERT_EQ(got.rows.size(), 5u);
    for (size_t i = 0; i < 5; i++)
        EXPECT_EQ(got.rows[i], repeat(static_cast<uint8_t>(i + 1), what.row_size));
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0, 0, 0}));
    EXPECT_EQ(printed, "");
}

TEST_P(paged_listings, ask_for_everything_with_a_maximum_of_0)
{
    answer_with({page(1, 2), page(0, 0)});
    EXPECT_EQ(run(), 2);
    EXPECT_EQ(sent_number(0, what.sent_budget), 0x7fffffffu);
    EXPECT_EQ(sent_number(1, what.sent_budget), 0x7ffffffdu);
}

TEST_P(paged_listings, stop_after_the_page_that_uses_up_the_maximum)
{
    answer_with({page(1, 4), page(2, 4), page(0, 1)});
    EXPECT_EQ(run_up_to(5), 8) << "the page is delivered whole";
    ASSERT_EQ(platform().messages.size(), 2u);
    EXPECT_EQ(sent_number(1, what.sent_budget), 1u);
}

TEST_P(paged_listings, stop_when_the_maximum_is_met_exactly)
{
    answer_with({page(1, 4), page(0, 1)});
    EXPECT_EQ(run_up_to(4), 4);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_P(paged_listings, make_one_request_with_a_negative_maximum)
{
    answer_with({page(1, 2), page(0, 1)});
    EXPECT_EQ(run_up_to(-1), 2);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_P(paged_listings, end_by_their_maximum_when_the_cursor_never_does)
{
    platform().fallback = {0, 0, page(9, 1), {}};
    EXPECT_EQ(run_up_to(25), 25);
    EXPECT_EQ(platform().messages.size(), 25u);
}

TEST_P(paged_listings, go_on_after_an_empty_page_with_a_cursor)
{
    answer_with({page(1, 0), page(2, 0), page(0, 2)});
    EXPECT_EQ(run(), 2);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0}));
}

TEST_P(paged_listings, end_with_an_empty_page_without_a_cursor)
{
    answer_with({page(0, 0)});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(printed, "");
}

TEST_P(paged_listings, count_without_a_row_callback)
{
    answer_with({page(1, 2), page(0, 1)});
    EXPECT_EQ(what.call({nullptr, nullptr}), 3);
}

TEST_P(paged_listings, are_stopped_by_their_callback_only_as_they_say)
{
    struct {
        int answer;
        bool stops;
    } const cases[] = {{-1, what.answer != listing_case::stopped_by::nothing},
                       {1, what.answer == listing_case::stopped_by::not_zero}};
    for (const auto &each : cases) {
        platform().reset();
        got = {.row_size = what.row_size, .answer = each.answer, .answer_from = 1};
        answer_with({page(1, 3), page(0, 1)});
        EXPECT_EQ(run(), each.stops ? 3 : 4) << "the page that was received counts whole";
        EXPECT_EQ(got.rows.size(), each.stops ? 2u : 4u) << each.answer;
        EXPECT_EQ(platform().messages.size(), each.stops ? 1u : 2u);
    }
}

TEST_P(paged_listings, accept_the_fullest_page)
{
    answer_with({page(0, what.fullest())});
    EXPECT_EQ(run(), what.fullest());
    EXPECT_EQ(got.rows.size(), what.fullest());
    EXPECT_EQ(printed, "");
}

TEST_P(paged_listings, reject_pages_of_a_wrong_length)
{
    expect_wrong_length({0, 0, {}, {}});
    expect_wrong_length({0, 0, {1}, {}});
    bytes head = page(0, 0);
    head.pop_back();
    expect_wrong_length({0, 0, head, {}});
    expect_wrong_length({0, 0, page_claiming(0, 1, 0), {}});
    expect_wrong_length({0, 0, page_claiming(4, 3, 2), {}});
    expect_wrong_length({0, 0, page_claiming(4, 1, 2), {}});
    bytes shorter = page(0, 1), longer = page(0, 1);
    shorter.pop_back();
    longer.push_back(0);
    expect_wrong_length({0, 0, shorter, {}});
    expect_wrong_length({0, 0, longer, {}});
}

TEST_P(paged_listings, reject_pages_that_are_longer_than_the_buffer)
{
    /* exactly full, but not of whole rows; then claims beyond the buffer */
    bytes full = page(0, what.fullest());
    full.resize(what.capacity);
    ASSERT_NE((what.capacity - what.header) % what.row_size, 0u);
    expect_wrong_length({0, 0, full, {}});
    expect_wrong_length({0, 0, full, what.capacity + 1});
    const uint32_t next = what.fullest() + 1;
    expect_wrong_length({0, 0, page_claiming(0, next, next), {}});
    expect_wrong_length({0, 0, page(0, 1), 0xffffffff});
}

TEST_P(paged_listings, reject_counts_whose_bytes_wrap_around)
{
    if (what.cursor_width == 2) { /* such a count wraps in 16 bits only */
        const uint32_t count = 1 + 0x8000;
        ASSERT_EQ(count * what.row_size % 0x10000, what.row_size);
        expect_wrong_length({0, 0, page_claiming(3, count, 1), {}});
        expect_wrong_length({0, 0, page_claiming(3, 0xffff, 1), {}});
        return;
    }
    /* a count whose product with the row size is that of 1 in 32 bits */
    uint32_t power = 0;
    while ((what.row_size & (1u << power)) == 0)
        power++;
    ASSERT_GT(power, 0u);
    const uint32_t count = 1 + (1u << (32 - power));
    ASSERT_EQ(count * what.row_size, what.row_size);
    expect_wrong_length({0, 0, page_claiming(3, count, 1), {}});
    expect_wrong_length({0, 0, page_claiming(3, 0xffffffff, 1), {}});
    /* one whose product fills the buffer to its last byte in 32 bits, where there is one */
    uint32_t filling = what.capacity - what.header;
    if (filling % (1u << power) != 0)
        return;
    const uint32_t odd = what.row_size >> power;
    uint32_t inverse = odd;
    for (int i = 0; i < 5; i++)
        inverse *= 2 - odd * inverse;
    const uint32_t much = (filling >> power) * inverse & (0xffffffffu >> power);
    ASSERT_EQ(much * what.row_size, filling);
    bytes full = page_claiming(3, much, what.fullest());
    full.resize(what.capacity);
    expect_wrong_length({0, 0, full, {}});
}

TEST_P(paged_listings, keep_the_rows_before_a_failure)
{
    struct {
        answer with;
        std::string text;
    } const cases[] = {{{-3, 0, {}, {}}, what.not_sent},
                       {{0, -7, page(0, 1), {}}, what.refused},
                       {{0, 0, {1, 2, 3}, {}}, "Received buf len is wrong, len is 3\n"}};
    for (const auto &each : cases) {
        for (const print_callback print : {print_callback{collect_print}, print_callback{nullptr}}) {
            platform().reset();
            got = {.row_size = what.row_size};
            answer_with({page(5, 3)});
            platform().answers.push_back(each.with);
            EXPECT_EQ(run({nullptr, nullptr, print}), 3);
            EXPECT_EQ(got.rows.size(), 3u);
            EXPECT_EQ(printed, print != nullptr ? each.text : "");
        }
    }
}

TEST_P(paged_listings, fail_as_they_say)
{
    check_failures({what.name,
                    [this](print_callback print) {
                        return run({nullptr, nullptr, print});
                    },
                    what.refused, 0, "No enough memory\n", what.no_reply, what.not_sent});
    EXPECT_TRUE(got.rows.empty());
}

} // namespace mixtest

#endif
