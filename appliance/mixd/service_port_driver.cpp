/*
 * The port driver: message type 59 of daemon 1 (and of the main daemon for data-plane driver information), on
 * every board; and the data-plane counters, type 69 of daemon 0. Ports are the host's interfaces with a
 * device behind them or not, the loopback excepted, in the order of their indexes; a port's number is its
 * place in it, from 0.
 *
 * What control requests set belongs to the board that executed them, and is kept in the store. With --apply
 * this board's ports really go up and down and get their MTU.
 */
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <fmt/format.h>
#include <net/if.h>

#include "appliance/mixd/ethtool.h"
#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/ports.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;
namespace fs = std::filesystem;

const fs::path interfaces = "/sys/class/net";

constexpr const char *migrations[] = {
    MIXD_KEPT_ROWS_TABLE("port_setting"),
};

/* What a command has set of a port. */
struct port_setting {
    uint32_t slot = 0; /* of the board */
    uint32_t port = 0;
    uint32_t command = 0; /* a device control's, or drv_set_px_config */
    std::array<uint32_t, most_control_words> words{};
};
struct place_of_setting {
    std::array<uint32_t, 3> operator()(const port_setting &one) const
    {
        return {one.slot, one.port, one.command};
    }
};

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

/* The driver's own word, else what the device is bound to. */
std::string driver_name(const std::string &name)
{
    if (const auto driver = driver_of(name); driver && !driver->name.empty())
        return driver->name;
    std::error_code failed;
    const fs::path leads_to = fs::read_symlink(interfaces / name / "device/driver", failed);
    return failed ? "none" : leads_to.filename().string();
}

std::string bus_name(const std::string &name)
{
    std::error_code failed;
    const fs::path leads_to = fs::read_symlink(interfaces / name / "device", failed);
    return failed ? "virtual" : leads_to.filename().string();
}

std::vector<std::string> bridges()
{
    std::vector<std::string> out;
    for (const std::string &name : port_names())
        if (fs::exists(interfaces / name / "bridge"))
            out.push_back(name);
    return out;
}

class port_driver final : public service
{
  public:
    explicit port_driver(setup &with);
    void begin() override;

  private:
    using words = decltype(port_setting::words);
    struct lane_requests {
        uint32_t count = 0;
        std::array<uint8_t, drv_serdes_size> last{};
    };

    int32_t answer(const request &, reply &);
    int32_t show_info(const request &, const drv_head &, reply &) const;
    int32_t show_stats(const request &, const drv_head &, reply &) const;
    int32_t show_driver_stats(const request &, const drv_head &, reply &) const;
    int32_t show_bridge(const request &, const drv_head &, reply &) const;
    int32_t show_driver(const request &, const drv_head &, reply &) const;
    int32_t show_lanes(const request &, const drv_head &, reply &);
    int32_t measure(const request &, const drv_head &, reply &);
    int32_t control(const request &, reply &);
    int32_t control_device(const request &, const drv_ioctl_head &);
    int32_t control_interface(const request &, const drv_ioctl_head &, reply &);
    int32_t read_control(const request &, uint32_t port, uint32_t place, uint32_t &value) const;
    int32_t show_dp_driver(const request &, reply &) const;
    int32_t counters(const request &, reply &);
    /* What a command has set of a port of the board; nothing when it was never set. */
    [[nodiscard]] std::optional<words> setting(uint32_t slot, uint32_t port, uint32_t command) const;
    void keep(const port_setting &);
    [[nodiscard]] int apply(const board &, uint32_t port, uint32_t command, uint32_t value) const;

    store &store_;
    const options &options_;
    const board_model &boards_;
    kept_rows<port_setting, place_of_setting> settings_;
    std::map<std::pair<uint32_t, uint32_t>, lane_requests> measured_; /* by board and port */
    std::map<uint32_t, uint32_t> drained_;                            /* by board */
};

port_driver::port_driver(setup &with)
    : store_(with.state()), options_(with.settings()), boards_(with.boards()),
      settings_(store_, "port_setting")
{
    with.serve_on_boards(drv_daemon, drv_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); });
    with.serve_on_boards(drv_main, counter_type,
                         [this](const request &asked, reply &out) { return counters(asked, out); });
    with.serve(drv_main, drv_type,
               [this](const request &asked, reply &out) { return show_dp_driver(asked, out); });
}

/* With --apply, ports are as they were left when mixd starts again. */
void port_driver::begin()
{
    settings_.begin(false);
    settings_.rows().walk({}, [this](const port_setting &one) {
        if (one.slot != boards_.here().slot)
            return true;
        if (const int failed = apply(boards_.here(), one.port, one.command, one.words[0]); failed != 0)
            log(priority::warning, fmt::format("port {}: {}", one.port, std::strerror(-failed)));
        return true;
    });
}

