/* A daemon for tests: listens at one address of a private run directory and answers as it is told. */
#ifndef MIX_TESTS_PEER_H
#define MIX_TESTS_PEER_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "appliance/wire/message.h"
#include "appliance/wire/text.h"
#include "support/bytes.h"
#include "support/temporary_directory.h"

namespace mixtest
{

using namespace mix::wire;

inline bytes datagram(message_header header, const bytes &payload)
{
    header.length = static_cast<uint32_t>(payload.size());
    return join({record_bytes(header), payload});
}

inline void put(int fd, const bytes &what)
{
    if (send(fd, what.data(), what.size(), MSG_NOSIGNAL) < 0)
        return; /* the client has gone, which many tests want */
}

inline void put_welcome(int fd)
{
    welcome_payload welcome{protocol_version, 0, static_cast<uint32_t>(getpid()), {}, {}};
    fill_text(welcome.name, "peer");
    put(fd, datagram(make_header(message_kind::welcome, 0, 0, 0, 0), record_bytes(welcome)));
}

inline void put_reply(int fd, const message_header &request, int32_t status, const bytes &payload)
{
    put(fd, datagram(make_header(message_kind::reply, request.type, request.sequence, status, 0), payload));
}

/* A run directory of its own for each test, named by MIX_RUN_DIR. */
class run_directory_test : public testing::Test
{
  protected:
    void SetUp() override
    {
        std::filesystem::create_directory(path("node0"));
        setenv("MIX_RUN_DIR", place.path().c_str(), 1);
    }
    std::string path(const std::string &name) const { return place.path() + '/' + name; }

    const temporary_directory place;
};

/* Clients' ends of connections: their peer has a name. */
inline size_t client_sockets()
{
    size_t count = 0;
    for (const auto &each : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::atoi(each.path().filename().c_str());
        sockaddr_un name{};
        socklen_t size = sizeof(name);
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&name), &size) == 0 && name.sun_family == AF_UNIX &&
            size > sizeof(sa_family_t))
            count++;
    }
    return count;
}

inline int listen_at(const std::string &path)
{
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, path.c_str(), sizeof(name.sun_path) - 1);
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<const sockaddr *>(&name), sizeof(name)) != 0 || listen(fd, 64) != 0)
        abort();
    return fd;
}

/* What a peer does with a message. The default welcomes whoever says hello and echoes requests. */
using behaviour = std::function<void(int fd, const message_header &, const bytes &payload)>;

inline void polite(int fd, const message_header &header, const bytes &payload)
{
    if (header.kind == static_cast<uint16_t>(message_kind::hello))
        put_welcome(fd);
    if (header.kind == static_cast<uint16_t>(message_kind::request))
        put_reply(fd, header, 0, payload);
}

/* Welcomes, and does `then` with every other message. */
inline behaviour after_welcome(behaviour then)
{
    return [then](int fd, const message_header &header, const bytes &payload) {
        if (header.kind == static_cast<uint16_t>(message_kind::hello))
            put_welcome(fd);
        else
            then(fd, header, payload);
    };
}

/* Serves a listening socket until `stop` can be read. */
inline void serve(int listening, int stop, const behaviour &act, std::atomic<int> &accepted)
{
    std::vector<pollfd> watched{{stop, POLLIN, 0}, {listening, POLLIN, 0}};
    bytes room(128 * 1024);
    while (poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents == 0) {
        for (size_t i = watched.size() - 1; i >= 2; i--) {
            if (watched[i].revents == 0)
                continue;
            const ssize_t got = recv(watched[i].fd, room.data(), room.size(), 0);
            if (got <= 0) {
                close(watched[i].fd);
                watched.erase(watched.begin() + static_cast<ptrdiff_t>(i));
                continue;
            }
            message_header header{};
            std::memcpy(&header, room.data(), std::min(sizeof(header), static_cast<size_t>(got)));
            act(watched[i].fd, header,
                bytes(room.begin() + std::min<ptrdiff_t>(got, sizeof(header)), room.begin() + got));
        }
        if (watched[1].revents != 0) {
            watched.push_back({accept4(listening, nullptr, nullptr, SOCK_CLOEXEC), POLLIN, 0});
            accepted++;
        }
    }
    for (size_t i = 1; i < watched.size(); i++)
        close(watched[i].fd);
}

class peer
{
  public:
    explicit peer(const std::string &path, behaviour act = polite)
    {
        if (pipe(stop_) != 0)
            abort();
        const int listening = listen_at(path);
        thread_ = std::thread(
            [this, listening, act = std::move(act)] { serve(listening, stop_[0], act, accepted); });
    }
    ~peer()
    {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
    }
    peer(const peer &) = delete;
    peer &operator=(const peer &) = delete;

    std::atomic<int> accepted = 0;

  private:
    int stop_[2];
    std::thread thread_;
};

} // namespace mixtest

#endif
