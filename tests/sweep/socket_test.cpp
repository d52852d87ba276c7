/*
 * The clients of the table on the platform library, against daemons that misbehave on their sockets: they die
 * at each phase, answer twice, late, with something else, or only half hang up. Every call ends, with success
 * or with its documented failure; no descriptor stays open.
 */
#include <fstream>
#include <mutex>
#include <thread>

#include "appliance/wire/gateway.h"
#include "integration/peer.h"
#include "support/case_name.h"
#include "sweep/client.h"

using namespace mixtest;

namespace
{

/* --- one daemon behind many sockets --- */

struct address {
    unsigned node, instance, daemon;
};

/* All that the table's calls reach: the main board's daemons, and those of the other boards they name. */
constexpr address addresses[] = {{0, 0, 0},  {0, 0, 1},   {0, 0, 2},  {0, 0, 6},  {0, 0, 17},
                                 {0, 0, 97}, {0, 0, 200}, {1, 0, 17}, {1, 0, 97}, {1, 2, 17},
                                 {2, 0, 17}, {2, 2, 0},   {2, 2, 17}, {3, 0, 17}};

/* What a daemon does in one phase of a connection, and what a client makes of that. */
enum class phase { hello, request };
enum class verdict {
    fails,
    as_good,
    as_good_or_fails_next /* the next request may be on its way before the connection is seen to be over */
};

struct connection_fault {
    const char *name;
    phase when;
    verdict is;
    /* `good` is what a good daemon would send here. */
    void (*act)(int fd, const message_header &request, const bytes &good);
};

/* With what has been sent already: it would be served later, as a request of the next call. */
void hang_up(int fd, const message_header &, const bytes &)
{
    shutdown(fd, SHUT_RDWR);
    uint8_t unread[64];
    while (recv(fd, unread, sizeof unread, MSG_DONTWAIT) > 0)
        continue;
}

message_header header_of(const bytes &message)
{
    message_header header{};
    std::memcpy(&header, message.data(), sizeof header);
    return header;
}

bytes with_header(const bytes &message, const message_header &header)
{
    bytes out = message;
    std::memcpy(out.data(), &header, sizeof header);
    return out;
}

/* The good message with something changed in its header. */
template <auto Member, auto Difference>
void put_changed(int fd, const bytes &good)
{
    message_header header = header_of(good);
    header.*Member =
        static_cast<std::remove_reference_t<decltype(header.*Member)>>(header.*Member + Difference);
    put(fd, with_header(good, header));
}

const connection_fault faults[] = {
    {"dies_at_hello", phase::hello, verdict::fails, hang_up},
    {"half_closes_at_hello", phase::hello, verdict::fails,
     [](int fd, const message_header &, const bytes &) { shutdown(fd, SHUT_WR); }},
    {"refuses_the_hello", phase::hello, verdict::fails,
     [](int fd, const message_header &, const bytes &) {
         const std::string why = "go away %s%n";
         put(fd, datagram(make_header(message_kind::refusal, 0, 0, 0, 0), bytes(why.begin(), why.end())));
     }},
    {"welcomes_with_garbage", phase::hello, verdict::fails,
     [](int fd, const message_header &, const bytes &) { put(fd, bytes(100, 0x41)); }},
    {"cuts_its_welcome_short", phase::hello, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put(fd, datagram(header_of(good), bytes(good.begin() + sizeof(message_header), good.end() - 1)));
     }},
    {"speaks_another_version", phase::hello, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::version, 1>(fd, good);
     }},
    {"welcomes_twice", phase::hello, verdict::as_good,
     [](int fd, const message_header &, const bytes &good) {
         put(fd, good);
         put(fd, good);
     }},
    {"dies_over_the_request", phase::request, verdict::fails, hang_up},
    {"half_closes_over_the_request", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &) { shutdown(fd, SHUT_WR); }},
    {"reads_no_more_and_answers", phase::request, verdict::as_good,
     [](int fd, const message_header &, const bytes &good) { put(fd, good); }},
    {"answers_and_dies", phase::request, verdict::as_good_or_fails_next,
     [](int fd, const message_header &request, const bytes &good) {
         put(fd, good);
         hang_up(fd, request, good);
     }},
    {"answers_twice", phase::request, verdict::as_good,
     [](int fd, const message_header &, const bytes &good) {
         put(fd, good);
         put(fd, good);
     }},
    {"answers_others_first", phase::request, verdict::as_good,
     [](int fd, const message_header &, const bytes &good) {
         for (int i = 0; i < 50; i++)
             put_changed<&message_header::sequence, 1>(fd, good);
         put(fd, good);
     }},
    {"answers_with_another_kind_first", phase::request, verdict::as_good,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::kind, 1>(fd, good);
         put_changed<&message_header::kind, 3>(fd, good);
         put(fd, good);
     }},
    {"answers_another_type", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::type, 1>(fd, good);
     }},
    {"answers_in_another_protocol", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::magic, 1>(fd, good);
     }},
    {"answers_in_another_version", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::version, 1>(fd, good);
     }},
    {"claims_a_byte_more", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::length, 1>(fd, good);
     }},
    {"claims_a_byte_less", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put_changed<&message_header::length, -1>(fd, good);
     }},
    {"claims_all_memory", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         message_header header = header_of(good);
         header.length = 0xffffffff;
         put(fd, with_header(good, header));
     }},
    {"sends_half_a_header", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put(fd, bytes(good.begin(), good.begin() + 12));
     }},
    {"sends_an_empty_message", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &) { put(fd, {}); }},
    {"sends_more_than_any_message_holds", phase::request, verdict::fails,
     [](int fd, const message_header &, const bytes &good) {
         put(fd, datagram(header_of(good), bytes(maximum_payload + 1, 0x41)));
     }},
};

