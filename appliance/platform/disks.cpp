/*
 * Disk figures: all of it, what is used and what is free, in KiB (1024 bytes). By path they are the file
 * system's; free is what a user without privileges can still fill. By device they are the device's whole size
 * and what the file systems mounted from it (or from its partitions) use. libmix asks for the disks of real
 * hardware; where there is no sda, vda is meant: the same disk of a virtual machine.
 */
#include <dirent.h>
#include <sys/statvfs.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services.h"

namespace
{

constexpr uint64_t sector_bytes = 512; /* /sys counts in these, whatever the disk's own are */

struct figures {
    uint64_t total, used, free; /* KiB */
};

std::optional<figures> of_file_system(const char *path)
{
    struct statvfs is;
    if (statvfs(path, &is) != 0)
        return std::nullopt;
    const auto kib = [&](uint64_t blocks) { return blocks * is.f_frsize / 1024; };
    return figures{kib(is.f_blocks), kib(is.f_blocks - is.f_bfree), kib(is.f_bavail)};
}

std::string first_line(const std::string &path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

std::vector<std::string> entries_of(const std::string &directory)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> open(opendir(directory.c_str()), closedir);
    if (open == nullptr)
        return names;
    while (const dirent *entry = readdir(open.get()))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    return names;
}

/* The directory of a disk, or of a partition, which stands below its disk's. */
std::optional<std::string> directory_of(const std::string &name)
{
    const std::string block = "/sys/block/";
    if (!first_line(block + name + "/size").empty())
        return block + name;
    for (const std::string &disk : entries_of(block))
        if (!first_line(block + disk + '/' + name + "/size").empty())
            return block + disk + '/' + name;
    return std::nullopt;
}

/* "major:minor" of the device and of its partitions. */
std::set<std::string> numbers_of(const std::string &directory)
{
    std::set<std::string> numbers{first_line(directory + "/dev")};
    for (const std::string &each : entries_of(directory))
        if (const std::string number = first_line(directory + '/' + each + "/dev"); !number.empty())
            numbers.insert(number);
    return numbers;
}

/* Mount points are written with the characters that separate columns as \ and three octal digits. */
std::string unescaped(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        unsigned value = 0;
        if (text[0] == '\\' && text.size() >= 4 &&
            std::from_chars(text.data() + 1, text.data() + 4, value, 8).ptr == text.data() + 4) {
            out += static_cast<char>(value);
            text.remove_prefix(4);
            continue;
        }
        out += text[0];
        text.remove_prefix(1);
    }
    return out;
}

/* What the file systems on those devices use; each device counts once, however often it is mounted. */
uint64_t used_on(std::set<std::string> numbers)
{
    uint64_t used = 0;
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream columns(line);
        std::string id, parent, number, root, point;
        columns >> id >> parent >> number >> root >> point;
        if (numbers.count(number) == 0)
            continue;
        const auto is = of_file_system(unescaped(point).c_str());
        if (!is)
            continue;
        used += is->used;
        numbers.erase(number);
    }
    return used;
}

std::optional<figures> of_device(std::string_view device)
{
    if (device.starts_with("/dev/"))
        device.remove_prefix(5);
    const std::string name(device);
    if (name.empty() || name.find('/') != std::string::npos || name.front() == '.')
        return std::nullopt;
    auto directory = directory_of(name);
    if (!directory && name.starts_with("sd"))
        directory = directory_of("vd" + name.substr(2));
    if (!directory)
        return std::nullopt;
    const std::string size = first_line(*directory + "/size");
    uint64_t sectors = 0;
    if (std::from_chars(size.data(), size.data() + size.size(), sectors).ec != std::errc())
        return std::nullopt;
    const uint64_t total = sectors * sector_bytes / 1024;
    const uint64_t used = used_on(numbers_of(*directory));
    return figures{total, used, total > used ? total - used : 0};
}

int give(const std::optional<figures> &is, uint64_t *first, uint64_t *second, uint64_t *third)
{
    if (!is)
        return -1;
    if (first != nullptr)
        *first = is->total;
    if (second != nullptr)
        *second = is->used;
    if (third != nullptr)
        *third = is->free;
    return 0;
}

} // namespace

int tq_get_diskinfo_bypath(const char *path, uint64_t *first, uint64_t *second, uint64_t *third)
{
    return path != nullptr ? give(of_file_system(path), first, second, third) : -1;
}

/* The storage type tells nothing that /sys does not, so it is not looked at. */
int tq_get_disk_info_by_devname(const char *device, uint32_t, uint64_t *first, uint64_t *second,
                                uint64_t *third)
{
    return device != nullptr ? give(of_device(device), first, second, third) : -1;
}
