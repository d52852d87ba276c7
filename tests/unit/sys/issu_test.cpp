#include <libmix/issu.h>

#include <cstdlib>

#include "support/end_process.h"
#include "support/general_heap.h"
#include "unit/sys/sys_cases.h"

using namespace mixtest;

namespace
{

constexpr auto with_reply = sender::send_and_recv;
constexpr auto one_way = sender::send_timeout;

expected_message asks(bytes request, uint32_t destination = 17)
{
    return {with_reply, destination, 248, 500, std::move(request), 16000};
}

expected_message tells(uint32_t destination, uint32_t timeout_ms, bytes request)
{
    return {one_way, destination, 248, timeout_ms, std::move(request)};
}

bytes code(uint32_t value)
{
    return le32(value);
}

sys_case issu(const char *name, std::function<int64_t()> call, expected_message sent)
{
    return {.name = name,
            .call = std::move(call),
            .sent = std::move(sent),
            .told_no_request = "No enough memory",
            .told_no_reply = "No enough memory",
            .told_not_sent = "Failed to send IPC message",
            .told_refused = "Handle error"};
}

sys_case silent_about_memory(sys_case with)
{
    with.told_no_request = "";
    return with;
}

int ignore_entry(const void *, int)
{
    ADD_FAILURE() << "an entry was delivered";
    return 0;
}

const std::string long_name(200, 'n');

const sys_case queries[] = {
    issu(
        "show_sum", [] { return issu_show_sum(0x01020304, output.bytes); }, asks({0, 0, 0, 0, 4, 3, 2, 1})),
    issu(
        "start", [] { return issu_start(7, "image.bin", "second"); },
        asks(record_of(168, {{0, code(1)},
                               {4, le32(7)},
                               {8, text_field("image.bin", 10)},
                               {136, text_field("second", 7)}}))),
    issu(
        "start_cuts_names", [] { return issu_start(0, long_name.c_str(), long_name.c_str()); },
        asks(record_of(168, {{0, code(1)}, {8, repeat('n', 127)}, {136, repeat('n', 31)}}))),
    issu(
        "show_cpu_status", [] { return issu_show_cpu_status(3, ignore_entry); },
        asks(record_of(12, {{0, code(9)}, {4, le32(3)}}))),
    issu(
        "check", [] { return issu_check(5, output.as<uint32_t>(), output.as<char>() + 4, 500); },
        asks(record_of(8, {{0, code(10)}, {4, le32(5)}}))),
    issu(
        "sm_shut", [] { return issu_sm_shut(6, output.as<uint32_t>(), 0x1122, 0x3344, "module", "other"); },
        asks(record_of(172, {{0, code(12)},
                               {4, le32(6)},
                               {8, text_field("module", 7)},
                               {136, text_field("other", 6)},
                               {168, {0x22, 0x11}},
                               {170, {0x44, 0x33}}}))),
    issu(
        "sm_shut_cuts_names",
        [] { return issu_sm_shut(0, output.as<uint32_t>(), 0, 0, long_name.c_str(), long_name.c_str()); },
        asks(record_of(172, {{0, code(12)}, {8, repeat('n', 127)}, {136, repeat('n', 31)}}))),
    issu(
        "ver_get", [] { return issu_ver_get(2, 0x0304, output.as<char>(), 128); },
        asks(record_of(8, {{0, code(14)}}), 0x03030411)),
    issu(
        "ver_get_of_slot_255", [] { return issu_ver_get(255, 0, output.as<char>(), 128); },
        asks(record_of(8, {{0, code(14)}}), 0xffffffff)),
    issu(
        "ver_get_of_slot_65535", [] { return issu_ver_get(0xffff, 1, output.as<char>(), 128); },
        asks(record_of(8, {{0, code(14)}}), 0xffffffff)),
    issu(
        "buf_image_ver_get", [] { return issu_buf_image_ver_get(output.as<char>(), 128); },
        asks(record_of(8, {{0, code(15)}}))),
    issu(
        "show_gshut", [] { return issu_show_gshut(9, output.bytes); },
        asks(record_of(8, {{0, code(16)}, {4, le32(9)}}))),
    issu(
        "buf_image_load", [] { return issu_buf_image_load("/flash/a.img"); },
        asks(record_of(136, {{0, code(17)}, {8, text_field("/flash/a.img", 13)}}))),
    issu(
        "buf_image_load_cuts_the_path", [] { return issu_buf_image_load(long_name.c_str()); },
        asks(record_of(136, {{0, code(17)}, {8, repeat('n', 127)}}))),
    issu(
        "image_clist_get",
        [] {
            uint32_t length = 100;
            const int result = issu_image_clist_get(4, "image.bin", 0xfe, output.as<char>(), &length);
            EXPECT_EQ(length, result == 0 ? length : 100u);
            return result;
        },
        asks(record_of(
            140, {{0, code(18)}, {4, le32(4)}, {8, {0xfe, 0, 0, 0}}, {12, text_field("image.bin", 10)}}))),
    issu(
        "image_clist_get_cuts_the_name",
        [] {
            uint32_t length = 100;
            return issu_image_clist_get(0, long_name.c_str(), 0, output.as<char>(), &length);
        },
        asks(record_of(140, {{0, code(18)}, {12, repeat('n', 127)}}))),
};

const sys_case notices[] = {
    issu(
        "send_nat_transfer", [] { return issu_send_nat_transfer(0x0102, 0x0304, 0x0506, 0x0708); },
        tells(0, 500, {4, 0, 0, 0, 0, 0, 0, 0, 2, 1, 4, 3, 6, 5, 8, 7})),
    issu(
        "report_nat_transfer", [] { return issu_report_nat_transfer(0x01020304); },
        tells(17, 0, {6, 0, 0, 0, 0, 0, 0, 0, 4, 3, 2, 1})),
    issu(
        "send_sess_transfer", [] { return issu_send_sess_transfer(2, 0x0304, 0x0506, 0x0708); },
        tells(0x03030400, 500, {7, 0, 0, 0, 0, 0, 0, 0, 2, 0, 4, 3, 6, 5, 8, 7})),
    issu(
        "report_sess_transfer", [] { return issu_report_sess_transfer(2, 3, 0x01020304); },
        tells(0x03000311, 0, {8, 0, 0, 0, 0, 0, 0, 0, 4, 3, 2, 1})),
    issu(
        "send_nat_merge", [] { return issu_send_nat_merge(0, 5); },
        tells(0x01000500, 500, {11, 0, 0, 0, 0, 0, 0, 0})),
    issu(
        "send_nat_merge_to_slot_65535", [] { return issu_send_nat_merge(0xffff, 0); },
        tells(0xffffffff, 500, {11, 0, 0, 0, 0, 0, 0, 0})),
    silent_about_memory(issu(
        "lock_cfg", [] { return issu_lock_cfg(0x01020304); },
        tells(2, 500, {13, 0, 0, 0, 0, 0, 0, 0, 4, 3, 2, 1}))),
    issu(
        "report_ssmha_warm_sync", [] { return issu_report_ssmha_warm_sync(0x0102); },
        tells(17, 0, {19, 0, 0, 0, 0, 0, 0, 0, 2, 1})),
    issu(
        "send_ssmha_warm_sync_poll", [] { return issu_send_ssmha_warm_sync_poll(0x0102); },
        tells(0, 500, {20, 0, 0, 0, 0, 0, 0, 0, 2, 1})),
    issu(
        "send_dmcu_switch", [] { return issu_send_dmcu_switch(7, 1); },
        tells(0x08000100, 500, {21, 0, 0, 0, 0, 0, 0, 0})),
};

using issu_exchanges = sys_exchanges;
using issu_notices = sys_exchanges;

TEST_P(issu_exchanges, send_their_request)
{
    sys_case with = GetParam();
    check_message(with);
}

TEST_P(issu_exchanges, fail_with_a_text_in_the_store_and_print_nothing)
{
    check_failures(GetParam());
    EXPECT_EQ(platform().console, "");
}

TEST_P(issu_exchanges, are_refused_by_a_positive_status_too)
{
    prepare(GetParam());
    platform().fallback = {0, 1, repeat(0, 1000), {}};
    EXPECT_EQ(GetParam().call(), -1);
    EXPECT_EQ(told(), "Handle error");
    EXPECT_TRUE(output.untouched());
}

INSTANTIATE_TEST_SUITE_P(queries, issu_exchanges, testing::ValuesIn(queries), sys_case_name);

struct issu_messages : platform_test, testing::WithParamInterface<sys_case> {
};

TEST_P(issu_messages, are_sent)
{
    check_message(GetParam());
    EXPECT_EQ(told(), "");
}

TEST_P(issu_messages, return_0_when_sent)
{
    prepare(GetParam());
    platform().fallback = {1, 0, {}, {}};
    EXPECT_EQ(GetParam().call(), 0);
    EXPECT_EQ(told(), "");
}

TEST_P(issu_messages, fail_with_a_text_in_the_store)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(notices, issu_messages, testing::ValuesIn(notices), sys_case_name);

/* --- the error text --- */

/* The store lives as long as the process, so what comes before its first text needs one of its own. */
struct issu_error_text_death : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

TEST_F(issu_error_text_death, is_null_in_letters_until_there_was_an_error)
{
    EXPECT_EXIT(end_process(std::strcmp(issu_err_str_get(), "null") == 0 ? 0 : 1), testing::ExitedWithCode(0),
                "");
}

#ifdef MIX_HEAP_IS_OURS
TEST_F(issu_error_text_death, stays_null_in_letters_while_its_memory_cannot_be_had)
{
    const auto try_twice = [] {
        heap.failing_size = 256;
        set_err_str("%s", "lost");
        const bool nothing_stored = std::strcmp(issu_err_str_get(), "null") == 0;
        heap.failing_size = 0;
        set_err_str("%s", "kept");
        return nothing_stored && std::strcmp(issu_err_str_get(), "kept") == 0;
    };
    EXPECT_EXIT(end_process(try_twice() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(issu_error_text_death, keeps_the_buffer_of_the_first_of_two_that_store_at_once)
{
    const auto second_comes_first = [] {
        heap.interrupted_size = heap.watched_size = 256;
        heap.interruption = [] { set_err_str("%s", "of another thread"); };
        set_err_str("%s", "of this one");
        return std::strcmp(issu_err_str_get(), "of this one") == 0 && heap.freed == 1;
    };
    EXPECT_EXIT(end_process(second_comes_first() ? 0 : 1), testing::ExitedWithCode(0), "");
}
#endif

struct issu_error_text : platform_test {
};

TEST_F(issu_error_text, is_formatted)
{
    set_err_str("%s has %d of %.1f", "slot 3", 4, 5.5);
    EXPECT_STREQ(issu_err_str_get(), "slot 3 has 4 of 5.5");
}

TEST_F(issu_error_text, keeps_one_buffer)
{
    set_err_str("%s", "one");
    const char *first = issu_err_str_get();
    set_err_str("%s", "two");
    EXPECT_EQ(issu_err_str_get(), first);
    EXPECT_STREQ(first, "two");
}

TEST_F(issu_error_text, is_cut_to_255_characters)
{
    set_err_str("%s", std::string(255, 'x').c_str());
    EXPECT_EQ(issu_err_str_get(), std::string(255, 'x'));
    set_err_str("%s", std::string(256, 'y').c_str());
    EXPECT_EQ(issu_err_str_get(), std::string(255, 'y'));
}

TEST_F(issu_error_text, is_not_cleared_by_a_success)
{
    set_err_str("%s", "before");
    platform().fallback = {0, 0, {}, {}};
    EXPECT_EQ(issu_lock_cfg(1), 0);
    EXPECT_EQ(issu_start(1, "a", "b"), 0);
    EXPECT_STREQ(issu_err_str_get(), "before");
}

TEST_F(issu_error_text, names_a_missing_name)
{
    const auto refuses = [](int result) {
        EXPECT_EQ(result, -1);
        EXPECT_STREQ(issu_err_str_get(), "Wrong parameter");
        EXPECT_EQ(platform().allocations, 0u);
        set_err_str("%s", "");
    };
    uint32_t number = 0;
    char text[4];
    refuses(issu_start(0, nullptr, "b"));
    refuses(issu_start(0, "a", nullptr));
    refuses(issu_sm_shut(0, &number, 0, 0, nullptr, "b"));
    refuses(issu_sm_shut(0, &number, 0, 0, "a", nullptr));
    refuses(issu_buf_image_load(nullptr));
    refuses(issu_image_clist_get(0, nullptr, 0, text, &number));
}

/* --- replies --- */

struct minimum_case {
    const char *name;
    size_t minimum;
    std::function<int()> call;
};

const minimum_case minimums[] = {
    {"show_sum", 720, [] { return issu_show_sum(0, output.bytes); }},
    {"show_gshut", 468, [] { return issu_show_gshut(0, output.bytes); }},
    {"ver_get", 136, [] { return issu_ver_get(0, 0, output.as<char>(), 100); }},
    {"buf_image_ver_get", 136, [] { return issu_buf_image_ver_get(output.as<char>(), 100); }},
    {"check", 140, [] { return issu_check(0, output.as<uint32_t>(), output.as<char>() + 4, 100); }},
    {"buf_image_load", 12, [] { return issu_buf_image_load("a"); }},
    {"sm_shut", 12, [] { return issu_sm_shut(0, output.as<uint32_t>(), 0, 0, "a", "b"); }},
    {"image_clist_get", 16,
     [] {
         uint32_t length = 0;
         return issu_image_clist_get(0, "a", 0, output.as<char>(), &length);
     }},
    {"show_cpu_status", 20, [] { return issu_show_cpu_status(0, ignore_entry); }},
};

struct issu_replies : platform_test, testing::WithParamInterface<minimum_case> {
    void expect_length(const bytes &reply, std::optional<uint32_t> length, bool accepted)
    {
        SCOPED_TRACE(length.value_or(static_cast<uint32_t>(reply.size())));
        output.reset();
        set_err_str("%s", "");
        platform().fallback = {0, 0, reply, length};
        EXPECT_EQ(GetParam().call(), accepted ? 0 : -1);
        EXPECT_STREQ(issu_err_str_get(), accepted ? "" : "wrong msg len");
        EXPECT_TRUE(accepted || output.untouched());
    }
};

TEST_P(issu_replies, must_reach_their_minimum_and_fit_the_buffer)
{
    const size_t minimum = GetParam().minimum;
    expect_length({}, {}, false);
    expect_length(repeat(0, minimum - 1), {}, false);
    expect_length(repeat(0, minimum), {}, true);
    expect_length(repeat(0, minimum + 1), {}, true);
    expect_length(repeat(0, 16000), {}, true);
    expect_length(repeat(0, 16001), {}, false);
    expect_length(repeat(0, 100), 0xffffffff, false);
}

INSTANTIATE_TEST_SUITE_P(minimums, issu_replies, testing::ValuesIn(minimums),
                         [](const auto &one) { return one.param.name; });

struct issu_data : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        output.reset();
        set_err_str("%s", "");
    }
    bytes counting(size_t size)
    {
        bytes out(size);
        for (size_t i = 0; i < size; i++)
            out[i] = static_cast<uint8_t>(i * 7 + i / 256);
        return out;
    }
};

TEST_F(issu_data, start_looks_at_the_status_only)
{
    platform().answers = {{0, 0, {}, {}}, {0, 0, {1}, 0xffffffff}};
    EXPECT_EQ(issu_start(0, "a", "b"), 0);
    EXPECT_EQ(issu_start(0, "a", "b"), 0);
}

TEST_F(issu_data, summary_is_712_bytes_from_offset_8)
{
    const bytes reply = counting(730);
    platform().answers = {{0, 0, reply, {}}};
    EXPECT_EQ(issu_show_sum(0, output.bytes), 0);
    EXPECT_EQ(output.first(712), bytes(reply.begin() + 8, reply.begin() + 720));
    EXPECT_EQ(output.bytes[712], 0x5A);
}

TEST_F(issu_data, graceful_shutdown_is_460_bytes_from_offset_8)
{
    const bytes reply = counting(480);
    platform().answers = {{0, 0, reply, {}}};
    EXPECT_EQ(issu_show_gshut(0, output.bytes), 0);
    EXPECT_EQ(output.first(460), bytes(reply.begin() + 8, reply.begin() + 468));
    EXPECT_EQ(output.bytes[460], 0x5A);
}

using version_call = int (*)(char *, uint32_t);
const version_call version_calls[] = {
    [](char *out, uint32_t size) { return issu_ver_get(0, 0, out, size); },
    issu_buf_image_ver_get,
};

TEST_F(issu_data, version_is_cut_to_the_callers_size)
{
    platform().fallback = {0, 0, record_of(136, {{8, text_field("6.0.1 build 7", 20)}}), {}};
    for (const version_call call : version_calls)
        for (const size_t size : {0u, 1u, 6u, 13u, 14u, 100u}) {
            output.reset();
            EXPECT_EQ(call(output.as<char>(), static_cast<uint32_t>(size)), 0);
            const std::string expected = std::string("6.0.1 build 7").substr(0, size == 0 ? 0 : size - 1);
            bytes written(expected.begin(), expected.end());
            if (size != 0)
                written.push_back(0);
            written.push_back(0x5A);
            EXPECT_EQ(output.first(written.size()), written) << size;
        }
}

TEST_F(issu_data, version_without_a_terminator_ends_with_its_field)
{
    platform().fallback = {0, 0, repeat('v', 200), {}};
    for (const version_call call : version_calls) {
        output.reset();
        EXPECT_EQ(call(output.as<char>(), 1000), 0);
        EXPECT_EQ(output.as<char>(), std::string(128, 'v'));
    }
}

TEST_F(issu_data, check_gives_number_and_text)
{
    platform().fallback = {0, 0, record_of(140, {{8, le32(0x80000001)}, {12, text_field("not now", 8)}}), {}};
    EXPECT_EQ(issu_check(0, output.as<uint32_t>(), output.as<char>() + 4, 100), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0x80000001u);
    EXPECT_STREQ(output.as<char>() + 4, "not now");
    EXPECT_EQ(issu_check(0, output.as<uint32_t>(), output.as<char>() + 4, 4), 0);
    EXPECT_STREQ(output.as<char>() + 4, "not");
    EXPECT_EQ(issu_check(0, output.as<uint32_t>(), output.as<char>() + 4, 0), 0);
    EXPECT_STREQ(output.as<char>() + 4, "not") << "no text is written for size 0";
}

TEST_F(issu_data, check_text_ends_with_the_reply)
{
    platform().fallback = {0, 0, repeat('t', 150), {}};
    EXPECT_EQ(issu_check(0, output.as<uint32_t>(), output.as<char>() + 4, 1000), 0);
    EXPECT_EQ(output.as<char>() + 4, std::string(138, 't'));
}

TEST_F(issu_data, loading_an_image_returns_the_managers_answer)
{
    for (const int answered : {0, 1, 0x7fffffff, -2}) {
        platform().fallback = {0, 0, record_of(12, {{8, le32(static_cast<uint32_t>(answered))}}), {}};
        EXPECT_EQ(issu_buf_image_load("a"), answered);
    }
}

TEST_F(issu_data, shutting_modules_down_gives_the_managers_result)
{
    platform().fallback = {0, 0, record_of(12, {{8, le32(0x01020304)}}), {}};
    EXPECT_EQ(issu_sm_shut(0, output.as<uint32_t>(), 0, 0, "a", "b"), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0x01020304u);
}

struct clist_case {
    const char *name;
    uint32_t capacity;
    uint32_t length; /* as the reply says */
    size_t sent;     /* bytes of the list that the reply holds */
    uint32_t length_out;
    size_t copied;
};

struct issu_image_clist : issu_data, testing::WithParamInterface<clist_case> {
};

TEST_P(issu_image_clist, copies_what_fits_and_lowers_the_length)
{
    const clist_case &each = GetParam();
    platform().fallback = {
        0, 0, join({record_of(16, {{12, le32(each.length)}}), repeat('L', each.sent)}), {}};
    uint32_t length = each.capacity;
    EXPECT_EQ(issu_image_clist_get(0, "a", 1, output.as<char>(), &length), 0);
    EXPECT_EQ(length, each.length_out);
    bytes expected = repeat('L', each.copied);
    expected.resize(each.length_out, 0);
    expected.push_back(0x5A);
    EXPECT_EQ(output.first(expected.size()), expected);
}

INSTANTIATE_TEST_SUITE_P(
    lengths, issu_image_clist,
    testing::Values(clist_case{"shorter", 100, 40, 40, 40, 40}, clist_case{"longer", 100, 400, 400, 100, 100},
                    clist_case{"equal", 100, 100, 100, 100, 100}, clist_case{"one_less", 100, 99, 99, 99, 99},
                    clist_case{"one_more", 100, 101, 101, 100, 100}, clist_case{"empty", 100, 0, 0, 0, 0},
                    clist_case{"no_room", 0, 50, 50, 0, 0}, clist_case{"overstated", 1000, 500, 30, 500, 30}),
    [](const auto &one) { return one.param.name; });

/* --- processor status, page by page --- */

struct seen_entry {
    bytes entry;
    int first;
    bool operator==(const seen_entry &) const = default;
};
std::vector<seen_entry> seen;

int see_entry(const void *entry, int first)
{
    const auto *from = static_cast<const uint8_t *>(entry);
    seen.push_back({bytes(from, from + 40), first});
    return -1; /* ignored */
}

bytes status_page(uint32_t cursor, uint32_t more, uint32_t count, bytes entries)
{
    return join({repeat(0xEE, 8), le32(cursor), le32(more), le32(count), std::move(entries)});
}

struct issu_cpu_status : issu_data {
    void SetUp() override
    {
        issu_data::SetUp();
        seen.clear();
    }
};

TEST_F(issu_cpu_status, follows_the_cursor_while_there_is_more)
{
    platform().answers = {{0, 0, status_page(7, 1, 2, join({repeat('a', 40), repeat('b', 40)})), {}},
                          {0, 0, status_page(0, 0x80000000, 1, repeat('c', 40)), {}},
                          {0, 0, status_page(9, 0, 1, repeat('d', 40)), {}}};
    EXPECT_EQ(issu_show_cpu_status(3, see_entry), 0);
    ASSERT_EQ(platform().messages.size(), 3u);
    EXPECT_EQ(platform().messages[0].request, join({le32(9), le32(3), le32(0)}));
    EXPECT_EQ(platform().messages[1].request, join({le32(9), le32(3), le32(7)}));
    EXPECT_EQ(platform().messages[2].request, join({le32(9), le32(3), le32(0)}));
    EXPECT_EQ(seen,
              (std::vector<seen_entry>{
                  {repeat('a', 40), 1}, {repeat('b', 40), 0}, {repeat('c', 40), 1}, {repeat('d', 40), 1}}));
    EXPECT_EQ(platform().allocations, 2u);
}

TEST_F(issu_cpu_status, an_empty_last_page_is_a_success)
{
    platform().answers = {{0, 0, status_page(0, 0, 0, {}), {}}};
    EXPECT_EQ(issu_show_cpu_status(0, see_entry), 0);
    EXPECT_TRUE(seen.empty());
}

TEST_F(issu_cpu_status, a_page_may_be_longer_than_its_entries)
{
    platform().answers = {{0, 0, status_page(0, 0, 1, repeat('a', 79)), {}}};
    EXPECT_EQ(issu_show_cpu_status(0, see_entry), 0);
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(issu_cpu_status, more_entries_than_the_reply_holds_are_wrong)
{
    for (const uint32_t count : {2u, 0x06666667u, 0xffffffffu}) {
        platform().fallback = {0, 0, status_page(0, 0, count, repeat('a', 79)), {}};
        EXPECT_EQ(issu_show_cpu_status(0, see_entry), -1) << count;
        EXPECT_STREQ(issu_err_str_get(), "Wrong msg");
    }
    EXPECT_TRUE(seen.empty());
}

struct later_failure {
    answer with;
    const char *text;
};

TEST_F(issu_cpu_status, a_failure_on_a_later_page_keeps_what_was_delivered)
{
    const later_failure failures[] = {
        {{-1, 0, {}, {}}, "Failed to send IPC message"},
        {{0, 2, status_page(0, 0, 0, {}), {}}, "Handle error"},
        {{0, 0, repeat(0, 19), {}}, "wrong msg len"},
        {{0, 0, status_page(0, 0, 1, repeat(0, 39)), {}}, "Wrong msg"},
    };
    for (const later_failure &each : failures) {
        seen.clear();
        platform().answers = {{0, 0, status_page(5, 1, 1, repeat('a', 40)), {}}, each.with};
        EXPECT_EQ(issu_show_cpu_status(0, see_entry), -1);
        EXPECT_STREQ(issu_err_str_get(), each.text);
        EXPECT_EQ(seen.size(), 1u);
    }
}

TEST_F(issu_cpu_status, needs_no_callback)
{
    platform().answers = {{0, 0, status_page(0, 0, 1, repeat('a', 40)), {}}};
    EXPECT_EQ(issu_show_cpu_status(0, nullptr), 0);
}

} // namespace
