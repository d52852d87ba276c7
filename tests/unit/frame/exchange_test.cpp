#include "frame/frame.h"

#include "support/scripted_platform.h"

using namespace mixtest;
using namespace mix::frame;

namespace
{

struct [[gnu::packed]] record {
    uint32_t code;
    uint32_t value;
};

constexpr exchange plain{
    .daemon = 17,
    .type = 24,
    .timeout_ms = 3000,
    .call = send_call::send_and_recv_timeout,
    .request_size = 8,
    .reply_capacity = 12,
    .say = usual_texts("query failed, ret is %d\n"),
};

void fill_record(record &request)
{
    request.code = 0x01020304;
    request.value = 5;
}

struct exchange_frame : platform_test {
    outcome run_it(const exchange &what, const target &where = local())
    {
        return run<record>(what, where, collect_print, fill_record);
    }
    template <class Deliver>
    outcome deliver_it(const exchange &what, Deliver &&deliver)
    {
        return run<record>(what, local(), collect_print, fill_record, deliver);
    }
};

TEST_F(exchange_frame, sends_as_described)
{
    platform().answers = {{0, 3, {}, {}}};
    const outcome result = run_it(plain);
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.status, 3);
    ASSERT_EQ(platform().messages.size(), 1u);
    const sent_message &sent = platform().messages[0];
    EXPECT_EQ(sent.by, sender::send_and_recv_timeout);
    EXPECT_EQ(sent.destination, 17u);
    EXPECT_EQ(sent.type, 24u);
    EXPECT_EQ(sent.timeout_ms, 3000u);
    EXPECT_EQ(sent.capacity, 12u);
    EXPECT_EQ(sent.request, (bytes{4, 3, 2, 1, 5, 0, 0, 0}));
}

TEST_F(exchange_frame, clears_the_request_before_it_is_filled)
{
    platform().answers = {{0, 0, {}, {}}};
    const outcome result = run<record>(plain, local(), nullptr, [](record &request) { request.value = 9; });
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(platform().messages.at(0).request, (bytes{0, 0, 0, 0, 9, 0, 0, 0}));
}

struct address_case {
    target where;
    uint32_t address;
};

TEST_F(exchange_frame, resolves_every_kind_of_target)
{
    const address_case cases[] = {
        {local(), 17},
        {at_node(0, 0), 17},
        {at_node(3, 0x0102), 0x03010211},
        {at_node(256, 0), 0xffffffff},
        {node_or_local(0, 9), 17},
        {node_or_local(4, 1), 0x04000111},
        {in_slot(4), 0x05000011},
        {at_address(0x12345678), 0x12345678},
    };
    for (const address_case &each : cases) {
        platform().answers = {{0, 0, {}, {}}};
        EXPECT_TRUE(run_it(plain, each.where).ok());
        EXPECT_EQ(platform().messages.back().destination, each.address);
    }
}

TEST_F(exchange_frame, allocates_the_larger_of_room_and_size_and_sends_the_size)
{
    exchange what = plain;
    what.request_room = 100;
    platform().answers = {{0, 0, {}, {}}};
    EXPECT_TRUE(run_it(what).ok());
    EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{100, 12}));
    EXPECT_EQ(platform().messages[0].request.size(), 8u);
}

TEST_F(exchange_frame, uses_one_buffer_when_the_reply_comes_back_into_the_request)
{
    exchange what = plain;
    what.reply_in_request = true;
    what.reply_capacity = 40;
    platform().answers = {{0, 0, bytes{7, 0, 0, 0}, {}}};
    uint32_t first = 0, beyond = 1;
    const outcome result = deliver_it(what, [&](reply_view &reply) {
        first = reply.u32(0);
        beyond = reply.u32(4); /* the request's own bytes must not be read as the reply's */
    });
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(first, 7u);
    EXPECT_EQ(beyond, 0u);
    EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{40}));
    EXPECT_TRUE(platform().messages[0].in_place);
    EXPECT_EQ(platform().messages[0].capacity, 40u);
}