std::optional<port_driver::words> port_driver::setting(uint32_t slot, uint32_t port, uint32_t command) const
{
    const port_setting *kept = settings_.rows().find({slot, port, command});
    return kept != nullptr ? std::optional(kept->words) : std::nullopt;
}

void port_driver::keep(const port_setting &changed)
{
    transaction in(store_);
    settings_.put(in, changed);
    in.commit();
}

/* To the kernel: 0 or -errno. */
int port_driver::apply(const board &at, uint32_t port, uint32_t command, uint32_t value) const
{
    const auto names = port_names();
    if (!options_.apply || !at.is_this || port >= names.size())
        return 0;
    if (command == control_admin)
        return set_interface_up(names[port], value != 0);
    if (command == control_mtu && value != 0)
        return set_interface_mtu(names[port], value);
    return 0;
}

/* A reply of the request's layout: its head, then the data. */
template <class... Data>
int32_t headed(const drv_head &asked, reply &out, const Data &...data)
{
    out.append(&asked, drv_data);
    (out.append(data), ...);
    return 0;
}

/* Queries that clients send to their own board whatever the slot name the board they are about. */
int32_t port_driver::answer(const request &from, reply &out)
{
    const auto head = from.record<drv_head>();
    if (head.code == drv_dev_ioctl || head.code == drv_hwif_ioctl)
        return control(from, out);
    const board *about = head.slot == 0 ? &from.at : boards_.in_slot(head.slot);
    if (about == nullptr)
        return -ENODEV;
    const request asked{from.to, *about, from.type, from.one_way, from.bytes, from.from};
    switch (head.code) {
    case drv_port_info:
        return show_info(asked, head, out);
    case drv_port_stats:
        return show_stats(asked, head, out);
    case drv_bridge_stats:
        return show_bridge(asked, head, out);
    case drv_port_maxnum: {
        drv_head answered = head;
        answered.port = static_cast<uint16_t>(port_names().size());
        return headed(answered, out);
    }
    case drv_eye:
        return measure(asked, head, out);
    case drv_port_drv_info:
        return show_driver(asked, head, out);
    case drv_set_px_config:
        keep({asked.at.slot, head.port, drv_set_px_config, {head.option_a, head.option_b, 0}});
        return show_lanes(asked, head, out);
    case drv_px_config:
        return show_lanes(asked, head, out);
    case drv_port_valid:
        return headed(head, out, uint32_t{head.port < port_names().size() ? 1u : 0u});
    default:
        return -EINVAL;
    }
}

int32_t port_driver::show_lanes(const request &asked, const drv_head &head, reply &out)
{
    const words set = setting(asked.at.slot, head.port, drv_set_px_config).value_or(words{});
    return headed(head, out, static_cast<uint8_t>(set[0]), static_cast<uint8_t>(set[1]));
}

/* The machines that run mixd have no serial lanes to measure: the board keeps what it was asked for. */
int32_t port_driver::measure(const request &asked, const drv_head &head, reply &out)
{
    lane_requests &lanes = measured_[{asked.at.slot, head.port}];
    lanes.count++;
    if (asked.bytes.size() >= drv_data + drv_serdes_size)
        std::copy_n(asked.bytes.begin() + drv_data, drv_serdes_size, lanes.last.begin());
    port_lane_record is{};
    fill_text(is.board, asked.at.name);
    is.requests = lanes.count;
    std::copy(lanes.last.begin(), lanes.last.end(), is.last);
    return headed(head, out, is);
}

int32_t port_driver::show_info(const request &from, const drv_head &asked, reply &out) const
{
    const auto names = port_names();
    if (asked.port >= names.size())
        return -ENODEV;
    const std::string &name = names[asked.port];
    const port_stats_record stats = stats_of(name);
    port_info_record info{};
    const words admin = setting(from.at.slot, asked.port, control_admin).value_or(words{1});
    const words mtu = setting(from.at.slot, asked.port, control_mtu).value_or(words{});
    info.up = admin[0] != 0 && is_up(name) ? 1 : 0;
    info.mbit_per_second =
        static_cast<uint64_t>(std::max<int64_t>(number_in(interfaces / name / "speed"), 0));
    info.received_bytes = stats.counters[received_bytes];
    info.sent_bytes = stats.counters[sent_bytes];
    info.mtu = mtu[0] != 0 ? mtu[0] : static_cast<uint64_t>(number_in(interfaces / name / "mtu"));
    return headed(asked, out, info);
}