void PrintTo(const connection_fault &one, std::ostream *out)
{
    *out << one.name;
}

/* Who answers all sockets: as the table says, but for one fault. */
class daemons
{
  public:
    explicit daemons(const std::string &run)
    {
        for (const address &each : addresses) {
            const std::string node = run + "/node" + std::to_string(each.node);
            std::filesystem::create_directory(node);
            peers_.push_back(std::make_unique<peer>(
                node + '/' + std::to_string(each.instance) + '.' + std::to_string(each.daemon) + ".sock",
                [this, gateway = each.daemon == gateway_daemon](int fd, const message_header &header,
                                                                const bytes &payload) {
                    answer(fd, header, payload, gateway);
                }));
        }
    }

    /* From now on they serve this call. fault: none is a good daemon; at: the exchange it hits. */
    void play(const client &one, const connection_fault *fault = nullptr, size_t at = 0,
              bool gateway_misbehaves = false)
    {
        const std::lock_guard hold(lock_);
        one_ = &one;
        fault_ = fault;
        at_ = at;
        gateway_misbehaves_ = gateway_misbehaves;
        requests_ = gateway_requests_ = notices_ = 0;
        hit_ = false;
    }
    size_t requests()
    {
        const std::lock_guard hold(lock_);
        return requests_;
    }
    /* They are not waited for by who sends them, so they are here: false when none comes. */
    bool a_notice_arrives()
    {
        for (int i = 0; i < 5000; i++, std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
            const std::lock_guard hold(lock_);
            if (notices_ != 0)
                return true;
        }
        return false;
    }
    size_t gateway_requests()
    {
        const std::lock_guard hold(lock_);
        return gateway_requests_;
    }

  private:
    void answer(int fd, const message_header &header, const bytes &, bool gateway)
    {
        const std::lock_guard hold(lock_);
        const bool hello = header.kind == static_cast<uint16_t>(message_kind::hello);
        const bool notice = header.kind == static_cast<uint16_t>(message_kind::notice);
        const bool ours = gateway == gateway_misbehaves_;
        const size_t number = requests_;
        const bytes good = hello ? welcome() : gateway ? gateway_reply_to(header) : reply_to(header, number);
        if (notice)
            notices_++;
        else if (!hello)
            (gateway ? gateway_requests_ : requests_)++;
        /* A daemon's fault hits once, the gateway's always: nobody knows how often that is asked. */
        const bool now = fault_ != nullptr && ours && (fault_->when == phase::hello) == hello &&
                         (gateway || (number == at_ && !hit_));
        if (now)
            hit_ = true;
        if (now && !notice)
            fault_->act(fd, header, good);
        else if (!notice)
            put(fd, good);
    }
    static bytes welcome()
    {
        welcome_payload text{protocol_version, 0, static_cast<uint32_t>(getpid()), {}, {}};
        return datagram(make_header(message_kind::welcome, 0, 0, 0, 0), record_bytes(text));
    }
    [[nodiscard]] bytes reply_to(const message_header &request, size_t number) const
    {
        const auto &all = one_->is.exchanges;
        const exchange &with = all[std::min(number, all.size() - 1)];
        return datagram(make_header(message_kind::reply, request.type, request.sequence, with.status, 0),
                        with.reply);
    }
    [[nodiscard]] bytes gateway_reply_to(const message_header &request) const
    {
        bytes reply;
        if (request.type != gateway_current_vsys)
            reply = bytes(sizeof(mix::wire::reply_header));
        if (request.type == gateway_read)
            reply.insert(reply.end(), one_->is.batch.begin(), one_->is.batch.end());
        return datagram(make_header(message_kind::reply, request.type, request.sequence, 0, 0), reply);
    }

    std::mutex lock_;
    const client *one_ = nullptr;
    const connection_fault *fault_ = nullptr;
    size_t at_ = 0;
    bool gateway_misbehaves_ = false;
    size_t requests_ = 0, gateway_requests_ = 0, notices_ = 0;
    bool hit_ = false;
    std::vector<std::unique_ptr<peer>> peers_; /* last: they stop first */
};

