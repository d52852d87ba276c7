/*
 * Every client with replies of every length. What a reply does not reach is never read: the memory behind it
 * is inaccessible, or filled with patterns that must not show anywhere.
 */
#include <cstdlib>

#include "sweep/sweep.h"

using namespace mixtest;

namespace
{

using clients_at_lengths = client_sweep;

/* Every length, or those around the borders and a spread of the others where the reply buffer is large. */
std::vector<uint32_t> lengths_of(const exchange &of, bool every)
{
    const auto size = static_cast<uint32_t>(of.reply.size());
    std::vector<uint32_t> out;
    for (uint32_t length = 0; length <= of.capacity + 1; length++) {
        const auto near = [=](uint32_t border) { return length + 2 >= border && length <= border + 2; };
        if (every || length < 160 || length % 487 == 0 || near(of.length) || near(size) || near(of.capacity))
            out.push_back(length);
    }
    return out;
}

/* Runs with the memory behind the reply closed, then filled with each of two patterns. */
outcome run_at_length(const client &one, size_t at, const answer &with, uint32_t received)
{
    script how = answering(one, at, with);
    how.kept = received;
    if (!one.is.hands_over)
        how.guarded_after = received;
    const outcome guarded = run_with_and_without_print(one, how);
    how.guarded_after.reset();
    for (const uint8_t pattern : {0x00, 0xFF, 0x25}) {
        how.behind = pattern;
        const std::string differs = difference(run(one, how), guarded);
        EXPECT_EQ(differs, "") << "bytes behind the reply show, pattern " << int{pattern};
    }
    return guarded;
}

/* What a reply of all its bytes gives, those from `received` on being zero. */
outcome run_zero_extended(const client &one, size_t at, const answer &with, uint32_t received)
{
    answer whole{0, with.status, cut_or_filled(with.reply, received), {}};
    whole.reply.resize(one.is.exchanges[at].capacity);
    return run(one, answering(one, at, whole));
}

/* As if what is missing were zero: a number that did not arrive whole is missing whole. */
void expect_zeros_for_what_is_missing(const client &one, size_t at, const answer &with, uint32_t received,
                                      const outcome &got)
{
    constexpr uint32_t widest_number = 4;
    std::string differs;
    for (uint32_t missing = 0; missing < widest_number && missing <= received; missing++) {
        outcome expected = run_zero_extended(one, at, with, received - missing);
        if (got.told_length) {
            EXPECT_EQ(*got.told_length, received);
            expected.told_length = got.told_length;
            expected.handed = cut_or_filled(with.reply, received);
        }
        differs = difference(got, expected);
        if (differs.empty())
            return;
    }
    ADD_FAILURE() << differs << " other than with zeros in the place of what is missing";
}

void check_length(const client &one, size_t at, uint32_t length)
{
    const exchange &with = one.is.exchanges[at];
    const uint32_t received = std::min(length, with.capacity);
    answer reply = good_answer(one, at);
    reply.reply = cut_or_filled(reply.reply, received);
    reply.length = length;
    const outcome got = run_at_length(one, at, reply, received);
    if (!with.takes(length))
        expect_failure(one, got, at, with.fails.bad_length, true, 0);
    else if (one.is.result_is_length)
        EXPECT_EQ(got.result, length);
    else if (with.lengths == accepts::exactly || one.is.page)
        EXPECT_EQ(difference(got, run(one, {})), "");
    else
        expect_zeros_for_what_is_missing(one, at, reply, received, got);
}

void check_lengths(const client &one, bool every)
{
    for (size_t i = 0; i < one.is.exchanges.size(); i++) {
        for (const uint32_t length : lengths_of(one.is.exchanges[i], every)) {
            SCOPED_TRACE("exchange " + std::to_string(i) + ", " + std::to_string(length) + " bytes");
            check_length(one, i, length);
            if (testing::Test::HasFailure())
                return;
        }
    }
}

/* MIX_SWEEP_EVERY_LENGTH in the environment: the slow form. */
TEST_P(clients_at_lengths, never_read_behind_the_reply_and_take_what_is_missing_for_zero)
{
    check_lengths(one, std::getenv("MIX_SWEEP_EVERY_LENGTH") != nullptr);
}

TEST_P(clients_at_lengths, tell_no_more_of_a_refusal_than_was_received)
{
    for (size_t i = 0; i < exchanges.size(); i++) {
        for (const uint32_t length : lengths_of(exchanges[i], false)) {
            SCOPED_TRACE("exchange " + std::to_string(i) + ", " + std::to_string(length) + " bytes");
            const uint32_t received = std::min(length, exchanges[i].capacity);
            const answer refusal{0, -7, repeat('%', received), length};
            const outcome got = run_at_length(one, i, refusal, received);
            if (one.is.refused_by == refuses::nothing)
                continue;
            const int64_t failure = one.is.result_is_length ? length : exchanges[i].fails.refused;
            expect_failure(one, got, i, failure, true, 0, true);
            if (HasFailure())
                return;
        }
    }
}

struct listings_at_lengths : client_sweep {
};

/* Every fullness of a page, and each with a byte too few and too many. */
TEST_P(listings_at_lengths, take_pages_of_any_number_of_rows_and_of_whole_rows_only)
{
    const page_format &format = *one.is.page;
    const bool holds = exchanges[0].lengths == accepts::at_least;
    for (uint32_t rows = 0; rows <= format.fullest(); rows++) {
        for (const int more : {-1, 0, 1}) {
            SCOPED_TRACE(std::to_string(rows) + " rows and " + std::to_string(more) + " bytes");
            bytes page = format.page(0, rows);
            const auto length = static_cast<uint32_t>(page.size()) + static_cast<uint32_t>(more);
            const answer with{0, 0, cut_or_filled(page, std::min(length, format.capacity)), length};
            const outcome got = run_at_length(one, 0, with, std::min(length, format.capacity));
            const bool good = more == 0 || (more > 0 && holds && length <= format.capacity);
            if (!good) {
                expect_failure(one, got, 0, exchanges[0].fails.bad_length, true);
                continue;
            }
            EXPECT_EQ(got.result, one.is.of_rows != nullptr ? one.is.of_rows(rows) : one.is.good);
            EXPECT_EQ(got.messages.size(), 1u);
            if (one.is.row_size != 0) {
                EXPECT_EQ(got.row_count, rows);
                EXPECT_EQ(got.rows, bytes(page.begin() + static_cast<ptrdiff_t>(format.header), page.end()));
            }
        }
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(clients, clients_at_lengths, testing::ValuesIn(clients_that(asks)), case_name);
INSTANTIATE_TEST_SUITE_P(clients, listings_at_lengths, testing::ValuesIn(clients_that(is_listing)),
                         case_name);

/* --- what the gateway reads back --- */

using clients_that_read_settings = client_sweep;

constexpr size_t batch_header = 46;

TEST_P(clients_that_read_settings, deliver_the_rows_that_arrived_whole)
{
    for (size_t length = 0; length <= one.is.batch.size(); length++) {
        const size_t arrived = length < batch_header ? 0 : (length - batch_header) / one.is.row_size;
        for (const int error : {0, -1}) {
            SCOPED_TRACE(std::to_string(length) + " bytes, error " + std::to_string(error));
            const outcome got = run_with_and_without_print(one, {.exchange_text = "%s of the gateway",
                                                                 .batch = cut_or_filled(one.is.batch, length),
                                                                 .batch_error = error});
            EXPECT_EQ(got.row_count, arrived);
            EXPECT_EQ(got.printed, error != 0 ? "%s of the gateway" : "");
        }
    }
}

TEST_P(clients_that_read_settings, believe_no_count_beyond_what_arrived)
{
    for (const uint32_t count : {0u, 1u, 2u, 3u, 4u, 0x7fffu, 0x8000u, 0xffffu}) {
        bytes batch = one.is.batch;
        put_at(batch, 44, le16(count));
        const outcome got = run_with_and_without_print(one, {.batch = batch});
        EXPECT_EQ(got.row_count, std::min(count, 3u)) << "of " << count << " claimed";
        EXPECT_EQ(got.result, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(clients, clients_that_read_settings, testing::ValuesIn(clients_that(reads_settings)),
                         case_name);

} // namespace
