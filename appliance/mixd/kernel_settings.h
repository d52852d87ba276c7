/* Numbers of the kernel's that live in one file each, under /proc/sys. */
#ifndef MIXD_KERNEL_SETTINGS_H
#define MIXD_KERNEL_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>

namespace mixd
{

std::optional<int64_t> read_kernel_number(const std::string &file);
/* 0 or -errno. */
int write_kernel_number(const std::string &file, int64_t value);

} // namespace mixd

#endif
