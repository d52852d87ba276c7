#include "appliance/mixd/catalogue.h"

#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "app/catalogue.h"
#include "appliance/mixd/dead_lock.h"

namespace mixd
{

namespace
{

using mix::wire::app_segment;

constexpr char folder[] = "/dev/shm";
/* How long a client that makes the segment itself may take from its name to its size and its lock. */
constexpr int patience_ms = 500;

/* Waits until a condition holds; false: it did not in time. */
bool await(const std::function<bool()> &condition)
{
    for (int waited = 0; !condition(); waited += 10) {
        if (waited >= patience_ms)
            return false;
        usleep(10000);
    }
    return true;
}

struct stat status_of(int fd, const std::string &path)
{
    struct stat is {
    };
    if (fstat(fd, &is) < 0)
        fail(path);
    return is;
}

std::string first_line(const char *file)
{
    std::string line;
    std::getline(std::ifstream(file) >> std::ws, line);
    return line;
}

} // namespace

catalogue::catalogue(std::string name, const std::function<void()> &fill)
    : path_(fmt::format("{}/{}", folder, name))
{
    while (!attach() && !build(fill))
        ; /* its name came or went in between */
}

catalogue::~catalogue()
{
    unmap();
}

/* False: there is none of that name. */
bool catalogue::attach()
{
    descriptor object(open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!object) {
        if (errno == ENOENT)
            return false;
        if (errno == EACCES)
            throw kept_elsewhere(fmt::format("another user keeps the application catalogue {}", path_));
        fail(path_);
    }
    if (flock(object.get(), LOCK_EX | LOCK_NB) < 0)
        throw kept_elsewhere(fmt::format("another mixd keeps the application catalogue {}", path_));
    const bool whole =
        await([&] { return status_of(object.get(), path_).st_size == off_t{sizeof(app_segment)}; });
    if (!whole) {
        log(priority::warning, fmt::format("{} has the wrong size, a new one takes its place", path_));
        unlink(path_.c_str());
        return false;
    }
    map(std::move(object));
    if (!is_published()) {
        unmap();
        return false;
    }
    await_lock();
    return true;
}

/* False: somebody else's has got the name first. */
bool catalogue::build(const std::function<void()> &fill)
{
    descriptor object(open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!object || flock(object.get(), LOCK_EX | LOCK_NB) < 0)
        fail(folder);
    /* All of its memory now: later, a full /dev/shm would end whoever writes. */
    if (const int error = posix_fallocate(object.get(), 0, sizeof(app_segment)); error != 0)
        throw startup_error(fmt::format("{}: {}", path_, std::strerror(error)));
    map(std::move(object));
    mix::app::make_shared(*lock_);
    fill();
    const std::string unnamed = fmt::format("/proc/self/fd/{}", object_.get());
    if (linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW) < 0) {
        if (errno != EEXIST)
            fail(path_);
        unmap();
        return false;
    }
    made_here_ = true;
    return true;
}

void catalogue::map(descriptor object)
{
    void *memory = mmap(nullptr, sizeof(app_segment), PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
    if (memory == MAP_FAILED)
        fail(path_);
    const struct stat is = status_of(object.get(), path_);
    device_ = is.st_dev;
    inode_ = is.st_ino;
    object_ = std::move(object);
    segment_ = static_cast<app_segment *>(memory);
    auto *base = static_cast<uint8_t *>(memory);
    lock_ = reinterpret_cast<pthread_rwlock_t *>(base + offsetof(app_segment, lock));
    tq_app_ext_table = segment_->entries;
    app_table_rwlock = lock_;
    cur_app_num = reinterpret_cast<uint32_t *>(base + offsetof(app_segment, cur_app_num));
    cur_predef_app_num = reinterpret_cast<uint32_t *>(base + offsetof(app_segment, cur_predef_app_num));
}

void catalogue::unmap()
{
    tq_app_ext_table = nullptr;
    app_table_rwlock = nullptr;
    cur_app_num = cur_predef_app_num = nullptr;
    if (segment_ != nullptr)
        munmap(segment_, sizeof *segment_);
    segment_ = nullptr;
    lock_ = nullptr;
    object_.close();
}

/* A client that was the first to attach may have died before it came to the lock. */
void catalogue::await_lock() const
{
    if (await([&] { return is_shared(*lock_); }))
        return;
    log(priority::warning, fmt::format("the lock of {} was never made; it is now", path_));
    mix::app::make_shared(*lock_);
}

/* Whether the name still leads to the object that was opened. */
bool catalogue::is_published() const
{
    struct stat is {
    };
    return stat(path_.c_str(), &is) == 0 && is.st_dev == device_ && is.st_ino == inode_;
}

std::string catalogue::identity() const
{
    return fmt::format("{} {}:{}", first_line("/proc/sys/kernel/random/boot_id"), device_, inode_);
}

bool catalogue::is_mapped_by(pid_t process) const
{
    std::ifstream maps(fmt::format("/proc/{}/maps", process));
    if (!maps)
        return true;
    std::string line, range, rights, offset, device;
    const std::string wanted = fmt::format("{:02x}:{:02x}", major(device_), minor(device_));
    while (std::getline(maps, line)) {
        ino_t inode = 0;
        if (std::istringstream(line) >> range >> rights >> offset >> device >> inode && inode == inode_ &&
            device == wanted)
            return true;
    }
    return false;
}

bool catalogue::can_be_written_within(std::chrono::milliseconds patience) const
{
    if (!take_within(*lock_, patience))
        return false;
    pthread_rwlock_unlock(lock_);
    return true;
}

void recount(app_segment &segment)
{
    uint32_t predefined = 0, own = 0;
    for (uint32_t i = 0; i < mix::wire::app_entries; i++)
        if (__atomic_load_n(&segment.entries[i].in_use, __ATOMIC_ACQUIRE) != 0)
            ++(i < mix::wire::app_first_user_defined ? predefined : own);
    segment.cur_predef_app_num = predefined;
    segment.cur_app_num = predefined + own;
}

} // namespace mixd
