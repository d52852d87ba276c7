#include "appliance/mixd/host_figures.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/statvfs.h>
#include <unistd.h>

namespace mixd
{

using namespace mix::wire;

namespace
{

std::map<std::string, uint64_t> read_meminfo()
{
    std::map<std::string, uint64_t> out;
    std::ifstream file("/proc/meminfo");
    std::string name, rest;
    uint64_t kib = 0;
    while (file >> name >> kib) {
        name.pop_back(); /* the colon */
        out[name] = kib;
        std::getline(file, rest);
    }
    return out;
}

uint32_t percent(uint64_t part, uint64_t whole)
{
    return whole != 0 ? static_cast<uint32_t>((part * 100 + whole / 2) / whole) : 0;
}

} // namespace

uint32_t host_cpu_count()
{
    const long count = ::sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<uint32_t>(count) : 1;
}

host_processors::ticks host_processors::now()
{
    std::ifstream file("/proc/stat");
    std::string name;
    uint64_t user = 0, nice = 0, system = 0, idle = 0, wait = 0, irq = 0, soft = 0, steal = 0;
    file >> name >> user >> nice >> system >> idle >> wait >> irq >> soft >> steal;
    ticks is;
    is.user = user + nice;
    is.system = system + irq + soft;
    is.busy = is.user + is.system + steal;
    is.all = is.busy + idle + wait;
    return is;
}

cpu_record host_processors::read()
{
    const ticks is = now();
    const uint64_t all = is.all - std::min(before_.all, is.all);
    if (all != 0) {
        last_[cpu_busy] = percent(is.busy - std::min(before_.busy, is.busy), all);
        last_[cpu_user] = percent(is.user - std::min(before_.user, is.user), all);
        last_[cpu_system] = percent(is.system - std::min(before_.system, is.system), all);
    }
    before_ = is;
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    last_[cpu_count] = host_cpu_count();
    last_[cpu_load] = static_cast<uint32_t>(std::lround(load * 100));
    return last_;
}

memory_figures host_memory(uint32_t mode)
{
    std::map<std::string, uint64_t> info = read_meminfo();
    memory_figures out{};
    out[mem_total] = info["MemTotal"];
    out[mem_free] = info["MemFree"];
    out[mem_available] = info.count("MemAvailable") != 0 ? info["MemAvailable"] : info["MemFree"];
    out[mem_buffers] = info["Buffers"];
    out[mem_cached] = info["Cached"];
    out[mem_swap_total] = info["SwapTotal"];
    out[mem_swap_free] = info["SwapFree"];
    const uint64_t left = mode == mem_with_caches ? out[mem_free] : out[mem_available];
    out[mem_used] = out[mem_total] - std::min(left, out[mem_total]);
    out[mem_used_percent] = percent(out[mem_used], out[mem_total]);
    out[mem_mode] = mode;
    return out;
}

std::optional<int16_t> host_temperature()
{
    std::optional<int16_t> hottest;
    std::error_code failed;
    for (const auto &zone : std::filesystem::directory_iterator("/sys/class/thermal", failed)) {
        int milli = 0;
        if (zone.path().filename().string().rfind("thermal_zone", 0) == 0 &&
            std::ifstream(zone.path() / "temp") >> milli)
            hottest = std::max(hottest.value_or(INT16_MIN), static_cast<int16_t>(milli / 1000));
    }
    return hottest;
}

std::optional<storage_figures> file_system_figures(const std::string &path)
{
    struct statvfs is;
    if (::statvfs(path.c_str(), &is) != 0)
        return {};
    const auto kib = [&](uint64_t blocks) { return blocks * is.f_frsize / 1024; };
    return storage_figures{kib(is.f_blocks), kib(is.f_blocks - is.f_bfree), kib(is.f_bavail)};
}

} // namespace mixd
