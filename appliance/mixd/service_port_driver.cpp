/*
 * The port driver: message type 59 of daemon 1 (and of the main daemon for data-plane driver information), on
 * every board; and the data-plane counters, type 69 of daemon 0. Ports are the host's interfaces with a
 * device behind them or not, the loopback excepted, in the order of their indexes; a port's number is its
 * place in it, from 0.
 */
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <fmt/format.h>
#include <net/if.h>

#include "appliance/mixd/names.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/ports.h"

namespace mixd
{

namespace
{

using namespace mix::wire;
namespace fs = std::filesystem;

const fs::path interfaces = "/sys/class/net";

constexpr const char *counter_files[] = {"rx_bytes",  "rx_packets", "rx_errors", "rx_dropped",
                                         "tx_bytes",  "tx_packets", "tx_errors", "tx_dropped",
                                         "multicast", "collisions"};
static_assert(std::size(counter_files) == port_counters);

int64_t number_in(const fs::path &file)
{
    int64_t value = 0;
    std::ifstream(file) >> value; /* a file that can't be read leaves 0 */
    return value;
}

std::string word_in(const fs::path &file)
{
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

std::vector<std::string> port_names()
{
    std::map<int64_t, std::string> by_index;
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(interfaces, failed)) {
        const std::string name = entry.path().filename();
        const int64_t index = number_in(entry.path() / "ifindex");
        if (name != "lo" && index > 0)
            by_index[index] = name;
    }
    std::vector<std::string> out;
    for (const auto &[index, name] : by_index)
        out.push_back(name);
    return out;
}

port_stats_record stats_of(const std::string &name)
{
    port_stats_record out{};
    fill_text(out.name, name);
    for (size_t i = 0; i < port_counters; i++)
        out.counters[i] =
            static_cast<uint64_t>(number_in(interfaces / name / "statistics" / counter_files[i]));
    return out;
}

bool is_up(const std::string &name)
{
    return word_in(interfaces / name / "operstate") == "up";
}

/* "virtio_net"; interfaces without a device are the kernel's own. */
std::string link_name(const fs::path &link, const char *otherwise)
{
    std::error_code failed;
    const fs::path leads_to = fs::read_symlink(link, failed);
    return failed ? otherwise : leads_to.filename().string();
}

std::vector<std::string> bridges()
{
    std::vector<std::string> out;
    for (const std::string &name : port_names())
        if (fs::exists(interfaces / name / "bridge"))
            out.push_back(name);
    return out;
}

class port_driver : public service
{
  public:
    explicit port_driver(setup &with);

  private:
    struct px_settings {
        uint8_t a = 0, b = 0;
    };
    using port_key = std::tuple<uint32_t, uint16_t>; /* slot of the board, port */

    int32_t answer(const request &, reply &);
    int32_t show_info(const drv_head &, reply &) const;
    int32_t show_stats(const request &, const drv_head &, reply &) const;
    int32_t show_bridge(const request &, const drv_head &, reply &) const;
    int32_t show_driver(const request &, const drv_head &, reply &) const;
    int32_t control(const request &, reply &);
    int32_t show_dp_driver(const request &, reply &) const;
    int32_t counters(const request &, reply &);

    std::map<port_key, px_settings> px_;
    std::map<std::tuple<uint32_t, uint32_t, uint32_t>, std::vector<uint8_t>>
        controls_; /* board, code, command */
    uint32_t eye_requests_ = 0, drained_ = 0;
};

port_driver::port_driver(setup &with)
{
    with.serve_on_boards(drv_daemon, drv_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); });
    with.serve_on_boards(drv_main, counter_type,
                         [this](const request &asked, reply &out) { return counters(asked, out); });
    with.serve(drv_main, drv_type,
               [this](const request &asked, reply &out) { return show_dp_driver(asked, out); });
}

/* A reply of the request's layout: its head, then the data. */
template <class... Data>
int32_t headed(const drv_head &asked, reply &out, const Data &...data)
{
    out.append(&asked, drv_data);
    (out.append(data), ...);
    return 0;
}

int32_t port_driver::answer(const request &asked, reply &out)
{
    const auto head = asked.record<drv_head>();
    const port_key port{asked.at.slot, head.port};
    switch (head.code) {
    case drv_port_info:
        return show_info(head, out);
    case drv_port_stats:
        return show_stats(asked, head, out);
    case drv_bridge_stats:
        return show_bridge(asked, head, out);
    case drv_port_maxnum: {
        drv_head answered = head;
        answered.port = static_cast<uint16_t>(port_names().size());
        return headed(answered, out);
    }
    case drv_dev_ioctl:
    case drv_hwif_ioctl:
        return control(asked, out);
    case drv_eye:
        eye_requests_++;
        return headed(head, out, uint32_t{eye_requests_});
    case drv_port_drv_info:
        return show_driver(asked, head, out);
    case drv_set_px_config:
        px_[port] = {head.option_a, head.option_b};
        return headed(head, out, px_[port]);
    case drv_px_config:
        return headed(head, out, px_[port]);
    case drv_port_valid:
        return headed(head, out, uint32_t{head.port < port_names().size() ? 1u : 0u});
    default:
        return -EINVAL;
    }
}

int32_t port_driver::show_info(const drv_head &asked, reply &out) const
{
    const auto names = port_names();
    if (asked.port >= names.size())
        return -ENODEV;
    const std::string &name = names[asked.port];
    const port_stats_record stats = stats_of(name);
    port_info_record info{};
    info.up = is_up(name) ? 1 : 0;
    info.mbit_per_second =
        static_cast<uint64_t>(std::max<int64_t>(number_in(interfaces / name / "speed"), 0));
    info.received_bytes = stats.counters[received_bytes];
    info.sent_bytes = stats.counters[sent_bytes];
    info.mtu = static_cast<uint64_t>(number_in(interfaces / name / "mtu"));
    return headed(asked, out, info);
}

