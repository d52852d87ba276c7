#include "appliance/mixd/lease_file.h"

#include <arpa/inet.h>
#include <charconv>
#include <fstream>
#include <sstream>
#include <sys/inotify.h>

namespace mixd
{

namespace
{

/* Several writes in a row are one change. */
constexpr uint64_t settle_us = 20'000;
/* How often a directory that is not there is looked for. */
constexpr uint64_t look_again_us = 2'000'000;

/* The next word of a line, without it. */
std::string_view take_word(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

bool read_lease(std::string_view line, lease &one)
{
    const std::string_view expiry = take_word(line), mac = take_word(line), address = take_word(line);
    const std::string_view host = take_word(line);
    const auto [end, error] = std::from_chars(expiry.data(), expiry.data() + expiry.size(), one.expiry);
    const auto station = read_mac(mac);
    in_addr binary{};
    if (error != std::errc{} || end != expiry.data() + expiry.size() || !station ||
        inet_pton(AF_INET, std::string(address).c_str(), &binary) != 1 || host.empty())
        return false;
    one.mac = *station;
    one.address = ntohl(binary.s_addr);
    if (host != "*")
        one.host = host;
    return true;
}

} // namespace

std::vector<lease> parse_leases(std::string_view text)
{
    std::vector<lease> leases;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        lease one;
        if (read_lease(line, one))
            leases.push_back(std::move(one));
    }
    return leases;
}

lease_file::lease_file(std::string path, sd_event *loop, on_change changed)
    : path_(std::move(path)), loop_(loop), changed_(std::move(changed))
{
    const size_t slash = path_.rfind('/');
    directory_ = slash == std::string::npos ? "." : path_.substr(0, std::max<size_t>(slash, 1));
    name_ = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    timer_ = idle_timer(loop_, on_timer, this, "lease file timer");
    watch();
    read();
}

/* The directory is watched, not the file: it may be replaced as well as rewritten. */
void lease_file::watch()
{
    sd_event_source *source = nullptr;
    const int result =
        sd_event_add_inotify(loop_, &source, directory_.c_str(),
                             IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                 IN_CREATE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR,
                             on_event, this);
    directory_source_.reset(result < 0 ? nullptr : source);
    if (result < 0)
        go_off_after(timer_, look_again_us);
}

int lease_file::on_event(sd_event_source *, const struct inotify_event *event, void *data)
{
    auto *self = static_cast<lease_file *>(data);
    const bool directory_gone = (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
    if (directory_gone)
        self->directory_source_.reset();
    if (directory_gone || (event->mask & IN_Q_OVERFLOW) != 0 ||
        (event->len != 0 && self->name_ == event->name))
        go_off_after(self->timer_, settle_us);
    return 0;
}

int lease_file::on_timer(sd_event_source *, uint64_t, void *data)
{
    auto *self = static_cast<lease_file *>(data);
    if (!self->directory_source_)
        self->watch();
    self->read();
    return 0;
}

/* A file that is gone has no leases. */
void lease_file::read()
{
    std::ifstream file(path_, std::ios::binary);
    std::stringstream content;
    if (file)
        content << file.rdbuf();
    changed_(parse_leases(content.str()));
}

} // namespace mixd