/* The board that all of the table's conditions are true of. */
const char *const board_of_the_table = R"(name = "sweep"
image_path = "/"
tq_is_vfw_platform = true
tq_is_mcpu_platform = true
tq_is_qsm_id = [0x1234]
)";

struct sockets : run_directory_test {
    void SetUp() override
    {
        run_directory_test::SetUp();
        std::ofstream(path("board.toml")) << board_of_the_table;
        setenv("MIX_BOARD", path("board.toml").c_str(), 1);
        them = std::make_unique<daemons>(place.path());
    }
    void TearDown() override
    {
        them.reset();
        run_directory_test::TearDown();
    }

    /* In a thread of its own, so that its connections are its own, too. */
    static seen call_alone(const client &one)
    {
        seen got;
        std::thread([&] {
            given g;
            g.batch = one.is.batch;
            got = call(one, g);
        }).join();
        return got;
    }
    static bool is_notice(const client &one)
    {
        return one.is.exchanges.size() == 1 && one.is.exchanges[0].capacity == 0;
    }
    /* How many exchanges a fault can hit: pages of a listing share one connection. */
    static size_t exchanges_hit_by(const connection_fault &fault, const client &one)
    {
        if (fault.when == phase::hello)
            return std::min<size_t>(one.is.exchanges.size(), 1);
        return is_notice(one) ? 0 : one.is.exchanges.size();
    }
    std::unique_ptr<daemons> them;
};

TEST_F(sockets, serve_every_client_of_the_table)
{
    for (const client &one : clients()) {
        SCOPED_TRACE(one.name);
        them->play(one);
        const seen got = call_alone(one);
        EXPECT_EQ(got.result, one.is.good);
        if (is_notice(one))
            EXPECT_TRUE(them->a_notice_arrives());
        else
            EXPECT_EQ(them->requests(), one.is.exchanges.size());
    }
}

struct faulty_sockets : sockets, testing::WithParamInterface<connection_fault> {
    const connection_fault &fault = GetParam();

    /* What good daemons make of it; the gateway was asked that often. */
    struct good_call {
        seen got;
        size_t gateway_requests;
    };
    const good_call &good_call_of(const client &one)
    {
        static std::map<std::string, good_call> known;
        if (const auto found = known.find(one.name); found != known.end())
            return found->second;
        them->play(one);
        seen got = call_alone(one);
        return known[one.name] = {std::move(got), them->gateway_requests()};
    }
};

void expect_not_answered(const client &one, const seen &got, size_t at)
{
    const int64_t failure = one.is.exchanges[at].fails.not_sent;
    if (failure == result_of_send)
        EXPECT_TRUE(got.result < 0 && got.is_untouched(one.is));
    else
        expect_failed(one, got, at, failure);
}

TEST_P(faulty_sockets, of_daemons_fail_the_call_as_documented)
{
    for (const client &one : clients()) {
        const seen &good = good_call_of(one).got;
        for (size_t at = 0; at < exchanges_hit_by(fault, one); at++) {
            SCOPED_TRACE(std::string(one.name) + ", exchange " + std::to_string(at));
            them->play(one, &fault, at);
            const seen got = call_alone(one);
            const bool next = fault.is == verdict::as_good_or_fails_next && got.result != good.result &&
                              at + 1 < one.is.exchanges.size();
            if (fault.is == verdict::fails || next)
                expect_not_answered(one, got, next ? at + 1 : at);
            else
                EXPECT_EQ(difference(got, good), "");
            EXPECT_EQ(client_sockets(), 0u) << "of a thread that has ended";
        }
    }
}

TEST_P(faulty_sockets, of_the_gateway_fail_the_change_as_documented)
{
    for (const client &one : clients()) {
        if (one.is.waits)
            continue;
        const auto &[good, gateway_requests] = good_call_of(one);
        if (gateway_requests == 0)
            continue;
        SCOPED_TRACE(one.name);
        them->play(one, &fault, 0, true);
        const seen got = call_alone(one);
        const bool changes = one.is.exchanges.empty() || one.is.exchanges.back().tolerated;
        if (fault.is == verdict::as_good)
            EXPECT_EQ(difference(got, good), "");
        else if (fault.is == verdict::as_good_or_fails_next)
            EXPECT_LE(got.result, one.is.good);
        else if (changes && !one.is.ignores_commits)
            EXPECT_LT(got.result, 0);
        else
            EXPECT_EQ(got.result, one.is.good);
    }
}

INSTANTIATE_TEST_SUITE_P(daemons, faulty_sockets, testing::ValuesIn(faults), case_name);

TEST_F(sockets, that_are_not_there_fail_every_client_at_once)
{
    them.reset();
    for (const client &one : clients()) {
        if (one.is.exchanges.empty() || one.is.waits)
            continue;
        SCOPED_TRACE(one.name);
        const seen got = call_alone(one);
        if (one.is.exchanges[0].tolerated)
            EXPECT_LE(got.result, one.is.good);
        else
            expect_not_answered(one, got, 0);
    }
}

} // namespace
