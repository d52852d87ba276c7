#include "sweep/sweep.h"

#include <libmix/issu.h>

#include <csignal>
#include <unistd.h>

#include "support/general_heap.h"

namespace mixtest
{

/* --- who was it? --- */

/* A read past the guarded bytes ends the program; it then says in which case. */

static std::string under_way;
static struct sigaction fault_before;

static void tell_case(int)
{
    const auto written = write(STDERR_FILENO, under_way.data(), under_way.size());
    static_cast<void>(written);
    sigaction(SIGSEGV, &fault_before, nullptr);
}

static void say_when_it_crashes(const client &one, const script &with)
{
    static const bool once = [] {
        struct sigaction action = {};
        action.sa_handler = tell_case;
        return sigaction(SIGSEGV, &action, &fault_before) == 0;
    }();
    static_cast<void>(once);
    under_way = std::string("\nfault in ") + one.name;
    if (with.guarded_after)
        under_way += ", of a reply of " + std::to_string(*with.guarded_after) + " bytes";
    under_way += '\n';
}

/* --- one call --- */

answer good_answer(const client &one, size_t message)
{
    const exchange &with = one.is.exchanges[std::min(message, one.is.exchanges.size() - 1)];
    return {0, with.status, with.reply, {}};
}

script answering(const client &one, size_t message, answer instead)
{
    return {.answers = [&one, message, instead = std::move(instead)](size_t at, const sent_message &) {
        return at == message ? instead : good_answer(one, at);
    }};
}

static void set_platform(const client &one, const script &with)
{
    scripted_platform &it = platform();
    it.reset();
    it.board = one.is.board;
    it.fail_allocation(with.failing_allocation, with.all_later);
    it.guarded_after = with.guarded_after;
    it.behind_reply = with.behind;
    it.commit_results = with.commit_results;
    it.save_results = {};
    it.refusal_text = with.refusal_text;
    it.exchange_text = with.exchange_text;
    it.handler = [&one, &with](const sent_message &message) {
        const size_t at = platform().messages.size() - 1;
        if (with.answers)
            return with.answers(at, message);
        return one.is.exchanges.empty() ? answer{-1, 0, {}, {}} : good_answer(one, at);
    };
}

#ifdef MIX_HEAP_IS_OURS
static void heap_begins(uint32_t failing)
{
    count_library_requests(failing);
}
static uint32_t heap_ends()
{
    const uint32_t requests = heap.library_requests;
    count_library_requests(0);
    return requests;
}
bool library_heap_is_watched()
{
    return heap.seen;
}
#else
static void heap_begins(uint32_t) {}
static uint32_t heap_ends()
{
    return 0;
}
bool library_heap_is_watched()
{
    return false;
}
#endif

outcome run(const client &one, const script &with)
{
    say_when_it_crashes(one, with);
    set_err_str("%s", "");
    set_platform(one, with);
    given g;
    g.print = with.prints ? collect_print : nullptr;
    g.maximum = with.maximum;
    g.kept = with.kept;
    g.batch = with.batch.value_or(one.is.batch);
    g.batch_error = with.batch_error;
    platform().on_read = [&g](mgi_batch_callback callback, void *context) {
        return callback(guarded_row(g.batch), static_cast<uint32_t>(g.batch.size()), g.batch_error, context);
    };
    heap_begins(with.failing_heap);
    seen caller = call(one, g);
    const uint32_t heap_requests = heap_ends();

    EXPECT_EQ(platform().outstanding(), 0u) << one.name << " keeps a buffer";
    EXPECT_EQ(platform().bad_frees, 0u) << one.name << " frees what is not allocated";
    std::string told = platform().console + issu_err_str_get();
    for (const std::string &line : platform().log)
        told += line;
    for (const auto &[level, line] : platform().debug)
        told += line;
    const scripted_platform &it = platform();
    return {std::move(caller),
            std::move(told),
            printed,
            it.messages,
            it.gateway_calls.size() + it.record_calls.size(),
            it.allocated_after,
            heap_requests};
}

std::string difference(const outcome &one, const outcome &other)
{
    std::string out = difference(static_cast<const seen &>(one), static_cast<const seen &>(other));
    const auto compare = [&](const char *what, bool equal) {
        if (!equal)
            out += std::string(what) + ", ";
    };
    compare("console", one.told == other.told);
    compare("printed text", one.printed == other.printed);
    compare("number of messages", one.messages.size() == other.messages.size());
    compare("number of changes", one.commits == other.commits);
    for (size_t i = 0; i < std::min(one.messages.size(), other.messages.size()); i++)
        compare("request", one.messages[i].request == other.messages[i].request);
    return out;
}

outcome run_with_and_without_print(const client &one, const script &with)
{
    outcome loud = run(one, with);
    script quiet_script = with;
    quiet_script.prints = false;
    outcome quiet = run(one, quiet_script);
    EXPECT_EQ(quiet.printed, "");
    quiet.printed = loud.printed;
    /* The texts of refusals that are tied to the print callback are on purpose. */
    if (std::string(one.name) == "arp_add_static_items")
        quiet.error = loud.error;
    EXPECT_EQ(difference(loud, quiet), "") << one.name << " does otherwise without a print callback";
    return loud;
}

bytes cut_or_filled(bytes reply, size_t length, uint8_t with)
{
    reply.resize(length, with);
    return reply;
}

void expect_failure(const client &one, const outcome &got, size_t at, int64_t result, bool sent,
                    int32_t send_result, bool refused)
{
    expect_failed(one, got, at, result == result_of_send ? send_result : result, refused);
    if (!one.is.exchanges[at].tolerated) {
        EXPECT_EQ(got.messages.size(), at + (sent ? 1 : 0)) << "nothing is asked after a failure";
    }
}

bool asks(const client &one)
{
    return std::any_of(one.is.exchanges.begin(), one.is.exchanges.end(),
                       [](const exchange &each) { return each.capacity != 0; });
}

bool is_listing(const client &one)
{
    return one.is.page.has_value();
}

bool reads_settings(const client &one)
{
    return !one.is.batch.empty();
}

bool changes_at_once(const client &one)
{
    return !one.is.waits;
}

std::vector<client> clients_that(bool (*are)(const client &))
{
    std::vector<client> out;
    std::copy_if(clients().begin(), clients().end(), std::back_inserter(out), are);
    return out;
}

} // namespace mixtest
