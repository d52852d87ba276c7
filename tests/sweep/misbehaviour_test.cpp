/*
 * Daemons that misbehave, each against every client at each of its exchanges. What a daemon answers may be
 * believed or not: the call returns, frees what it took, reads nothing that was not received, formats no text
 * of the daemon's, and delivers no row that did not arrive whole.
 */
#include <climits>

#include "sweep/sweep.h"

using namespace mixtest;

namespace
{

/* --- what a client must make of it --- */

enum class verdict {
    some_end,   /* success or failure, whatever the rules above allow */
    bad_length, /* the failure of a reply of a wrong length */
    refusal
};

/* One exchange to spoil. */
struct place {
    const client &one;
    size_t at;

    [[nodiscard]] const exchange &what() const { return one.is.exchanges[at]; }
    [[nodiscard]] const page_format &page() const { return *one.is.page; }
    [[nodiscard]] answer good() const { return good_answer(one, at); }
    [[nodiscard]] answer saying(bytes reply) const { return {0, what().status, std::move(reply), {}}; }
    [[nodiscard]] answer filled_with(uint8_t value) const { return saying(repeat(value, what().capacity)); }
    [[nodiscard]] answer filled_with(const std::string &text) const
    {
        bytes reply;
        while (reply.size() < what().capacity)
            reply.insert(reply.end(), text.begin(), text.end());
        reply.resize(what().capacity);
        return saying(reply);
    }
};

struct misbehaviour {
    const char *name;
    verdict is;
    std::function<std::optional<answer>(const place &)> spoilt; /* nothing: does not apply here */
};

/* A page whose count is a lie. */
misbehaviour claims(const char *name, std::function<uint32_t(const page_format &, uint32_t rows)> count,
                    uint32_t rows = 2)
{
    return {name, verdict::bad_length, [=](const place &of) -> std::optional<answer> {
                if (!of.one.is.page)
                    return {};
                const uint32_t claimed = count(of.page(), rows);
                const size_t width = of.page().count.width;
                if (width < 4 && claimed >= 1u << (8 * width))
                    return {};
                return of.saying(of.page().page_claiming(7, claimed, rows));
            }};
}

/* A reply of those bytes, believed or not. */
misbehaviour says(const char *name, std::function<answer(const place &)> what, verdict is = verdict::some_end)
{
    return {name, is, [=](const place &of) -> std::optional<answer> { return what(of); }};
}

/* The same for listings only. */
misbehaviour pages(const char *name, std::function<answer(const place &)> what,
                   verdict is = verdict::bad_length)
{
    return {name, is, [=](const place &of) -> std::optional<answer> {
                return of.one.is.page ? std::optional(what(of)) : std::nullopt;
            }};
}

/* A number of two or four bytes at each place where one could stand. */
misbehaviour numbers(const char *name, uint32_t value, size_t width, size_t phase)
{
    return says(name, [=](const place &of) {
        bytes reply = of.what().reply;
        reply.resize(std::max<size_t>(reply.size(), 64));
        for (size_t i = phase; i + width <= reply.size(); i += 2 * width)
            put_at(reply, i, little_endian(value, width));
        return of.saying(reply);
    });
}

/* A count whose product with the row size is, in 32 bits, that of `rows`. */
uint32_t wrapping_count(const page_format &format, uint32_t rows)
{
    uint32_t power = 0;
    while ((format.row_size & (1u << power)) == 0)
        power++;
    return rows + (power != 0 ? 1u << (32 - power) : 0x80000000u);
}

const std::string nasty_text = "%s%n%d%5$s%*c 100% ";

std::vector<misbehaviour> misbehaviours()
{
    return {
        claims("a_count_that_wraps", wrapping_count),
        claims("the_largest_count_of_16_bits", [](const page_format &, uint32_t) { return 0xffffu; }),
        claims("the_largest_count", [](const page_format &, uint32_t) { return 0xffffffffu; }),
        claims("a_count_of_the_sign_bit", [](const page_format &, uint32_t) { return 0x80000000u; }),
        claims("a_row_more_than_there_is", [](const page_format &, uint32_t rows) { return rows + 1; }),
        {"a_row_fewer_than_there_is", verdict::some_end,
         [](const place &of) -> std::optional<answer> {
             if (!of.one.is.page)
                 return {};
             return of.saying(of.page().page_claiming(0, 1, 2));
         }},
        claims("more_rows_than_any_page_holds",
               [](const page_format &format, uint32_t) { return format.fullest() + 1; }),
        pages("a_page_that_overflows",
              [](const place &of) {
                  const uint32_t rows = of.page().fullest() + 1;
                  return of.saying(of.page().page(7, rows));
              }),
        pages("a_header_cut_short",
              [](const place &of) {
                  return of.saying(cut_or_filled(of.page().page(0, 0), of.page().header - 1));
              }),
        pages("half_a_row",
              [](const place &of) {
                  bytes page = of.page().page(0, 1);
                  page.resize(page.size() - of.page().row_size / 2);
                  return of.saying(page);
              }),
        pages("rows_without_a_header",
              [](const place &of) { return of.saying(repeat(0x41, of.page().row_size)); }),
        pages(
            "a_full_buffer_that_is_no_page",
            [](const place &of) {
                return of.saying(cut_or_filled(of.page().page(0, 1), of.page().capacity));
            },
            verdict::some_end),
        pages(
            "an_empty_last_page", [](const place &of) { return of.saying(of.page().page(0, 0)); },
            verdict::some_end),
        pages(
            "rows_of_percent_signs",
            [](const place &of) {
                answer with = of.good();
                for (size_t i = of.page().header; i < with.reply.size(); i++)
                    with.reply[i] = static_cast<uint8_t>(nasty_text[i % nasty_text.size()]);
                return with;
            },
            verdict::some_end),

        says("nothing", [](const place &of) { return of.saying({}); }),
        says("one_byte", [](const place &of) { return of.saying({1}); }),
        says("all_zero", [](const place &of) { return of.filled_with(0); }),
        says("all_ones", [](const place &of) { return of.filled_with(0xFF); }),
        says("text_without_an_end", [](const place &of) { return of.filled_with("A"); }),
        says("text_of_percent_signs", [](const place &of) { return of.filled_with(nasty_text); }),
        says("text_that_is_no_utf8", [](const place &of) { return of.filled_with("\xff\xfe\x80\xc0\xf5"); }),
        says("control_characters", [](const place &of) { return of.filled_with("\x1b[2J\r\n\a"); }),
        numbers("large_numbers_of_16_bits", 0xffff, 2, 0),
        numbers("large_numbers_between", 0xffff, 2, 2),
        numbers("large_numbers_of_32_bits", 0xffffffff, 4, 0),
        numbers("large_numbers_of_32_bits_between", 0xffffffff, 4, 4),
        numbers("the_smallest_numbers", 0x80000000, 4, 0),
        numbers("the_smallest_numbers_between", 0x80000000, 4, 4),
        numbers("the_largest_signed_numbers", 0x7fffffff, 4, 0),
        numbers("the_largest_signed_numbers_between", 0x7fffffff, 4, 4),
        says("a_claim_of_all_memory",
             [](const place &of) {
                 answer with = of.filled_with(0x41);
                 with.length = 0xffffffff;
                 return with;
             }),
        says("a_claim_of_the_sign_bit",
             [](const place &of) {
                 answer with = of.filled_with(0x41);
                 with.length = 0x80000000;
                 return with;
             }),
        says("a_good_reply_that_was_longer_than_its_buffer",
             [](const place &of) {
                 answer with = of.good();
                 with.reply.resize(of.what().capacity, 0x41);
                 with.length = of.what().capacity + 1000;
                 return with;
             }),
        says(
            "a_refusal_with_a_good_reply",
            [](const place &of) {
                answer with = of.good();
                with.status = -1;
                return with;
            },
            verdict::refusal),
        says(
            "a_refusal_of_percent_signs",
            [](const place &of) {
                answer with = of.filled_with(nasty_text);
                with.status = INT_MIN;
                return with;
            },
            verdict::refusal),
        says("the_largest_status_and_nothing",
             [](const place &) {
                 return answer{0, INT_MAX, {}, {}};
             }),
        says("a_page_of_another_family",
             [](const place &of) {
                 return of.saying(join({le32(0), le32(3), repeat(0x42, 3 * 56)}));
             }),
        says("a_gateways_answer",
             [](const place &of) {
                 return of.saying(join({le32(1), le32(15), bytes{'n', 'o'}}));
             }),
    };
}

/* The request itself comes back. */
misbehaviour echo()
{
    return {"an_echo", verdict::some_end, {}};
}

void PrintTo(const misbehaviour &one, std::ostream *out)
{
    *out << one.name;
}

struct misbehaving : platform_test, testing::WithParamInterface<misbehaviour> {
};

/* Daemons' texts are arguments, never formats: no conversion is carried out. */
void expect_harmless_texts(const outcome &got)
{
    for (const std::string &format : printed_formats)
        EXPECT_EQ(format.find("%n"), std::string::npos) << format;
    EXPECT_EQ(got.printed.find("(null)"), std::string::npos) << got.printed;
}

/* Rows are only those of pages that arrived whole. */
void expect_only_received_rows(const client &one, const outcome &got, uint64_t received)
{
    if (one.is.page && one.is.row_size != 0) {
        EXPECT_LE(got.row_count * uint64_t{one.is.row_size}, received);
    }
}

script spoiling(const client &one, size_t at, const misbehaviour &how, uint64_t &received)
{
    return {.answers = [&one, at, &how, &received](size_t message, const sent_message &sent) {
        answer with = good_answer(one, message);
        if (message == at && how.spoilt)
            with = *how.spoilt({one, at});
        else if (message == at)
            with.reply = cut_or_filled(sent.request, std::min<size_t>(sent.request.size(), sent.capacity));
        received += with.reply.size();
        return with;
    }};
}

void check(const client &one, size_t at, const misbehaviour &how)
{
    const exchange &with = one.is.exchanges[at];
    uint64_t received = 0;
    script spoilt = spoiling(one, at, how, received);
    if (how.spoilt) {
        const answer what = *how.spoilt({one, at});
        const auto length = what.length.value_or(static_cast<uint32_t>(what.reply.size()));
        spoilt.kept = std::min(length, with.capacity);
        if (!one.is.hands_over)
            spoilt.guarded_after = std::min(length, with.capacity);
    }
    const outcome guarded = run_with_and_without_print(one, spoilt);
    expect_harmless_texts(guarded);
    expect_only_received_rows(one, guarded, received);
    spoilt.guarded_after.reset();
    for (const uint8_t pattern : {0x00, 0xFF}) {
        spoilt.behind = pattern;
        EXPECT_EQ(difference(run(one, spoilt), guarded), "") << "bytes behind the reply show";
    }
    if (how.is == verdict::bad_length)
        expect_failure(one, guarded, at, with.fails.bad_length, true);
    if (how.is == verdict::refusal && one.is.refused_by != refuses::nothing)
        expect_failure(one, guarded, at, one.is.result_is_length ? guarded.result : with.fails.refused, true,
                       0, true);
}

TEST_P(misbehaving, daemons_harm_no_client)
{
    for (const client &one : clients_that(asks)) {
        for (size_t at = 0; at < one.is.exchanges.size(); at++) {
            SCOPED_TRACE(std::string(one.name) + ", exchange " + std::to_string(at));
            const bool answered = one.is.exchanges[at].capacity != 0;
            if (answered && (!GetParam().spoilt || GetParam().spoilt({one, at})))
                check(one, at, GetParam());
        }
    }
}

std::vector<misbehaviour> all_misbehaviours()
{
    std::vector<misbehaviour> out = misbehaviours();
    out.push_back(echo());
    return out;
}

INSTANTIATE_TEST_SUITE_P(daemons, misbehaving, testing::ValuesIn(all_misbehaviours()), case_name);

TEST(misbehaviours, are_many)
{
    EXPECT_GE(all_misbehaviours().size(), 30u);
}

/* --- listings that will not end --- */

struct endless {
    const char *name;
    bool has_rows;
    std::function<uint32_t(size_t page)> cursor;
};

void PrintTo(const endless &one, std::ostream *out)
{
    *out << one.name;
}

struct endless_listing : platform_test, testing::WithParamInterface<endless> {
};

constexpr size_t pages_before_the_end = 3000;

/* Followed: the client goes on by the cursor (or the flag) alone. */
bool follows(const client &one, uint32_t rows)
{
    return !one.is.single_page && (!one.is.full_pages || rows == one.is.page->fullest());
}

TEST_P(endless_listing, ends_when_the_daemon_ends_it)
{
    for (const client &one : clients_that(is_listing)) {
        SCOPED_TRACE(one.name);
        const page_format &format = *one.is.page;
        const uint32_t rows = !GetParam().has_rows ? 0 : one.is.full_pages ? format.fullest() : 1;
        const script with{.answers = [&](size_t at, const sent_message &) {
            const uint32_t next = at < pages_before_the_end ? GetParam().cursor(at) : 0;
            return answer{0, 0, format.page(next, rows), {}};
        }};
        const size_t pages = follows(one, rows) ? pages_before_the_end + 1 : 1;
        const outcome got = run(one, with);
        EXPECT_EQ(got.messages.size(), pages);
        EXPECT_EQ(got.result, one.is.of_rows != nullptr ? one.is.of_rows(pages * rows) : one.is.good);
        if (one.is.row_size != 0) {
            EXPECT_EQ(got.row_count, pages * rows);
        }
        size_t flagged = 0;
        for (const int first : got.first_flags)
            flagged += static_cast<size_t>(first);
        EXPECT_LE(flagged, pages);
    }
}

INSTANTIATE_TEST_SUITE_P(
    daemons, endless_listing,
    testing::Values(endless{"a_repeated_cursor", true, [](size_t) { return 9u; }},
                    endless{"cursors_that_go_backwards", true,
                            [](size_t page) { return static_cast<uint32_t>(60000 - page); }},
                    endless{"cursors_to_and_fro", true, [](size_t page) { return page % 2 == 0 ? 5u : 4u; }},
                    endless{"the_largest_cursor", true, [](size_t) { return 0xffffu; }},
                    endless{"empty_pages_with_a_cursor", false,
                            [](size_t page) { return static_cast<uint32_t>(page + 1); }}),
    case_name);

/* --- more rows than asked for --- */

TEST(budgeted_listings, end_with_the_page_that_gives_more_than_was_asked_for)
{
    for (const client &one : clients_that([](const client &each) { return each.is.budgeted; })) {
        const page_format &format = *one.is.page;
        for (const int32_t maximum : {1, 2, 1000000, -1, INT_MIN}) {
            SCOPED_TRACE(std::string(one.name) + ", at most " + std::to_string(maximum));
            const script with{.answers =
                                  [&](size_t at, const sent_message &) {
                                      return answer{0, 0, format.page(at < 5 ? 9 : 0, format.fullest()), {}};
                                  },
                              .maximum = maximum};
            const outcome got = run_with_and_without_print(one, with);
            const size_t pages = maximum == 1000000 ? 6 : 1;
            EXPECT_EQ(got.messages.size(), pages);
            EXPECT_EQ(got.row_count, pages * format.fullest());
            EXPECT_EQ(got.result, one.is.of_rows(got.row_count));
        }
    }
}

} // namespace
