/*
 * The scripted platform: stands in for every platform symbol that libmix imports. It records each call,
 * answers from a script, fills fresh buffers with a pattern, fails chosen allocations, and knows which
 * buffers are still out.
 *
 * Tests derive from platform_test: a fresh script for each test, and a check at its end that nothing is left
 * allocated and nothing was freed twice.
 */
#ifndef MIX_TESTS_SCRIPTED_PLATFORM_H
#define MIX_TESTS_SCRIPTED_PLATFORM_H

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/mgi.h"
#include "support/bytes.h"
#include "support/printed.h"

namespace mixtest
{

/* Which platform function was called. */
enum class sender { send_and_recv, send_and_recv_timeout, send, send_timeout };

struct sent_message {
    sender by;
    uint32_t destination;
    uint32_t zero;
    uint32_t type;
    bytes request;
    uint32_t capacity;   /* of the reply buffer; 0 for one-way messages */
    bool in_place;       /* the reply buffer is the request buffer */
    uint32_t timeout_ms; /* 0 where the function has none */
};

/* What one exchange is answered with. */
struct answer {
    int32_t sent = 0;
    int32_t status = 0;
    bytes reply = {};
    std::optional<uint32_t> length = {}; /* claimed length; default: the reply's size */
    bool wrote_all_the_same = false;     /* with a negative `sent`: status, reply and length came before it */
};

/* One commit or read of the management gateway. */
struct gateway_call {
    std::string object; /* the platform function's name */
    uint32_t type;
    uint8_t language;
    uint8_t request_flag;
    uint16_t vsysid;
    bytes cookie;
    const void *attr[16];
    bool language_set;
    bool vsysid_set;
};

struct record_call {
    bytes header;
    int one, two;
    uint32_t record_size;
    int zero1, zero2;
    uint32_t mask;
    int zero3;
    bytes record;
    const void *record_at; /* the caller's, alive until the exchange is made */
    mgi_response_hook hook;
    uint32_t made_size;
};

class scripted_platform
{
  public:
    static scripted_platform &get();
    void reset();

    /* --- allocation --- */
    uint8_t pattern = 0xA5;   /* fresh buffers are filled with it */
    uint32_t allocations = 0; /* ipcmsg_alloc calls so far */
    std::vector<uint32_t> allocation_sizes;
    std::vector<size_t> allocated_after; /* for each allocation, how many messages had been sent before */
    /* Fails the n-th allocation (from 1), or from there on. 0: none fails. */
    void fail_allocation(uint32_t n, bool and_all_later = false);
    [[nodiscard]] size_t outstanding() const; /* buffers not yet freed */
    uint32_t bad_frees = 0;                   /* frees of what was not allocated here, or twice */
    /* When set, reading on behind the received bytes of a reply of that length is fatal. */
    std::optional<uint32_t> guarded_after;
    /* Replies of all lengths at once, under the address sanitizer alone: reading or writing on is fatal until
     * the next exchange. */
    bool closes_replies = false;
    /* When set, what a reply leaves of its buffer is filled with it. */
    std::optional<uint8_t> behind_reply;
    /* Takes a buffer that the library handed over; fails the test when it is not one. */
    void free_as_caller(void *buffer);

    /* --- message service --- */
    std::vector<sent_message> messages;
    std::deque<answer> answers; /* taken in order; when empty, fallback answers */
    answer fallback = {-1, 0, {}, {}};
    std::function<answer(const sent_message &)> handler; /* when set, answers instead of the script */

    /* --- management gateway --- */
    std::vector<gateway_call> gateway_calls;
    std::vector<record_call> record_calls;
    std::deque<int> commit_results;       /* taken in order; then 0 */
    std::deque<int> response_types;       /* taken in order, one by each commit for its message; then 0 */
    const char *refusal_text = "refused"; /* of mgi_get_rsp_err_string, for every result */
    std::vector<int> refusal_results;     /* the results it was asked for */
    const char *exchange_text = nullptr;  /* of get_errString */
    std::vector<int> exchange_text_arguments;
    uint16_t current_vsysid = 0;
    uint32_t messages_initialised = 0; /* mgi_init_rqt_message calls */
    /* Called inside a commit or read, while the attributes' values are alive. */
    std::function<void(const mgi_message &, const std::string &object)> on_commit;
    std::function<int(mgi_batch_callback, void *context)> on_read;

    /* --- board --- */
    /* Answers by function name; a name that is not set answers 0. Functions of an argument look at board_of
     * first. */
    std::map<std::string, uint32_t> board;
    std::map<std::pair<std::string, uint32_t>, uint32_t> board_of;
    /* Names in call order, "name(argument)" with an argument (decimal). */
    std::vector<std::string> board_calls;

    /* --- services --- */
    std::string console;          /* all that console_print wrote */
    std::vector<std::string> log; /* tq_clog, a line each */
    std::vector<std::pair<int, std::string>> debug;
    const char *image_path = "/";
    struct disk_call {
        std::string name;
        std::optional<uint32_t> type; /* absent for the call by path */
    };
    std::vector<disk_call> disk_calls;
    uint64_t disk_figures[3] = {11, 22, 33};
    int disk_result = 0;
    std::optional<std::tm> local_time;                          /* absent: the time can't be had */
    std::vector<time_t> local_times_asked;                      /* of tq_localtime */
    std::vector<std::vector<std::string>> saved_configurations; /* arguments as text */
    std::deque<int> save_results;                               /* taken in order; then 0 */
    std::vector<std::pair<std::string, size_t>> shared_memories;
    std::function<void *(const char *, size_t)> shared_memory; /* default: NULL */

    /* --- used by the platform functions --- */
    void *allocate(uint32_t size);
    void free(void *buffer);
    int32_t exchange(sender by, uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                     uint32_t request_length, int32_t *status, void *reply, uint32_t *reply_length,
                     uint32_t timeout_ms);
    int32_t one_way(sender by, uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                    uint32_t request_length, uint32_t timeout_ms);
    int commit(const char *object, mgi_message *message);
    uint32_t board_value(const char *name);
    uint32_t board_value(const char *name, uint32_t argument);
    bool language_set = false, vsysid_set = false; /* since the last mgi_init_rqt_message */

  private:
    bool allocation_fails();
    void finish_reply(uint8_t *reply, uint32_t capacity, uint32_t received) const;
    void open_buffer(void *buffer) const;
    uint32_t failing_ = 0;
    bool all_later_ = false;
    std::map<void *, uint32_t> out_; /* buffer to its size */
};

inline scripted_platform &platform()
{
    return scripted_platform::get();
}

/* Rows a listing delivered. */
struct collected_rows {
    size_t row_size;
    std::vector<bytes> rows = {};
    std::vector<int> first_flags = {};
    int answer = 0;         /* what the callback returns */
    size_t answer_from = 0; /* from this row (counted from 0) on; before it the callback returns 0 */
};
/* A row callback; context is a collected_rows. */
int collect_row(const void *row, void *context, int first);

class platform_test : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;
};

} // namespace mixtest

#endif