int32_t port_driver::show_stats(const request &asked, const drv_head &head, reply &out) const
{
    const auto names = port_names();
    const bool all = head.flag == 1;
    if (!all && head.port >= names.size())
        return -ENODEV;
    port_stats_head who{};
    fill_text(who.board, asked.at.name);
    who.cpu = asked.to.instance;
    const size_t first = all ? 0 : head.port;
    const size_t last = all ? std::min<size_t>(names.size(), most_port_stats) : first + 1;
    who.count = static_cast<uint16_t>(last - first);
    headed(head, out, who);
    for (size_t i = first; i < last; i++)
        out.append(stats_of(names[i]));
    return 0;
}

int32_t port_driver::show_bridge(const request &asked, const drv_head &head, reply &out) const
{
    const auto all = bridges();
    if (head.index >= all.size())
        return -ENODEV;
    const std::string &name = all[head.index];
    std::vector<std::string> ports;
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(interfaces / name / "brif", failed))
        ports.push_back(entry.path().filename());
    std::sort(ports.begin(), ports.end());
    ports.resize(std::min<size_t>(ports.size(), most_bridge_ports));
    bridge_stats_head who{};
    fill_text(who.board, asked.at.name);
    fill_text(who.bridge, name);
    who.count = static_cast<uint32_t>(ports.size());
    headed(head, out, who);
    for (const std::string &port : ports)
        out.append(stats_of(port));
    return 0;
}

int32_t port_driver::show_driver(const request &asked, const drv_head &head, reply &out) const
{
    const auto names = port_names();
    if (head.port >= names.size())
        return -ENODEV;
    const std::string &name = names[head.port];
    port_drv_record is{};
    fill_text(is.board, asked.at.name);
    fill_text(is.name, name);
    fill_text(is.driver, link_name(interfaces / name / "device/driver", "none"));
    fill_text(is.bus, link_name(interfaces / name / "device", "virtual"));
    return headed(head, out, is);
}

int32_t port_driver::show_dp_driver(const request &asked, reply &out) const
{
    const auto wanted = asked.record<drv_dp_request>();
    const auto names = port_names();
    if (wanted.code != drv_dp_drv_info)
        return -EINVAL;
    if (wanted.b >= names.size())
        return -ENODEV;
    const std::string &name = names[wanted.b];
    dp_drv_record is{};
    is.port = wanted.b;
    is.up = is_up(name) ? 1 : 0;
    const std::string mac = word_in(interfaces / name / "address");
    std::sscanf(mac.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &is.mac[0], &is.mac[1], &is.mac[2], &is.mac[3],
                &is.mac[4], &is.mac[5]);
    fill_text(is.driver, link_name(interfaces / name / "device/driver", "none"));
    return headed(asked.record<drv_head>(), out, is);
}

/* The board keeps what it is told; the one control request with an answer gets the slot of the board that ran
 * it. */
int32_t port_driver::control(const request &asked, reply &out)
{
    auto head = asked.record<drv_ioctl_head>();
    if (asked.bytes.size() < sizeof head || asked.bytes.size() - sizeof head < head.length)
        return -EINVAL;
    const auto data = asked.bytes.subspan(sizeof head, head.length);
    controls_[{asked.at.slot, uint32_t{head.code}, uint32_t{head.command}}].assign(data.begin(), data.end());
    out.append(head);
    if (head.code == drv_hwif_ioctl && head.command == 1)
        out.append(uint32_t{asked.at.slot});
    else
        out.append(data.data(), data.size());
    return 0;
}

std::vector<packet_counter_row> softnet_rows()
{
    std::vector<packet_counter_row> rows;
    std::ifstream file("/proc/net/softnet_stat");
    for (std::string line; std::getline(file, line);) {
        packet_counter_row row{};
        uint64_t processed = 0, dropped = 0, squeezed = 0;
        std::istringstream(line) >> std::hex >> processed >> dropped >> squeezed;
        row.processed = processed;
        row.dropped = dropped;
        row.squeezed = squeezed;
        rows.push_back(row);
    }
    return rows;
}

int32_t port_driver::counters(const request &asked, reply &out)
{
    const auto wanted = asked.record<counter_request>();
    if (wanted.code == counter_drain) {
        drained_++;
        return 0;
    }
    if (wanted.code != counter_show)
        return -EINVAL;
    std::vector<packet_counter_row> rows = softnet_rows();
    if (wanted.which >= counter_sum) {
        packet_counter_sum sum{};
        fill_text(sum.board, asked.at.name);
        sum.cpu = asked.to.instance;
        sum.processors = static_cast<uint32_t>(rows.size());
        for (const packet_counter_row &row : rows) {
            sum.sum.processed += row.processed;
            sum.sum.dropped += row.dropped;
            sum.sum.squeezed += row.squeezed;
        }
        out.append(sum);
        return 0;
    }
    rows.resize(std::min<size_t>(rows.size(), most_counter_rows));
    packet_counters head{};
    fill_text(head.board, asked.at.name);
    head.cpu = asked.to.instance;
    head.count = static_cast<uint32_t>(rows.size());
    out.append(head);
    out.append(rows.data(), rows.size() * sizeof rows[0]);
    return 0;
}

} // namespace

const service_entry port_driver_service = {"port_driver", {}, [](setup &with) -> std::unique_ptr<service> {
                                               return std::make_unique<port_driver>(with);
                                           }};

} // namespace mixd
