#include "support/mixd_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "appliance/wire/text.h"

namespace mixtest
{

using namespace mix::wire;

namespace
{

constexpr int start_ms = 20'000; /* a loaded machine with sanitizers */
constexpr int stop_ms = 20'000;
constexpr int step_ms = 5;

void pause_step()
{
    const timespec step = {0, step_ms * 1'000'000L};
    nanosleep(&step, nullptr);
}

} // namespace

mixd_process::mixd_process(std::string run_dir) : run_dir_(std::move(run_dir))
{
    static int made = 0;
    log_file_ = run_dir_ + "." + std::to_string(++made) + ".log";
}

mixd_process::~mixd_process()
{
    if (running())
        stop(SIGKILL);
}

bool mixd_process::start()
{
    std::vector<std::string> words = {MIXD_PROGRAM};
    if (names_run_dir)
        words.insert(words.end(), {"--run-dir", run_dir_});
    if (!keep_catalogue)
        words.emplace_back("--no-catalogue");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    status_.reset();
    /* Emptied before the fork: what an earlier start said must not pass for this one's. */
    const int output = open(log_file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        unsetenv("MIX_STATE_DIR");
        unsetenv("JOURNAL_STREAM");
        if (before_exec && !before_exec())
            _exit(77);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(output);
    for (int waited = 0; waited < start_ms && !ready_or_over(); waited += step_ms)
        pause_step();
    return running() && log().find("mixd: ready") != std::string::npos;
}

bool mixd_process::ready_or_over()
{
    return !running() || log().find("mixd: ready") != std::string::npos;
}

bool mixd_process::running()
{
    if (pid_ < 0 || status_)
        return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_)
        return true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return false;
}

int mixd_process::stop(int signal_number)
{
    if (running())
        kill(pid_, signal_number);
    return wait();
}

int mixd_process::wait()
{
    for (int waited = 0; waited < stop_ms && running(); waited += step_ms)
        pause_step();
    if (running()) {
        ADD_FAILURE() << "mixd did not end; it said: " << log();
        kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        status_ = -SIGKILL;
    }
    return status_.value_or(0);
}

std::string mixd_process::log() const
{
    std::ostringstream text;
    text << std::ifstream(log_file_).rdbuf();
    return text.str();
}

void mixd_test::SetUp()
{
    setenv("MIX_RUN_DIR", mixd.run_dir().c_str(), 1);
    prepare();
    ASSERT_TRUE(mixd.start()) << mixd.log();
}

void mixd_test::TearDown()
{
    if (!mixd.running())
        return;
    EXPECT_EQ(mixd.stop(), 0) << mixd.log();
}

raw_client::~raw_client()
{
    if (fd_ >= 0)
        close(fd_);
}

bool raw_client::connect(const std::string &path)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    if (path.size() >= sizeof to.sun_path)
        return false;
    std::memcpy(to.sun_path, path.c_str(), path.size());
    return ::connect(fd_, reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
}

bool raw_client::open(const mixd_process &mixd, const std::string &socket_name)
{
    if (!connect(mixd.socket(socket_name)) || !send(hello_bytes()))
        return false;
    const auto answer = receive();
    return answer && answer->kind == message_kind::welcome;
}

bool raw_client::send(const bytes &datagram) const
{
    return ::send(fd_, datagram.data(), datagram.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(datagram.size());
}

bool raw_client::send(message_kind kind, uint32_t type, const bytes &payload, uint32_t sequence) const
{
    const auto length = static_cast<uint32_t>(payload.size());
    return send(join({record_bytes(make_header(kind, type, sequence, 0, length)), payload}));
}

std::optional<raw_answer> raw_client::receive(int timeout_ms) const
{
    pollfd waiting = {fd_, POLLIN, 0};
    if (poll(&waiting, 1, timeout_ms) != 1)
        return {};
    bytes whole(sizeof(message_header) + maximum_payload + 1);
    const ssize_t size = recv(fd_, whole.data(), whole.size(), 0);
    if (size < static_cast<ssize_t>(sizeof(message_header)))
        return {};
    message_header header;
    std::memcpy(&header, whole.data(), sizeof header);
    return raw_answer{static_cast<message_kind>(uint16_t{header.kind}),
                      header.type,
                      header.sequence,
                      header.status,
                      header.length,
                      bytes(whole.begin() + sizeof header, whole.begin() + size)};
}

std::optional<raw_answer> raw_client::ask(uint32_t type, const bytes &payload)
{
    if (!send(message_kind::request, type, payload, ++sequence_))
        return {};
    auto answer = receive();
    if (answer && answer->sequence != sequence_)
        return {};
    return answer;
}

bool raw_client::closed_by_peer(int timeout_ms) const
{
    pollfd waiting = {fd_, POLLIN, 0};
    uint8_t byte;
    return poll(&waiting, 1, timeout_ms) == 1 && recv(fd_, &byte, 1, MSG_PEEK) <= 0;
}

bytes hello_bytes(uint16_t version)
{
    hello_payload hello{};
    hello.version = version;
    hello.pid = static_cast<uint32_t>(getpid());
    fill_text(hello.program, "test");
    return join({record_bytes(make_header(message_kind::hello, 0, 0, 0, sizeof hello)), record_bytes(hello)});
}

int32_t inject(const mixd_process &mixd, uint32_t daemon, uint32_t type, fault_kind kind, int32_t value,
               uint32_t count)
{
    raw_client control;
    if (!control.open(mixd, "node0/0.201.sock"))
        return -ECONNREFUSED;
    const auto answer =
        control.ask(control_set_fault,
                    record_bytes(control_fault{daemon, type, static_cast<uint32_t>(kind), value, count, 0}));
    return answer ? answer->status : -EIO;
}

std::optional<gateway_answer> commit_record(raw_client &gateway, uint32_t object, uint32_t mask,
                                            const std::vector<uint32_t> &fields, uint8_t language)
{
    bytes message(1024);
    writer out(message);
    if (!encode_record(object, mask, fields.data(), fields.size(), language, out))
        return {};
    message.resize(out.size());
    const auto answer = gateway.ask(gateway_record, message);
    gateway_reply reply;
    if (!answer || answer->status < 0 || !decode_reply(answer->payload, reply))
        return {};
    return gateway_answer{reply.result, std::string(reply.text)};
}

} // namespace mixtest