TEST_F(exchange_frame, clears_the_reply_buffer_only_where_that_is_described)
{
    exchange what = plain;
    what.zero_reply = true;
    platform().answers = {{0, 0, {1}, 12}, {0, 0, {1}, 12}};
    uint8_t last = 99;
    const auto look = [&](reply_view &reply) { last = reply.bytes()[11]; };
    EXPECT_TRUE(deliver_it(what, look).ok());
    EXPECT_EQ(last, 0);
    EXPECT_TRUE(deliver_it(plain, look).ok());
    EXPECT_EQ(last, platform().pattern);
}

TEST_F(exchange_frame, hands_a_kept_reply_to_the_caller)
{
    platform().answers = {{0, 0, {1, 2, 3}, {}}};
    void *kept = nullptr;
    EXPECT_TRUE(deliver_it(plain, [&](reply_view &reply) { kept = reply.keep(); }).ok());
    EXPECT_EQ(platform().outstanding(), 1u);
    platform().free_as_caller(kept);
}

TEST_F(exchange_frame, hands_a_kept_request_buffer_to_the_caller)
{
    exchange what = plain;
    what.reply_in_request = true;
    platform().answers = {{0, 0, {1, 2, 3}, {}}};
    void *kept = nullptr;
    EXPECT_TRUE(deliver_it(what, [&](reply_view &reply) { kept = reply.keep(); }).ok());
    EXPECT_EQ(platform().outstanding(), 1u);
    platform().free_as_caller(kept);
}

TEST_F(exchange_frame, clears_what_a_kept_buffer_did_not_receive)
{
    for (const bool in_request : {false, true}) {
        exchange what = plain;
        what.reply_in_request = in_request;
        platform().behind_reply = 0xEE;
        platform().answers = {{0, 0, {1, 2, 3}, {}}};
        uint8_t *kept = nullptr;
        EXPECT_TRUE(
            deliver_it(what, [&](reply_view &reply) { kept = static_cast<uint8_t *>(reply.keep()); }).ok());
        EXPECT_EQ(bytes(kept, kept + what.reply_capacity), record_of(what.reply_capacity, {{0, {1, 2, 3}}}));
        platform().free_as_caller(kept);
    }
}

struct check_case {
    const char *name;
    refused_when refusal;
    length_rule length;
    uint32_t length_value;
    answer with;
    stage at;
    const char *text;
};

struct exchange_checks : exchange_frame, testing::WithParamInterface<check_case> {
};

TEST_P(exchange_checks, come_in_order)
{
    const check_case &each = GetParam();
    exchange what = plain;
    what.refusal = each.refusal;
    what.length = each.length;
    what.length_value = each.length_value;
    platform().fallback = each.with;
    bool delivered = false;
    const outcome result = deliver_it(what, [&](reply_view &) { delivered = true; });
    EXPECT_EQ(result.at, each.at);
    EXPECT_EQ(printed, each.text);
    EXPECT_EQ(delivered, each.at == stage::done);
    EXPECT_EQ(result.status_or(-77), each.at == stage::done ? each.with.status : -77);
}

constexpr auto negative = refused_when::status_negative;
constexpr auto not_zero = refused_when::status_not_zero;
constexpr auto never = refused_when::never;
constexpr auto any = length_rule::any;
constexpr auto exactly = length_rule::exactly;
constexpr auto at_least = length_rule::at_least;
constexpr auto reaches = length_rule::reaches;

