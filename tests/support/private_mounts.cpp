#include "support/private_mounts.h"

#include <cstdio>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace mixtest
{

static bool write_file(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

bool leave_namespaces(int which)
{
    const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    if (unshare(which) == 0)
        return true;
    return unshare(CLONE_NEWUSER | which) == 0 && write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", "0 " + uid + " 1") &&
           write_file("/proc/self/gid_map", "0 " + gid + " 1");
}

static bool move()
{
    return leave_namespaces(CLONE_NEWNS) && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool private_mounts()
{
    static const bool moved = move();
    return moved;
}

bool private_dev_shm()
{
    static const bool mounted =
        private_mounts() && mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
    return mounted;
}

} // namespace mixtest
