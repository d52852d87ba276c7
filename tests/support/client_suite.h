/*
 * What every client function is tested for alike, driven by values: the bytes it sends, and what it says and
 * gives when it can't do what it is asked.
 */
#ifndef MIX_TESTS_CLIENT_SUITE_H
#define MIX_TESTS_CLIENT_SUITE_H

#include <libmix/mix_base.h>

#include "support/case_name.h"
#include "support/scripted_platform.h"

namespace mixtest
{

/* --- one request --- */

struct request_case {
    const char *name;
    std::function<void()> call;
    uint32_t destination;
    uint32_t type;
    bytes request;
    uint32_t capacity;
    uint32_t timeout_ms = 500;
    sender by = sender::send_and_recv;
};

/* The first message is the one described, in buffers of its own of exactly these sizes. */
inline void check_request(const request_case &with)
{
    platform().fallback = {0, 0, {}, {}};
    with.call();
    ASSERT_GE(platform().messages.size(), 1u);
    const sent_message &sent = platform().messages[0];
    EXPECT_EQ(sent.by, with.by);
    EXPECT_EQ(sent.destination, with.destination);
    EXPECT_EQ(sent.type, with.type);
    EXPECT_EQ(sent.request, with.request);
    EXPECT_EQ(sent.capacity, with.capacity);
    EXPECT_EQ(sent.timeout_ms, with.timeout_ms);
    EXPECT_FALSE(sent.in_place);
    EXPECT_EQ(platform().allocation_sizes,
              (std::vector<uint32_t>{static_cast<uint32_t>(with.request.size()), with.capacity}));
}

/* --- failures --- */

/* One exchange's texts and results. A function without a print callback has no texts. */
struct failure_case {
    const char *name;
    std::function<int64_t(print_callback)> call;
    const char *refused; /* with a status of -7 */
    int64_t failure;     /* the result, where no other is given */
    const char *no_request = "No enough memory\n";
    const char *no_reply = "";
    const char *not_sent = "ipcmsg send failed\n"; /* with a result of -3 */
    std::optional<int64_t> without_buffers = {};
    std::optional<int64_t> when_refused = {};
};

inline void check_failure(const failure_case &with, print_callback print, uint32_t failing_allocation,
                          const answer &answered, const char *text, int64_t result)
{
    platform().reset();
    platform().fallback = answered;
    if (failing_allocation != 0)
        platform().fail_allocation(failing_allocation);
    EXPECT_EQ(with.call(print), result) << with.name;
    EXPECT_EQ(printed, print != nullptr ? text : "") << with.name;
    EXPECT_EQ(platform().messages.size(), failing_allocation != 0 ? 0u : 1u) << with.name;
    EXPECT_EQ(platform().outstanding(), 0u) << with.name << " keeps a buffer";
    EXPECT_EQ(platform().bad_frees, 0u) << with.name;
}

inline void check_failures(const failure_case &with)
{
    const int64_t no_buffers = with.without_buffers.value_or(with.failure);
    for (const print_callback print : {print_callback{collect_print}, print_callback{nullptr}}) {
        check_failure(with, print, 1, {0, 0, {}, {}}, with.no_request, no_buffers);
        check_failure(with, print, 2, {0, 0, {}, {}}, with.no_reply, no_buffers);
        check_failure(with, print, 0, {-3, 5, {}, {}}, with.not_sent, with.failure);
        check_failure(with, print, 0, {0, -7, {}, {}}, with.refused,
                      with.when_refused.value_or(with.failure));
    }
}

inline void PrintTo(const request_case &one, std::ostream *out)
{
    *out << one.name;
}
inline void PrintTo(const failure_case &one, std::ostream *out)
{
    *out << one.name;
}

} // namespace mixtest

#endif