INSTANTIATE_TEST_SUITE_P(
    rules, exchange_checks,
    testing::Values(
        check_case{"send_fails", negative, any, 0, {-1, -1, {}, {}}, stage::not_sent, "ipcmsg send failed\n"},
        check_case{"positive_send_result", negative, any, 0, {1, 0, {}, {}}, stage::done, ""},
        check_case{"negative_status",
                   negative,
                   exactly,
                   4,
                   {0, -1, {}, {}},
                   stage::refused,
                   "query failed, ret is -1\n"},
        check_case{"lowest_status",
                   negative,
                   any,
                   0,
                   {0, INT32_MIN, {}, {}},
                   stage::refused,
                   "query failed, ret is -2147483648\n"},
        check_case{"positive_status_passes", negative, any, 0, {0, 5, {}, {}}, stage::done, ""},
        check_case{"positive_status_refused",
                   not_zero,
                   any,
                   0,
                   {0, 5, {}, {}},
                   stage::refused,
                   "query failed, ret is 5\n"},
        check_case{"negative_status_refused",
                   not_zero,
                   any,
                   0,
                   {0, -5, {}, {}},
                   stage::refused,
                   "query failed, ret is -5\n"},
        check_case{"zero_status_passes", not_zero, any, 0, {0, 0, {}, {}}, stage::done, ""},
        check_case{"status_not_looked_at", never, any, 0, {0, -5, {}, {}}, stage::done, ""},
        check_case{"any_length_zero", negative, any, 0, {0, 0, {}, {}}, stage::done, ""},
        check_case{"any_length_huge", negative, any, 0, {0, 0, {}, 0xffffffff}, stage::done, ""},
        check_case{"exact_below",
                   negative,
                   exactly,
                   12,
                   {0, 0, repeat(1, 11), {}},
                   stage::bad_length,
                   "Received buf len is wrong, len is 11\n"},
        check_case{"exact", negative, exactly, 12, {0, 0, repeat(1, 12), {}}, stage::done, ""},
        check_case{"exact_above",
                   negative,
                   exactly,
                   12,
                   {0, 0, repeat(1, 13), {}},
                   stage::bad_length,
                   "Received buf len is wrong, len is 13\n"},
        check_case{"least_below",
                   negative,
                   at_least,
                   10,
                   {0, 0, repeat(1, 9), {}},
                   stage::bad_length,
                   "Received buf len is wrong, len is 9\n"},
        check_case{"least", negative, at_least, 10, {0, 0, repeat(1, 10), {}}, stage::done, ""},
        check_case{"least_at_capacity", negative, at_least, 10, {0, 0, repeat(1, 12), {}}, stage::done, ""},
        check_case{"least_above_capacity",
                   negative,
                   at_least,
                   10,
                   {0, 0, repeat(1, 13), {}},
                   stage::bad_length,
                   "Received buf len is wrong, len is 13\n"},
        check_case{"reaching_one_less",
                   negative,
                   reaches,
                   10,
                   {0, 0, repeat(1, 9), {}},
                   stage::bad_length,
                   "Received buf len is wrong, len is 9\n"},
        check_case{"reaching_exactly", negative, reaches, 10, {0, 0, repeat(1, 10), {}}, stage::done, ""},
        check_case{"reaching_beyond_the_capacity",
                   negative,
                   reaches,
                   10,
                   {0, 0, repeat(1, 13), {}},
                   stage::done,
                   ""}),
    [](const auto &one) { return one.param.name; });

TEST_F(exchange_frame, tells_missing_buffers_as_described)
{
    exchange what = plain;
    what.say.function = "some_function";
    what.say.no_request = function_no_enough_memory;
    what.say.no_reply = no_enough_memory;
    platform().fail_allocation(1);
    EXPECT_EQ(run_it(what).at, stage::no_request);
    EXPECT_EQ(printed, "some_function, No enough memory\n");
    EXPECT_EQ(platform().allocations, 1u) << "no reply buffer is asked for";

    printed.clear();
    platform().fail_allocation(3);
    EXPECT_EQ(run_it(what).at, stage::no_reply);
    EXPECT_EQ(printed, "No enough memory\n");
    EXPECT_TRUE(platform().messages.empty());
}

TEST_F(exchange_frame, a_missing_buffer_can_give_another_result_than_a_failed_exchange)
{
    platform().fallback = {-4, 0, {}, {}};
    EXPECT_EQ(run_it(plain).status_or(-1, 7), -1);
    platform().fail_allocation(3);
    EXPECT_EQ(run_it(plain).status_or(-1, 7), 7) << "no request buffer";
    platform().fail_allocation(5);
    EXPECT_EQ(run_it(plain).status_or(-1, 7), 7) << "no reply buffer";
}

