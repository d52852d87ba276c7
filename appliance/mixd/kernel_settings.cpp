#include "appliance/mixd/kernel_settings.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>

#include "appliance/mixd/event.h"

namespace mixd
{

std::optional<int64_t> read_kernel_number(const std::string &file)
{
    const descriptor from(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    char text[32];
    const ssize_t size = from ? read(from.get(), text, sizeof text) : -1;
    int64_t value = 0;
    if (size <= 0 || std::from_chars(text, text + size, value).ec != std::errc{})
        return {};
    return value;
}

int write_kernel_number(const std::string &file, int64_t value)
{
    const descriptor to(open(file.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string text = fmt::format("{}\n", value);
    if (!to || write(to.get(), text.data(), text.size()) < 0)
        return -errno;
    return 0;
}

} // namespace mixd
