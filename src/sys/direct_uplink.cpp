/* Direct uplink: on while its marker file exists. */
#include <libmix/drv.h>

#include <fcntl.h>
#include <unistd.h>

#include "platform/board.h"

namespace
{

constexpr const char *marker = "/flash/platform/direct_uplink_cpu.conf";

int create_marker()
{
    const int file = ::open(marker, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return file < 0 ? file : ::close(file);
}

} // namespace

int drv_direct_uplink_is_enabled(void) noexcept
{
    if (!is_support_direct_uplink())
        return 0;
    return ::access(marker, F_OK) == 0 ? 1 : 0;
}

int drv_set_direct_uplink(int enable) noexcept
{
    if (!is_support_direct_uplink())
        return 0;
    const int result = enable != 0 ? create_marker() : ::unlink(marker);
    if (result < 0)
        return result;
    ::sync();
    return 0;
}