TEST_F(exchange_frame, tells_the_send_result_where_a_text_shows_it)
{
    exchange what = plain;
    what.say.not_sent = {"ipcmsg send failed %d\n", shows::send_result};
    platform().fallback = {-4, 0, {}, {}};
    EXPECT_EQ(run_it(what).at, stage::not_sent);
    EXPECT_EQ(printed, "ipcmsg send failed -4\n");
}

TEST_F(exchange_frame, tells_several_numbers_where_a_text_shows_them)
{
    exchange what = plain;
    what.say.function = "some_function";
    what.length = exactly;
    what.length_value = 4;
    what.say.not_sent = {"%s: sent %d status %d\n", shows::function_sent_status};
    what.say.refused = {"sent %d status %d length %d\n", shows::sent_status_length};
    what.say.bad_length = {"%s: sent %d status %d length %d\n", shows::function_sent_status_length};
    platform().answers = {{-4, 0, {}, {}}, {1, -7, {1, 2}, {}}, {2, 5, {1, 2, 3}, {}}};
    EXPECT_EQ(run_it(what).at, stage::not_sent);
    EXPECT_EQ(run_it(what).at, stage::refused);
    EXPECT_EQ(run_it(what).at, stage::bad_length);
    EXPECT_EQ(printed, "some_function: sent -4 status 0\n"
                       "sent 1 status -7 length 2\n"
                       "some_function: sent 2 status 5 length 3\n");
}

TEST_F(exchange_frame, shows_the_reply_of_a_refusal_to_who_wants_it)
{
    bytes seen;
    const auto look = [&](reply_view &reply) {
        seen.assign(reply.bytes(), reply.bytes() + reply.received());
    };
    const auto ask = [&] {
        return run<record>(
            plain, local(), nullptr, fill_record, [](reply_view &) { FAIL() << "delivered"; }, look);
    };
    platform().answers = {{0, -1, {1, 2, 3}, {}}, {0, -1, repeat(7, 20), {}}, {-1, 0, {}, {}}};
    EXPECT_EQ(ask().at, stage::refused);
    EXPECT_EQ(seen, (bytes{1, 2, 3}));
    EXPECT_EQ(ask().at, stage::refused);
    EXPECT_EQ(seen, repeat(7, 12)) << "never more than the capacity";
    seen.clear();
    EXPECT_EQ(ask().at, stage::not_sent);
    EXPECT_TRUE(seen.empty());
}

TEST_F(exchange_frame, is_silent_without_texts)
{
    exchange what = plain;
    what.say = {};
    what.length = exactly;
    what.length_value = 4;
    for (const answer &with : {answer{-1, 0, {}, {}}, answer{0, -1, {}, {}}, answer{0, 0, {1}, {}}}) {
        platform().fallback = with;
        EXPECT_FALSE(run_it(what).ok());
    }
    platform().fail_allocation(platform().allocations + 1, true);
    EXPECT_FALSE(run_it(what).ok());
    EXPECT_TRUE(printed_formats.empty());
}

TEST_F(exchange_frame, reports_the_capacity_as_length_until_something_was_received)
{
    platform().fallback = {-1, 0, {}, {}};
    EXPECT_EQ(run_it(plain).length, 12u);
    platform().fail_allocation(platform().allocations + 2);
    EXPECT_EQ(run_it(plain).length, 12u);
}

TEST(reply, fields_that_were_not_reached_are_zero)
{
    uint8_t buffer[] = {1, 2, 3, 4, 5, 6, 7, 8};
    const reply_view reply(buffer, 6);
    EXPECT_EQ(reply.u32(0), 0x04030201u);
    EXPECT_EQ(reply.u32(2), 0x06050403u);
    EXPECT_EQ(reply.u32(3), 0u);
    EXPECT_EQ(reply.u16(4), 0x0605u);
    EXPECT_EQ(reply.u16(5), 0u);
    EXPECT_EQ(reply.number({}), 0u);

    uint8_t out[4] = {9, 9, 9, 9};
    reply.copy(out, 4, 4);
    EXPECT_EQ((bytes{out, out + 4}), (bytes{5, 6, 0, 0}));
    reply.copy(out, 6, 4);
    EXPECT_EQ((bytes{out, out + 4}), (bytes{0, 0, 0, 0}));
    reply.copy(out, 0xffffffff, 2);
    EXPECT_EQ((bytes{out, out + 2}), (bytes{0, 0}));
    reply.copy(out, 1, 3);
    EXPECT_EQ((bytes{out, out + 4}), (bytes{2, 3, 4, 0}));
}

