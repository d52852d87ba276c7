/* Every client without memory, without a daemon, with refusals; and as it should be. */
#include <climits>

#include "sweep/sweep.h"

using namespace mixtest;

namespace
{

using every_client = client_sweep;
struct every_change : client_sweep {
};

TEST_P(every_client, succeeds_as_the_table_says)
{
    const outcome got = run_with_and_without_print(one, {});
    EXPECT_EQ(got.result, one.is.good);
    EXPECT_EQ(got.printed + got.told, "");
    ASSERT_EQ(got.messages.size(), exchanges.size());
    for (size_t i = 0; i < exchanges.size(); i++) {
        EXPECT_EQ(got.messages[i].capacity, exchanges[i].capacity) << "of exchange " << i;
        EXPECT_EQ(got.messages[i].zero, 0u);
    }
    EXPECT_EQ(got.messages.empty(), exchanges.empty());
    if (exchanges.empty() && !one.is.waits && one.is.batch.empty()) {
        EXPECT_NE(got.commits, 0u) << "nothing was asked of anybody";
    }
    size_t rows = 0;
    for (const exchange &each : exchanges)
        if (one.is.page)
            rows += (each.reply.size() - one.is.page->header) / one.is.page->row_size;
    if (one.is.page && one.is.row_size != 0) {
        EXPECT_EQ(got.row_count, rows);
    }
}

TEST_P(every_client, fails_as_documented_when_any_one_buffer_can_not_be_had)
{
    const outcome good = run(one, {});
    const std::vector<size_t> before = good.allocated_after;
    for (uint32_t n = 1; n <= before.size(); n++) {
        const size_t at = before[n - 1];
        ASSERT_LT(at, exchanges.size());
        const bool request = n == 1 || before[n - 2] != at;
        const failures &fails = exchanges[at].fails;
        for (const bool all_later : {false, true}) {
            SCOPED_TRACE("buffer " + std::to_string(n) + (all_later ? " and all later ones" : ""));
            const outcome got =
                run_with_and_without_print(one, {.failing_allocation = n, .all_later = all_later});
            if (exchanges[at].tolerated && all_later) {
                EXPECT_TRUE(got.result == one.is.good || got.result == exchanges.back().fails.no_request);
                continue;
            }
            expect_failure(one, got, at, request ? fails.no_request : fails.no_reply, false);
        }
    }
}

TEST_P(every_client, lives_without_the_general_heap)
{
    const outcome good = run(one, {});
    for (uint32_t n = 1; n <= good.heap_requests; n++) {
        const outcome got = run_with_and_without_print(one, {.failing_heap = n});
        EXPECT_EQ(got.result, one.is.good);
        EXPECT_EQ(got.commits, 0u) << "no record, no exchange";
    }
}

TEST_P(every_client, fails_as_documented_when_any_one_message_can_not_be_sent)
{
    for (size_t i = 0; i < exchanges.size(); i++) {
        for (const int32_t sent : {-1, -2, -3, -128, -32768, INT32_MIN + 1, INT32_MIN}) {
            for (const bool wrote_all_the_same : {false, true}) {
                SCOPED_TRACE("message " + std::to_string(i) + ", " + std::to_string(sent));
                answer with = good_answer(one, i);
                with.sent = sent;
                with.wrote_all_the_same = wrote_all_the_same;
                const outcome got = run_with_and_without_print(one, answering(one, i, with));
                expect_failure(one, got, i, exchanges[i].fails.not_sent, true, sent);
            }
        }
    }
}

TEST_P(every_client, takes_any_send_result_that_is_not_negative_for_success)
{
    const outcome good = run(one, {});
    for (size_t i = 0; i < exchanges.size(); i++) {
        for (const int32_t sent : {1, INT32_MAX}) {
            answer with = good_answer(one, i);
            with.sent = sent;
            outcome got = run_with_and_without_print(one, answering(one, i, with));
            if (exchanges[i].fails.not_sent == result_of_send && got.result == sent)
                got.result = good.result;
            EXPECT_EQ(difference(got, good), "") << "send result " << sent;
        }
    }
}

bool is_refusal(refuses rule, int32_t status)
{
    return rule == refuses::not_zero ? status != 0 : rule == refuses::negative && status < 0;
}

TEST_P(every_client, tells_refusals_from_answers_by_the_status)
{
    for (size_t i = 0; i < exchanges.size(); i++) {
        if (exchanges[i].capacity == 0)
            continue;
        for (const int32_t status :
             {INT32_MIN, INT32_MIN + 1, -65536, -32769, -256, -129,  -128,  -4,       -3, -2, -1, 0, 1,
              2,         127,           128,    255,    256,  32768, 65536, INT32_MAX}) {
            SCOPED_TRACE("exchange " + std::to_string(i) + ", status " + std::to_string(status));
            answer with = good_answer(one, i);
            with.status = status;
            const outcome got = run_with_and_without_print(one, answering(one, i, with));
            if (is_refusal(one.is.refused_by, status))
                expect_failure(one, got, i, exchanges[i].fails.refused, true, 0, true);
            else
                EXPECT_EQ(got.result, one.is.of_status != nullptr ? one.is.of_status(status) : one.is.good);
        }
    }
}

TEST_P(every_change, that_is_refused_is_told)
{
    const outcome good = run(one, {});
    const std::string longest(300, 'x');
    for (size_t i = 0; i < good.commits; i++) {
        for (const int result : {INT_MIN, -2, -1, 1, 2, INT_MAX}) {
            for (const char *text : {"refused", "", "100%s%n%d %5$x", longest.c_str()}) {
                SCOPED_TRACE("change " + std::to_string(i) + ", " + std::to_string(result) + ", " + text);
                script with{.refusal_text = text, .exchange_text = text};
                with.commit_results.assign(good.commits, 0);
                with.commit_results[i] = result;
                const outcome got = run_with_and_without_print(one, with);
                const bool last = i + 1 == good.commits;
                EXPECT_EQ(got.result, last && !one.is.ignores_commits ? result : one.is.good);
                const std::string all = got.printed + got.told;
                EXPECT_TRUE(all.empty() || all.find(text) != std::string::npos) << all;
                EXPECT_EQ(got.messages.size(), exchanges.size());
                EXPECT_EQ(got.output, good.output);
            }
        }
    }
}

TEST_P(every_change, may_be_refused_without_a_text)
{
    const outcome good = run(one, {});
    for (size_t i = 0; i < good.commits; i++) {
        script with{.refusal_text = nullptr, .exchange_text = nullptr};
        with.commit_results.assign(good.commits, 0);
        with.commit_results[i] = -5;
        const outcome got = run_with_and_without_print(one, with);
        EXPECT_EQ(got.printed, "");
        EXPECT_EQ(got.result, i + 1 == good.commits && !one.is.ignores_commits ? -5 : one.is.good);
    }
}

INSTANTIATE_TEST_SUITE_P(clients, every_client, testing::ValuesIn(clients()), case_name);
INSTANTIATE_TEST_SUITE_P(clients, every_change, testing::ValuesIn(clients_that(changes_at_once)), case_name);

TEST(general_heap, is_asked_by_some_client)
{
    uint32_t requests = 0;
    for (const client &one : clients())
        requests += run(one, {}).heap_requests;
    if (!library_heap_is_watched())
        GTEST_SKIP() << "the heap belongs to a sanitizer or to valgrind";
    EXPECT_GT(requests, 0u);
}

} // namespace
