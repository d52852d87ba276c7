#include "appliance/mixsh/history.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace mixsh
{

namespace
{

bool write_all(int to, std::string_view text)
{
    while (!text.empty()) {
        const auto written = ::write(to, text.data(), text.size());
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// XDG rules: a path that is not absolute is as good as none.
std::string absolute(const char *variable)
{
    const char *path = std::getenv(variable);
    return path && path[0] == '/' ? path : "";
}

} // namespace

history_file::history_file(std::string path, std::size_t most) : path_(std::move(path)), most_(most) {}

std::string history_file::usual_path()
{
    if (const auto state = absolute("XDG_STATE_HOME"); !state.empty())
        return state + "/mix/history";
    if (const auto home = absolute("HOME"); !home.empty())
        return home + "/.local/state/mix/history";
    return {};
}

std::vector<std::string> history_file::load()
{
    std::vector<std::string> lines;
    if (path_.empty())
        return lines;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);)
        if (!line.empty())
            lines.push_back(std::move(line));
    const bool long_file = lines.size() > 2 * most_;
    if (lines.size() > most_)
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most_));
    if (long_file)
        shorten(lines);
    return lines;
}

void history_file::shorten(const std::vector<std::string> &lines)
{
    const auto fresh = fmt::format("{}.{}", path_, getpid());
    const int to = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (to < 0)
        return;
    std::string all;
    for (const auto &line : lines)
        all += line + "\n";
    const bool written = write_all(to, all);
    close(to);
    if (!written || rename(fresh.c_str(), path_.c_str()) != 0)
        unlink(fresh.c_str());
}

void history_file::add(std::string_view line)
{
    if (path_.empty() || line.empty())
        return;
    const auto folder = std::filesystem::path(path_).parent_path();
    std::error_code error;
    if (std::filesystem::create_directories(folder, error))
        chmod(folder.c_str(), 0700);
    const int to = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (to < 0)
        return;
    std::string text(line);
    write_all(to, text + "\n"); // one write: lines of several sessions stay whole
    close(to);
}

} // namespace mixsh
