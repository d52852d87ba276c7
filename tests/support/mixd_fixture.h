/*
 * A mixd of the test's own: started as a process on a private run directory, stopped or killed, started again
 * on the same store. And a client that speaks the messages by hand, so that it can also speak them wrongly.
 */
#ifndef MIX_TESTS_MIXD_FIXTURE_H
#define MIX_TESTS_MIXD_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "appliance/wire/control.h"
#include "appliance/wire/gateway.h"
#include "appliance/wire/message.h"
#include "support/bytes.h"
#include "support/temporary_directory.h"

namespace mixtest
{

class mixd_process
{
  public:
    explicit mixd_process(std::string run_dir);
    ~mixd_process();
    mixd_process(const mixd_process &) = delete;
    mixd_process &operator=(const mixd_process &) = delete;

    std::vector<std::string> arguments; /* beside --run-dir */
    bool names_run_dir = true;          /* false: without --run-dir, the test leads mixd there otherwise */
    bool keep_catalogue = false;       /* only on a /dev/shm of the test's own: a machine has one catalogue */
    std::function<bool()> before_exec; /* in the child; false: it ends with status 77 */

    /* True when it is ready; false when it ended before. log() has what it said. */
    bool start();
    /* SIGTERM, or another signal; its exit status, or minus the signal that ended it. */
    int stop(int signal_number = 15);
    /* Waits for it to end by itself. */
    int wait();
    [[nodiscard]] bool running();
    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] std::string log() const;
    [[nodiscard]] const std::string &run_dir() const { return run_dir_; }
    [[nodiscard]] std::string socket(const std::string &name) const { return run_dir_ + "/" + name; }

  private:
    [[nodiscard]] bool ready_or_over();
    std::string run_dir_;
    std::string log_file_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

/* A mixd that is ready when the test begins; the environment leads libmix's clients to it. */
class mixd_test : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;
    /* Called before the first start, to set arguments. */
    virtual void prepare() {}

    temporary_directory place;
    mixd_process mixd{place.path() + "/run"};
};

struct raw_answer {
    mix::wire::message_kind kind;
    uint32_t type;
    uint32_t sequence;
    int32_t status;
    uint32_t claimed;
    bytes payload;
    [[nodiscard]] std::string text() const { return {payload.begin(), payload.end()}; }
};

class raw_client
{
  public:
    raw_client() = default;
    ~raw_client();
    raw_client(const raw_client &) = delete;
    raw_client &operator=(const raw_client &) = delete;

    /* Connected and greeted. */
    bool open(const mixd_process &mixd, const std::string &socket_name);
    bool connect(const std::string &path);
    bool send(const bytes &datagram) const;
    bool send(mix::wire::message_kind kind, uint32_t type, const bytes &payload, uint32_t sequence = 1) const;
    /* Nothing: the connection ended, or nothing came in time. */
    std::optional<raw_answer> receive(int timeout_ms = 5000) const;
    /* A request and its answer. */
    std::optional<raw_answer> ask(uint32_t type, const bytes &payload = {});
    [[nodiscard]] bool closed_by_peer(int timeout_ms = 5000) const;
    [[nodiscard]] int fd() const { return fd_; }

  private:
    int fd_ = -1;
    uint32_t sequence_ = 0;
};

bytes hello_bytes(uint16_t version = mix::wire::protocol_version);
/* Sets a fault through mixd's control service; its status. */
int32_t inject(const mixd_process &mixd, uint32_t daemon, uint32_t type, mix::wire::fault_kind kind,
               int32_t value, uint32_t count);

struct gateway_answer {
    int32_t result;
    std::string text;
};
/* Commits a record of u32 fields to an object through the gateway, by hand. */
std::optional<gateway_answer> commit_record(raw_client &gateway, uint32_t object, uint32_t mask,
                                            const std::vector<uint32_t> &fields, uint8_t language = 0);

} // namespace mixtest

#endif
