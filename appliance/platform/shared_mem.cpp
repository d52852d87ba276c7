#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/shared_mem.h"

namespace
{

/* Whether the object is one to be trusted, and large enough; a fresh or smaller one is grown to the size. */
bool prepare(int fd, size_t size)
{
    struct stat is;
    if (fstat(fd, &is) != 0 || (is.st_uid != geteuid() && is.st_uid != 0))
        return false;
    return static_cast<size_t>(is.st_size) >= size || ftruncate(fd, static_cast<off_t>(size)) == 0;
}

} // namespace

void *init_shared_mem(const char *name, size_t size)
{
    if (name == nullptr || *name == '\0' || size == 0)
        return nullptr;
    const std::string object = *name == '/' ? name : std::string("/") + name;
    const int fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
    if (fd < 0)
        return nullptr;
    void *mapped =
        prepare(fd, size) ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    return mapped != MAP_FAILED ? mapped : nullptr;
}
