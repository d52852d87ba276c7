#include "appliance/mixd/run_directory.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "appliance/wire/places.h"

namespace mixd
{

namespace
{

using mix::wire::environment;

constexpr int backlog = 128;

} // namespace

std::string default_store(const std::string &run_dir, bool run_dir_chosen)
{
    const std::string name = "/mixd.db";
    for (const char *from : {"MIX_STATE_DIR", "STATE_DIRECTORY"})
        if (const std::string folder = environment(from); !folder.empty())
            return folder.substr(0, folder.find(':')) + name; /* systemd lists several with colons */
    if (run_dir_chosen)
        return run_dir + name;
    if (run_dir == "/run/mix")
        return "/var/lib/mix" + name;
    if (const std::string state = environment("XDG_STATE_HOME"); !state.empty())
        return state + "/mix" + name;
    if (const std::string home = environment("HOME"); !home.empty())
        return home + "/.local/state/mix" + name;
    return run_dir + name;
}

run_directory::run_directory(std::string path) : path_(std::move(path))
{
    std::error_code failed;
    path_ = std::filesystem::absolute(path_, failed).lexically_normal().string();
    if (const auto parent = std::filesystem::path(path_).parent_path(); !parent.empty())
        std::filesystem::create_directories(parent, failed);
    make_private(path_);
    const std::string lock_file = path_ + "/mixd.lock";
    lock_ = descriptor(open(lock_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock_)
        fail(lock_file);
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) < 0) {
        char pid[32] = {};
        const bool known = errno == EWOULDBLOCK && pread(lock_.get(), pid, sizeof pid - 1, 0) > 0;
        throw startup_error(fmt::format("another mixd{} serves {}",
                                        known ? fmt::format(" (pid {:.{}})", pid, strcspn(pid, "\n")) : "",
                                        path_));
    }
    const std::string pid = fmt::format("{}\n", getpid());
    /* The number is there for people; a full file system must not stop the daemons. */
    if (ftruncate(lock_.get(), 0) < 0 ||
        pwrite(lock_.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size()))
        log(priority::warning, fmt::format("{}: {}", lock_file, std::strerror(errno)));
}

/* A directory that others may write to could be filled with sockets of theirs. */
void run_directory::make_private(const std::string &folder) const
{
    if (mkdir(folder.c_str(), 0700) < 0 && errno != EEXIST)
        fail(folder);
    struct stat there {
    };
    if (lstat(folder.c_str(), &there) < 0)
        fail(folder);
    if (!S_ISDIR(there.st_mode))
        throw startup_error(fmt::format("{}: not a directory", folder));
    if (there.st_uid != geteuid())
        throw startup_error(fmt::format("{}: belongs to uid {}, not to uid {} that mixd runs as", folder,
                                        there.st_uid, geteuid()));
    if ((there.st_mode & 077) != 0 && chmod(folder.c_str(), 0700) < 0)
        fail(folder);
}

descriptor run_directory::listen(const address_parts &to) const
{
    const std::string name = mix::wire::socket_path(path_, to);
    make_private(std::filesystem::path(name).parent_path().string());
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    if (name.size() >= sizeof where.sun_path)
        throw startup_error(fmt::format("{}: longer than the {} bytes a socket's name may have", name,
                                        sizeof where.sun_path - 1));
    std::memcpy(where.sun_path, name.c_str(), name.size());
    descriptor made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made)
        fail(name);
    struct stat there {
    };
    /* The lock is ours, so whatever socket is there belongs to a mixd that is gone. */
    if (lstat(name.c_str(), &there) == 0 && !S_ISSOCK(there.st_mode))
        throw startup_error(fmt::format("{}: is in the way and not a socket", name));
    unlink(name.c_str());
    if (bind(made.get(), reinterpret_cast<const sockaddr *>(&where), sizeof where) < 0 ||
        chmod(name.c_str(), 0600) < 0 || ::listen(made.get(), backlog) < 0)
        fail(name);
    return made;
}

void run_directory::remove(const address_parts &to) const
{
    const std::string name = mix::wire::socket_path(path_, to);
    unlink(name.c_str());
}

} // namespace mixd
