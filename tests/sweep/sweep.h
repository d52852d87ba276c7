/* A client's call on the scripted platform, with something made to go wrong,
 * and all that can be seen of it. */
#ifndef MIX_TESTS_SWEEP_H
#define MIX_TESTS_SWEEP_H

#include "support/client_suite.h"
#include "sweep/client.h"

namespace mixtest
{

/* What is other than in a good call. */
struct script {
    std::function<answer(size_t message, const sent_message &)> answers =
        {}; /* none: as a good daemon does */
    uint32_t failing_allocation = 0;
    bool all_later = false;
    uint32_t failing_heap = 0; /* the library's own n-th request of the general heap */
    std::optional<uint32_t> guarded_after = {};
    std::optional<uint8_t> behind = {};
    bool prints = true;
    int32_t maximum = 0;
    size_t kept = SIZE_MAX;

    std::deque<int> commit_results = {};
    const char *refusal_text = "refused";
    const char *exchange_text = nullptr; /* of the record exchange and of a read */
    std::optional<bytes> batch = {};     /* none: the row's own */
    int batch_error = 0;
};

struct outcome : seen {
    std::string told;    /* on the console, in the log, in the error text */
    std::string printed; /* through the print callback */
    std::vector<sent_message> messages;
    size_t commits; /* of every kind, records and reads included */
    std::vector<size_t> allocated_after;
    uint32_t heap_requests;
};

/* Runs the call and sees to it that nothing stays allocated and nothing is freed twice. */
outcome run(const client &one, const script &with);
/* The same once more without a print callback: all but what is printed must be equal. */
outcome run_with_and_without_print(const client &one, const script &with);

/* Whether the general heap's requests are counted at all: not where a sanitizer or valgrind has its own. */
bool library_heap_is_watched();

/* Where two outcomes differ, in what was said and asked, too. */
std::string difference(const outcome &one, const outcome &other);

/* What a good daemon answers to the n-th message; the last exchange goes on for ever. */
answer good_answer(const client &one, size_t message);
/* Good answers, but for one message. */
script answering(const client &one, size_t message, answer instead);

/* That the call failed at an exchange, by one of its documented results, and that it did no more. */
void expect_failure(const client &one, const outcome &got, size_t at, int64_t result, bool sent,
                    int32_t send_result = -1, bool refused = false);

/* Bytes cut to a length, or filled up with something that is not zero. */
bytes cut_or_filled(bytes reply, size_t length, uint8_t with = 0xB7);

/* Kinds of clients, and those of the table that are of one. */
bool asks(const client &one); /* and gets an answer */
bool is_listing(const client &one);
bool reads_settings(const client &one);
bool changes_at_once(const client &one); /* without trying again and again */
std::vector<client> clients_that(bool (*are)(const client &));

class client_sweep : public platform_test, public testing::WithParamInterface<client>
{
  protected:
    const client &one = GetParam();
    const std::vector<exchange> &exchanges = one.is.exchanges;
};

} // namespace mixtest

#endif