int32_t port_driver::show_stats(const request &asked, const drv_head &head, reply &out) const
{
    if (head.option_a == stats_of_driver && head.flag != 1)
        return show_driver_stats(asked, head, out);
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

int32_t port_driver::show_driver_stats(const request &asked, const drv_head &head, reply &out) const
{
    const auto names = port_names();
    if (head.port >= names.size())
        return -ENODEV;
    const auto all = statistics_of_driver(names[head.port]);
    const size_t first = std::min<size_t>(size_t{head.option_b} * most_driver_stats, all.size());
    const size_t last = std::min<size_t>(first + most_driver_stats, all.size());
    port_stats_head who{};
    fill_text(who.board, asked.at.name);
    who.cpu = asked.to.instance;
    who.count = static_cast<uint16_t>(last - first);
    who.all = static_cast<uint32_t>(all.size());
    headed(head, out, who);
    for (size_t i = first; i < last; i++) {
        driver_stats_record row{};
        fill_text(row.name, all[i].name);
        row.value = all[i].value;
        out.append(row);
    }
    return 0;
}

int32_t port_driver::show_bridge(const request &asked, const drv_head &head, reply &out) const
{
    const auto all = bridges();
    if (head.index >= all.size())
        return -ENODEV;
    const fs::path folder = interfaces / all[head.index];
    std::vector<std::string> ports;
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(folder / "brif", failed))
        ports.push_back(entry.path().filename());
    std::sort(ports.begin(), ports.end());
    ports.resize(std::min<size_t>(ports.size(), most_bridge_ports));
    const auto number = [](const fs::path &file) { return static_cast<uint32_t>(number_in(file)); };
    bridge_stats_head who{};
    fill_text(who.board, asked.at.name);
    who.spanning_tree = number(folder / "bridge/stp_state") != 0 ? 1 : 0;
    who.ageing_s = number(folder / "bridge/ageing_time") / 100; /* the kernel counts hundredths */
    who.count = static_cast<uint32_t>(ports.size());
    who.bridge = stats_of(all[head.index]);
    headed(head, out, who);
    for (const std::string &port : ports)
        out.append(bridge_port_record{stats_of(port), number(interfaces / port / "brport/state"),
                                      number(interfaces / port / "brport/path_cost")});
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
    fill_text(is.driver, driver_name(name));
    fill_text(is.bus, bus_name(name));
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
    if (const auto mac = read_mac(word_in(interfaces / name / "address")))
        std::copy(mac->begin(), mac->end(), is.mac);
    fill_text(is.driver, driver_name(name));
    return headed(asked.record<drv_head>(), out, is);
}

int32_t port_driver::control(const request &asked, reply &out)
{
    const auto head = asked.record<drv_ioctl_head>();
    if (asked.bytes.size() < sizeof head || asked.bytes.size() - sizeof head < head.length)
        return -EINVAL;
    out.append(head);
    return head.code == drv_dev_ioctl ? control_device(asked, head) : control_interface(asked, head, out);
}

int32_t port_driver::control_device(const request &asked, const drv_ioctl_head &head)
{
    const port_control *what = find_control(head.command);
    if (what == nullptr || head.length != what->words * sizeof(uint32_t))
        return -EINVAL;
    if (head.device >= port_names().size())
        return -ENODEV;
    port_setting wanted{asked.at.slot, head.device, head.command, {}};
    std::memcpy(wanted.words.data(), asked.bytes.data() + sizeof head, head.length);
    for (uint32_t i = 0; i < what->words; i++)
        if (wanted.words[i] < what->low || wanted.words[i] > what->high)
            return -ERANGE;
    if (const int failed = apply(asked.at, wanted.port, wanted.command, wanted.words[0]); failed != 0)
        return failed;
    keep(wanted);
    return 0;
}

int32_t port_driver::control_interface(const request &asked, const drv_ioctl_head &head, reply &out)
{
    const auto data = asked.bytes.subspan(sizeof head, head.length);
    switch (head.command) {
    case control_read: {
        uint32_t value = 0;
        const int32_t failed = read_control(asked, head.interface, asked.field<uint32_t>(sizeof head), value);
        out.append(value);
        return failed;
    }
    case control_message: {
        const request message{asked.to, asked.at, asked.type, asked.one_way, data, asked.from};
        const auto code = message.field<uint32_t>(0);
        if (code != drv_set_px_config && code != drv_eye)
            return -EINVAL; /* the others are asked, not executed */
        reply dropped;
        return answer(message, dropped);
    }
    default:
        return -EINVAL;
    }
}

int32_t port_driver::read_control(const request &asked, uint32_t port, uint32_t place, uint32_t &value) const
{
    value = asked.at.slot;
    if (place == control_read_slot)
        return 0;
    const port_control *what = find_control(place >> 8);
    const uint32_t word = place & 0xff;
    if (what == nullptr || word >= what->words)
        return -EINVAL;
    if (port >= port_names().size())
        return -ENODEV;
    const auto set = setting(asked.at.slot, port, what->command);
    value = set ? (*set)[word] : what->usual;
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
        drained_[asked.at.slot]++;
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
    head.drained = drained_[asked.at.slot];
    out.append(head);
    out.append(rows.data(), rows.size() * sizeof rows[0]);
    return 0;
}

} // namespace

const service_entry port_driver_service = {
    "port_driver", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<port_driver>(with); }};

} // namespace mixd
