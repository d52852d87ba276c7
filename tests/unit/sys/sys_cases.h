/*
 * What the system families' exchanges are tested for alike, driven by values: each byte that is sent, and
 * what is told, given and left alone when it can't be done.
 */
#ifndef MIX_TESTS_SYS_CASES_H
#define MIX_TESTS_SYS_CASES_H

#include <libmix/issu.h>

#include <cstring>

#include "support/scripted_platform.h"

namespace mixtest
{

/* Where every case has its function write; a failure must leave it as it was. */
struct output_area {
    alignas(16) uint8_t bytes[2048];

    void reset() { std::memset(bytes, 0x5A, sizeof bytes); }
    [[nodiscard]] bool untouched() const
    {
        return std::all_of(std::begin(bytes), std::end(bytes), [](uint8_t each) { return each == 0x5A; });
    }
    template <class T>
    T *as()
    {
        return reinterpret_cast<T *>(bytes);
    }
    [[nodiscard]] mixtest::bytes first(size_t size) const { return {bytes, bytes + size}; }
};
inline output_area output;

struct expected_message {
    sender by;
    uint32_t destination;
    uint32_t type;
    uint32_t timeout_ms;
    bytes request;
    uint32_t capacity = 0; /* 0: one way */
    bool in_place = false;
    uint32_t request_room = 0; /* allocated for the request when that is more than is sent */
};

struct sys_case {
    const char *name;
    std::function<int64_t()> call;
    expected_message sent;

    /* The result and the text of each way to fail; with in_place there is no second buffer. */
    int64_t result_not_sent = -1; /* the send call gave -3 */
    int64_t result_refused = -1;  /* the status was -7 */
    int64_t result_no_buffer = -1;
    const char *told_no_request = "";
    const char *told_no_reply = "";
    const char *told_not_sent = "";
    const char *told_refused = "";
    std::map<std::string, uint32_t> board = {};
    bool can_be_refused = true; /* false: a negative status is not looked at */
};

/* All that a function said: on the console or, in the upgrade family, in the error text. */
inline std::string told()
{
    return platform().console + issu_err_str_get();
}

inline void prepare(const sys_case &with)
{
    platform().reset();
    platform().board = with.board;
    set_err_str("%s", "");
    output.reset();
}

inline void expect_message(const sent_message &sent, const expected_message &expected)
{
    EXPECT_EQ(sent.by, expected.by);
    EXPECT_EQ(sent.destination, expected.destination);
    EXPECT_EQ(sent.type, expected.type);
    EXPECT_EQ(sent.timeout_ms, expected.timeout_ms);
    EXPECT_EQ(sent.request, expected.request);
    EXPECT_EQ(sent.capacity, expected.capacity);
    EXPECT_EQ(sent.in_place, expected.in_place);
}

inline void check_message(const sys_case &with)
{
    prepare(with);
    platform().fallback = {0, 0, {}, {}};
    with.call();
    ASSERT_EQ(platform().messages.size(), 1u);
    expect_message(platform().messages[0], with.sent);
    std::vector<uint32_t> allocated = {
        std::max({static_cast<uint32_t>(with.sent.request.size()), with.sent.request_room,
                  with.sent.in_place ? with.sent.capacity : 0u})};
    if (with.sent.capacity != 0 && !with.sent.in_place)
        allocated.push_back(with.sent.capacity);
    EXPECT_EQ(platform().allocation_sizes, allocated);
}

inline void check_one_failure(const sys_case &with, const char *how, uint32_t failing_allocation,
                              const answer &answered, int64_t result, const char *text)
{
    SCOPED_TRACE(how);
    prepare(with);
    platform().fallback = answered;
    platform().fail_allocation(failing_allocation);
    EXPECT_EQ(with.call(), result);
    EXPECT_EQ(told(), text);
    EXPECT_TRUE(output.untouched());
    EXPECT_EQ(platform().messages.size(), failing_allocation != 0 ? 0u : 1u);
    EXPECT_EQ(platform().outstanding(), 0u);
    EXPECT_EQ(platform().bad_frees, 0u);
}

inline void check_failures(const sys_case &with)
{
    const bytes reply = repeat(0x33, 16000);
    check_one_failure(with, "no request", 1, {}, with.result_no_buffer, with.told_no_request);
    if (with.sent.capacity != 0 && !with.sent.in_place)
        check_one_failure(with, "no reply", 2, {}, with.result_no_buffer, with.told_no_reply);
    check_one_failure(with, "not sent", 0, {-3, 0, {}, {}}, with.result_not_sent, with.told_not_sent);
    if (with.sent.capacity != 0 && with.can_be_refused)
        check_one_failure(with, "refused", 0, {0, -7, reply, with.sent.capacity}, with.result_refused,
                          with.told_refused);
}

struct sys_exchanges : platform_test, testing::WithParamInterface<sys_case> {
};

inline std::string sys_case_name(const testing::TestParamInfo<sys_case> &info)
{
    return info.param.name;
}

} // namespace mixtest

#endif
