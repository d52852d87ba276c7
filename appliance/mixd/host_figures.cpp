#include "appliance/mixd/host_figures.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <unistd.h>

#include "appliance/wire/text.h"

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

std::vector<host_processors::ticks> host_processors::now()
{
    std::vector<ticks> out;
    std::ifstream file("/proc/stat");
    for (std::string line; std::getline(file, line) && line.rfind("cpu", 0) == 0;) {
        std::string name;
        uint64_t user = 0, nice = 0, system = 0, idle = 0, wait = 0, irq = 0, soft = 0, steal = 0;
        std::istringstream(line) >> name >> user >> nice >> system >> idle >> wait >> irq >> soft >> steal;
        ticks is;
        is.user = user + nice;
        is.system = system + irq + soft;
        is.busy = is.user + is.system + steal;
        is.all = is.busy + idle + wait;
        out.push_back(is);
    }
    if (out.empty())
        out.emplace_back();
    return out;
}

/* otherwise: what stays when no time has passed between the two. */
cpu_record host_processors::difference(const ticks &is, const ticks &before, cpu_record otherwise)
{
    const uint64_t all = is.all - std::min(before.all, is.all);
    if (all == 0)
        return otherwise;
    otherwise[cpu_busy] = percent(is.busy - std::min(before.busy, is.busy), all);
    otherwise[cpu_user] = percent(is.user - std::min(before.user, is.user), all);
    otherwise[cpu_system] = percent(is.system - std::min(before.system, is.system), all);
    return otherwise;
}

namespace
{

cpu_record with_load(cpu_record record)
{
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    record[cpu_count] = host_cpu_count();
    record[cpu_load] = static_cast<uint32_t>(std::lround(load * 100));
    return record;
}

} // namespace

cpu_record host_processors::read()
{
    const ticks is = now().front();
    last_ = with_load(difference(is, before_, last_));
    before_ = is;
    return last_;
}

cpu_record host_processors::since_start()
{
    return with_load(difference(now().front(), {}, {}));
}

std::vector<cpu_each_row> host_processors::read_each()
{
    const std::vector<ticks> is = now();
    each_before_.resize(is.size());
    std::vector<cpu_each_row> out;
    for (size_t i = 1; i < is.size(); i++) {
        const cpu_record one = difference(is[i], each_before_[i], {});
        out.push_back({static_cast<uint16_t>(i - 1), static_cast<uint16_t>(one[cpu_busy]),
                       static_cast<uint16_t>(one[cpu_user]), static_cast<uint16_t>(one[cpu_system])});
    }
    each_before_ = is;
    return out;
}

namespace
{

/* The name stands in brackets and may hold anything, brackets too. */
std::optional<cpu_process_row> read_process(const std::filesystem::path &folder)
{
    std::string line;
    std::ifstream file(folder / "stat");
    if (!std::getline(file, line))
        return {}; /* it has ended meanwhile */
    const size_t open = line.find('('), close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        return {};
    cpu_process_row row{};
    row.pid = static_cast<uint32_t>(std::strtoul(line.c_str(), nullptr, 10));
    fill_text(row.name, std::string_view(line).substr(open + 1, close - open - 1));
    std::istringstream fields(line.substr(close + 1));
    std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
    /* From the state on, which is the third field of the line: utime is the 14th, stime the 15th. */
    constexpr size_t user = 11, system = 12, threads = 17, pages = 21;
    if (words.size() <= pages)
        return {};
    const auto number = [&](size_t at) { return std::strtoull(words[at].c_str(), nullptr, 10); };
    row.cpu_ms = (number(user) + number(system)) * 1000 / static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
    row.threads = static_cast<uint32_t>(number(threads));
    row.memory_kib = number(pages) * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
    return row;
}

} // namespace

std::vector<cpu_process_row> host_processes(process_order order, size_t most, size_t &all)
{
    std::vector<cpu_process_row> out;
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator("/proc", failed)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        if (const auto row = read_process(entry.path()))
            out.push_back(*row);
    }
    all = out.size();
    const auto weight = [order](const cpu_process_row &row) {
        return order == process_order::by_memory ? uint64_t{row.memory_kib} : uint64_t{row.cpu_ms};
    };
    std::sort(out.begin(), out.end(), [&](const cpu_process_row &left, const cpu_process_row &right) {
        return std::pair(weight(right), uint32_t{left.pid}) < std::pair(weight(left), uint32_t{right.pid});
    });
    out.resize(std::min(out.size(), most));
    return out;
}

std::vector<cpu_interrupt_row> host_interrupts()
{
    std::vector<cpu_interrupt_row> out;
    std::ifstream file("/proc/interrupts");
    std::string line;
    std::getline(file, line); /* names of the processors */
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string name, word;
        if (!(words >> name) || name.back() != ':')
            continue;
        name.pop_back();
        cpu_interrupt_row row{};
        fill_text(row.name, name);
        std::string what;
        while (words >> word) {
            if (what.empty() && word.find_first_not_of("0123456789") == std::string::npos)
                row.count += std::strtoull(word.c_str(), nullptr, 10);
            else
                what += (what.empty() ? "" : " ") + word;
        }
        fill_text(row.what, what);
        out.push_back(row);
    }
    return out;
}

uint32_t host_up_seconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint32_t>(now.tv_sec);
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

namespace
{

/* The files of a class of devices whose names begin and end so, in thousandths of a degree. */
void look_for_temperatures(const char *folder, std::string_view begins, std::string_view ends,
                           std::optional<int16_t> &hottest)
{
    std::error_code failed;
    for (const auto &device : std::filesystem::directory_iterator(folder, failed))
        for (const auto &entry : std::filesystem::directory_iterator(device.path(), failed)) {
            const std::string name = entry.path().filename();
            int milli = 0;
            if (name.starts_with(begins) && name.ends_with(ends) && std::ifstream(entry.path()) >> milli)
                hottest = std::max(hottest.value_or(INT16_MIN), static_cast<int16_t>(milli / 1000));
        }
}

} // namespace

/* Where the kernel has no thermal zones, the sensors of the board. */
std::optional<int16_t> host_temperature()
{
    std::optional<int16_t> hottest;
    look_for_temperatures("/sys/class/thermal", "temp", "temp", hottest);
    if (!hottest)
        look_for_temperatures("/sys/class/hwmon", "temp", "_input", hottest);
    return hottest;
}

} // namespace mixd