struct reply_text : testing::Test {
    uint8_t buffer[8] = {'a', 'b', 'c', 'd', 0, 'e', 'f', 'g'};
    char out[8] = "#######";

    std::string text(uint32_t received, uint32_t room, uint32_t offset, uint32_t size = UINT32_MAX)
    {
        std::memset(out, '#', sizeof out);
        reply_view(buffer, received).text(out, room, offset, size);
        return {out, sizeof out};
    }
};

TEST_F(reply_text, ends_at_its_terminator_its_field_or_the_reply)
{
    EXPECT_EQ(text(8, 8, 0), std::string("abcd\0###", 8));
    EXPECT_EQ(text(8, 8, 0, 3), std::string("abc\0####", 8));
    EXPECT_EQ(text(2, 8, 0), std::string("ab\0#####", 8));
    EXPECT_EQ(text(8, 8, 5), std::string("efg\0####", 8));
    EXPECT_EQ(text(8, 8, 8), std::string("\0#######", 8));
    EXPECT_EQ(text(8, 8, 0xffffffff), std::string("\0#######", 8));
}

TEST_F(reply_text, is_cut_to_the_room_and_terminated)
{
    EXPECT_EQ(text(8, 5, 0), std::string("abcd\0###", 8));
    EXPECT_EQ(text(8, 4, 0), std::string("abc\0####", 8));
    EXPECT_EQ(text(8, 1, 0), std::string("\0#######", 8));
    EXPECT_EQ(text(8, 0, 0), "########");
}

constexpr notice plain_notice{
    .daemon = 97,
    .type = 647,
    .request_size = 8,
    .say = {.no_request = no_enough_memory, .not_sent = send_failed},
};

TEST_F(exchange_frame, notice_is_sent_without_a_reply_buffer)
{
    platform().fallback = {0, 0, {}, {}};
    EXPECT_TRUE(notify<record>(plain_notice, in_slot(1), collect_print, fill_record).ok());
    ASSERT_EQ(platform().messages.size(), 1u);
    const sent_message &sent = platform().messages[0];
    EXPECT_EQ(sent.by, sender::send);
    EXPECT_EQ(sent.destination, 0x02000061u);
    EXPECT_EQ(sent.type, 647u);
    EXPECT_EQ(sent.request, (bytes{4, 3, 2, 1, 5, 0, 0, 0}));
    EXPECT_EQ(platform().allocations, 1u);
}

TEST_F(exchange_frame, notice_can_have_a_timeout)
{
    notice what = plain_notice;
    what.timed = true;
    what.timeout_ms = 500;
    platform().fallback = {0, 0, {}, {}};
    EXPECT_TRUE(notify<record>(what, local(), collect_print, fill_record).ok());
    EXPECT_EQ(platform().messages.at(0).by, sender::send_timeout);
    EXPECT_EQ(platform().messages.at(0).timeout_ms, 500u);
}

TEST_F(exchange_frame, notice_tells_its_failures)
{
    platform().fallback = {-1, 0, {}, {}};
    EXPECT_EQ(notify<record>(plain_notice, local(), collect_print, fill_record).at, stage::not_sent);
    EXPECT_EQ(printed, "ipcmsg send failed\n");
    printed.clear();
    platform().fail_allocation(2);
    EXPECT_EQ(notify<record>(plain_notice, local(), collect_print, fill_record).at, stage::no_request);
    EXPECT_EQ(printed, "No enough memory\n");
    EXPECT_EQ(notify<record>(plain_notice, local(), nullptr, fill_record).at, stage::not_sent);
}

} // namespace
