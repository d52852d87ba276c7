// Port drivers, data-plane counters and direct uplink.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/ports.h"

#include <algorithm>
#include <libmix/drv.h>
#include <memory>

namespace mixsh
{

extern const family port_family;

namespace
{

namespace wire = mix::wire;

request asking(wire::drv_code code)
{
    return {wire::drv_daemon, wire::drv_type, code};
}

std::uint16_t slot_of(const invocation &call)
{
    return call.number_or<std::uint16_t>("slot", 0);
}

using message = std::vector<std::uint8_t>;

message fresh()
{
    return message(wire::drv_message_size);
}

template <typename Record>
Record at(const std::uint8_t *bytes, std::size_t offset)
{
    Record out;
    std::memcpy(&out, bytes + offset, sizeof out);
    return out;
}

// --- ports by name

// Asks for the statistics of all ports of a board; they come in the order of the ports' numbers.
bool read_ports(message &into, std::uint16_t slot)
{
    drv_unit_port_stats_msg_init(into.data(), slot, 0, 0, 0, 0, 0);
    return drv_get_port_stats(into.data(), static_cast<std::uint32_t>(into.size())) == 0;
}

std::size_t ports_in(const message &answer)
{
    const auto head = at<wire::port_stats_head>(answer.data(), wire::drv_data);
    return std::min<std::size_t>(head.count, wire::most_port_stats);
}

wire::port_stats_record port_in(const message &answer, std::size_t which)
{
    return at<wire::port_stats_record>(answer.data(), wire::drv_data + sizeof(wire::port_stats_head) +
                                                          which * sizeof(wire::port_stats_record));
}

bool is_number(std::string_view word)
{
    return word.find_first_not_of("0123456789") == std::string_view::npos;
}

// Names that abbreviate a word of the commands don't stand for ports: "show port stat" is about statistics.
rating rate_port(const argument &self, const std::string &word)
{
    if (is_number(word))
        return kinds::number.rate(self, word);
    for (const command &each : port_family.commands)
        if (each.words.find(" port " + word) != std::string_view::npos)
            return {verdict::incomplete, 0,
                    "a port whose name begins a command's word is meant by its number"};
    return kinds::interface_name.rate(self, word);
}

std::vector<candidate> suggest_ports(const argument &, const std::string &)
{
    std::vector<candidate> found;
    message answer = fresh();
    if (read_ports(answer, 0))
        for (std::size_t i = 0; i < ports_in(answer); i++)
            found.push_back({field_text(port_in(answer, i).name), fmt::format("port {}", i)});
    return found;
}

const kind port_kind{"PORT", "the name of a port, or its number", rate_port, suggest_ports};

constexpr argument port_value =
    value("PORT", port_kind, "a port: its name, or its number from 0", {.high = 65535});

// Runs a command on the port that is meant; on port 0 if it was left out.
template <outcome (*Run)(invocation &, std::uint16_t port)>
outcome on_port(invocation &call)
{
    const std::string_view wanted = call.text_or("PORT", "");
    if (is_number(wanted))
        return Run(call, call.number_or<std::uint16_t>("PORT", 0));
    const bool elsewhere = std::ranges::count(call.which().arguments, "slot", &argument::name) != 0;
    message answer = fresh();
    if (!read_ports(answer, elsewhere ? slot_of(call) : 0))
        return call.fail(asking(wire::drv_port_stats), "the names of the ports can't be read");
    for (std::size_t i = 0; i < ports_in(answer); i++)
        if (field_text(port_in(answer, i).name) == wanted)
            return Run(call, static_cast<std::uint16_t>(i));
    return call.fail(fmt::format("the board has no port \"{}\"", wanted),
                     "\"show port statistics\" tells their names");
}

// --- statistics

constexpr column stats_columns[] = {
    {.title = "Board", .key = "board"},
    {.title = "Number", .key = "port_number"},
    {.title = "Port", .key = "port"},
    {.title = "In bytes", .key = "in_bytes"},
    {.title = "In packets", .key = "in_packets"},
    {.title = "Errors", .key = "in_errors"},
    {.title = "Dropped", .key = "in_dropped"},
    {.title = "Out bytes", .key = "out_bytes"},
    {.title = "Out packets", .key = "out_packets"},
    {.title = "Errors", .key = "out_errors"},
    {.title = "Dropped", .key = "out_dropped"},
};

std::vector<cell> stats_cells(const std::string &board, const wire::port_stats_record &one)
{
    const auto n = [&](wire::port_counter which) { return std::uint64_t{one.counters[which]}; };
    return {board,
            field_text(one.name),
            n(wire::received_bytes),
            n(wire::received_packets),
            n(wire::received_errors),
            n(wire::received_dropped),
            n(wire::sent_bytes),
            n(wire::sent_packets),
            n(wire::sent_errors),
            n(wire::sent_dropped)};
}

outcome show_stats(invocation &call, std::uint16_t port)
{
    message asked = fresh();
    const bool one = call.has("PORT");
    const auto cpu = call.number_or<std::uint16_t>("cpu", 0);
    if (one)
        drv_port_stats_msg_init(asked.data(), slot_of(call), cpu, port, 0, 0);
    else
        drv_unit_port_stats_msg_init(asked.data(), slot_of(call), cpu, 0, 0, 0, 0);
    const auto length = static_cast<std::uint32_t>(asked.size());
    const int result = call.has("cpu") ? drv_get_port_stats_with_cpuindex(asked.data(), length)
                                       : drv_get_port_stats(asked.data(), length);
    if (result != 0)
        return call.fail(asking(wire::drv_port_stats), "the statistics can't be read");
    const auto head = at<wire::port_stats_head>(asked.data(), wire::drv_data);
    table rows(call.out(), stats_columns);
    for (std::size_t i = 0; i < ports_in(asked); i++) {
        std::vector<cell> cells = stats_cells(field_text(head.board), port_in(asked, i));
        cells.insert(cells.begin() + 1, one ? port : i);
        rows.row(std::move(cells));
    }
    return outcome::done;
}
constexpr argument stats_arguments[] = {
    optional_value("PORT", port_kind, "one port; without it every port", {.high = 65535}), slot_option,
    cpu_option};

constexpr column driver_stats_columns[] = {{.title = "Board", .key = "board"},
                                           {.title = "Counter", .key = "counter"},
                                           {.title = "Value", .key = "value"}};

outcome show_driver_stats(invocation &call, std::uint16_t port)
{
    table rows(call.out(), driver_stats_columns);
    const auto cpu = call.number_or<std::uint16_t>("cpu", 0);
    std::uint32_t all = 1;
    for (std::uint32_t first = 0, page = 0; first < all && page <= UINT8_MAX; page++) {
        message asked = fresh();
        drv_port_stats_msg_init(asked.data(), slot_of(call), cpu, port, wire::stats_of_driver,
                                static_cast<std::uint8_t>(page));
        if (drv_get_port_stats(asked.data(), static_cast<std::uint32_t>(asked.size())) != 0)
            return call.fail(asking(wire::drv_port_stats), "the driver's counters can't be read");
        const auto head = at<wire::port_stats_head>(asked.data(), wire::drv_data);
        const auto count = std::min<std::uint32_t>(head.count, wire::most_driver_stats);
        for (std::uint32_t i = 0; i < count; i++) {
            const auto one = at<wire::driver_stats_record>(
                asked.data(), wire::drv_data + sizeof head + i * sizeof(wire::driver_stats_record));
            rows.row({field_text(head.board), field_text(one.name), std::uint64_t{one.value}});
        }
        all = count != 0 ? std::uint32_t{head.all} : 0;
        first += count;
    }
    return outcome::done;
}
constexpr argument driver_stats_arguments[] = {port_value, slot_option, cpu_option};

constexpr column bridge_columns[] = {
    {.title = "Board", .key = "board"},         {.title = "Port", .key = "port"},
    {.title = "State", .key = "state"},         {.title = "Cost", .key = "cost"},
    {.title = "In bytes", .key = "in_bytes"},   {.title = "In packets", .key = "in_packets"},
    {.title = "Errors", .key = "in_errors"},    {.title = "Dropped", .key = "in_dropped"},
    {.title = "Out bytes", .key = "out_bytes"}, {.title = "Out packets", .key = "out_packets"},
    {.title = "Errors", .key = "out_errors"},   {.title = "Dropped", .key = "out_dropped"},
};

// The bridge itself comes first, without a state of the spanning tree.
outcome show_bridge(invocation &call)
{
    void *buffer = nullptr;
    if (drv_get_bridge_stats(&buffer, slot_of(call), call.number_or<std::uint16_t>("BRIDGE", 0), 0) != 0)
        return call.fail(asking(wire::drv_bridge_stats), "the bridge's statistics can't be read");
    const std::unique_ptr<void, decltype(&ipcmsg_free)> owned(buffer, ipcmsg_free);
    const auto *bytes = static_cast<const std::uint8_t *>(buffer);
    const auto head = at<wire::bridge_stats_head>(bytes, wire::drv_data);
    table rows(call.out(), bridge_columns);
    const auto print = [&](const wire::port_stats_record &one, const cell &state, const cell &cost) {
        std::vector<cell> cells = stats_cells(field_text(head.board), one);
        cells.insert(cells.begin() + 2, {state, cost});
        rows.row(std::move(cells));
    };
    print(head.bridge, cell(), cell());
    for (std::size_t i = 0; i < std::min<std::size_t>(head.count, wire::most_bridge_ports); i++) {
        const auto one = at<wire::bridge_port_record>(bytes, wire::drv_data + sizeof head +
                                                                 i * sizeof(wire::bridge_port_record));
        const bool known = one.state < std::size(wire::bridge_port_states);
        print(one.stats, known ? cell(wire::bridge_port_states[one.state]) : cell(), std::uint32_t{one.cost});
    }
    rows.end();
    call.out().note(fmt::format("spanning tree {}, addresses age in {} s",
                                head.spanning_tree != 0 ? "on" : "off", std::uint32_t{head.ageing_s}));
    return outcome::done;
}
constexpr argument bridge_arguments[] = {
    value("BRIDGE", kinds::number, "a bridge, counted from 0", {.high = 65535}), slot_option};

// --- one port

outcome show_port(invocation &call, std::uint16_t port)
{
    std::uint64_t words[5] = {};
    if (drv_get_port_info(slot_of(call), port, words) < 0 || !call.said().empty())
        return call.fail(asking(wire::drv_port_info), "the port can't be read");
    wire::port_info_record is;
    std::memcpy(&is, words, sizeof is);
    std::uint32_t cpu = 0;
    drv_get_cpu_index_though_eth_port(slot_of(call), port, &cpu);
    message asked = fresh();
    drv_get_port_drv_info_msg_init(asked.data(), slot_of(call), port, 0);
    const bool known = drv_get_port_drv_info(asked.data(), static_cast<std::uint32_t>(asked.size())) == 0;
    const auto driver = at<wire::port_drv_record>(asked.data(), wire::drv_data);
    call.out().record({{"Number", "port_number", port},
                       {"Port", "port", known ? cell(field_text(driver.name)) : cell()},
                       {"Up", "up", is.up != 0},
                       {"Processor", "cpu", cpu},
                       {"Mbit/s", "mbit_per_s", unless_zero(std::uint64_t{is.mbit_per_second})},
                       {"MTU", "mtu_bytes", std::uint64_t{is.mtu}},
                       {"Received bytes", "received_bytes", std::uint64_t{is.received_bytes}},
                       {"Sent bytes", "sent_bytes", std::uint64_t{is.sent_bytes}},
                       {"Driver", "driver", known ? cell(field_text(driver.driver)) : cell()},
                       {"On", "bus", known ? cell(field_text(driver.bus)) : cell()}});
    return outcome::done;
}
constexpr argument port_arguments[] = {port_value, slot_option};

outcome show_count(invocation &call)
{
    const int count = drv_get_port_maxnum(slot_of(call));
    if (!call.said().empty())
        return call.fail(asking(wire::drv_port_maxnum), "the ports can't be counted");
    call.out().record({{"Ports", "ports", count}});
    return outcome::done;
}
constexpr argument count_arguments[] = {slot_option};

outcome show_driver(invocation &call, std::uint16_t port)
{
    const request exchange{wire::drv_main, wire::drv_type, wire::drv_dp_drv_info};
    char name[sizeof(wire::dp_drv_record::driver)] = {};
    std::uint64_t words[sizeof(wire::dp_drv_record) / sizeof(std::uint64_t)] = {};
    if (drv_dp_get_port_drv_info(0, port, 0, words) != 0 ||
        drv_dp_get_port_drv_name(0, port, name, sizeof name) != 0)
        return call.fail(exchange, "the data plane's driver can't be read");
    wire::dp_drv_record is;
    std::memcpy(&is, words, sizeof is);
    call.out().record({{"Number", "port_number", port},
                       {"Driver", "driver", name},
                       {"Up", "up", is.up != 0},
                       {"MAC address", "mac", mac_text(is.mac)}});
    return outcome::done;
}
constexpr argument driver_arguments[] = {port_value};

outcome show_validity(invocation &call, std::uint16_t port)
{
    const int answer = drv_is_port_vaild(slot_of(call), 0, port, 0);
    if (!call.said().empty())
        return call.fail(asking(wire::drv_port_valid), "the driver can't be asked");
    call.out().record({{"Number", "port_number", port},
                       {"Valid", "valid", answer > 0},
                       {"Below the count", "counted", is_port_valid(slot_of(call), port) != 0}});
    return outcome::done;
}

// The lane settings of a port: two bytes that are the driver's own.
outcome lanes(invocation &call, std::uint16_t port)
{
    message asked = fresh();
    const bool set = call.which().words == "set port lanes";
    if (set)
        drv_port_stats_msg_init_set_px_config(asked.data(), slot_of(call), 0, 0, port,
                                              call.number_or<std::uint8_t>("FIRST", 0),
                                              call.number_or<std::uint8_t>("SECOND", 0));
    else
        drv_port_stats_msg_init_px_config(asked.data(), slot_of(call), 0, 0, port, 0, 0);
    if (drv_get_port_stats(asked.data(), static_cast<std::uint32_t>(asked.size())) != 0)
        return call.fail(asking(set ? wire::drv_set_px_config : wire::drv_px_config),
                         set ? "the lane settings were not changed" : "the lane settings can't be read");
    if (!set)
        call.out().record({{"First", "first", std::uint32_t{asked[wire::drv_data]}},
                           {"Second", "second", std::uint32_t{asked[wire::drv_data + 1]}}});
    return outcome::done;
}
constexpr argument set_lanes_arguments[] = {
    port_value, value("FIRST", kinds::number, "first setting", {.high = 255}),
    value("SECOND", kinds::number, "second setting", {.high = 255}), slot_option};

outcome measure_eye(invocation &call, std::uint16_t port)
{
    message asked = fresh();
    drv_port_stats_msg_init_eye(asked.data(), slot_of(call), 0, 0, port, 0, 0);
    if (drv_get_port_eye_stats(asked.data(), static_cast<std::uint32_t>(asked.size())) != 0)
        return call.fail(asking(wire::drv_eye), "the message was not sent");
    return outcome::done;
}

outcome measure_serdes(invocation &call, std::uint16_t port)
{
    message asked = fresh();
    const auto given = call.texts("BYTE");
    std::uint8_t record[wire::drv_serdes_size] = {};
    if (given.size() > std::size(record))
        return call.misused(fmt::format("at most {} bytes", std::size(record)));
    for (std::size_t i = 0; i < given.size(); i++)
        record[i] = static_cast<std::uint8_t>(std::strtoul(given[i], nullptr, 0));
    drv_port_stats_msg_init_serdes(asked.data(), slot_of(call), 0, 0, port, record);
    if (drv_get_port_stats(asked.data(), static_cast<std::uint32_t>(asked.size())) != 0)
        return call.fail(asking(wire::drv_eye), "the lanes can't be measured");
    const auto is = at<wire::port_lane_record>(asked.data(), wire::drv_data);
    call.out().record({{"Board", "board", field_text(is.board)},
                       {"Requests so far", "requests", std::uint32_t{is.requests}},
                       {"Asked for", "asked", fmt::format("{:02x}", fmt::join(is.last, " "))}});
    return outcome::done;
}
constexpr argument serdes_arguments[] = {
    port_value, any_values("BYTE", kinds::number, "up to seven bytes for the lanes", {.high = 255}),
    slot_option};

// --- counters

constexpr column counter_columns[] = {{.title = "Board", .key = "board"},
                                      {.title = "Row", .key = "row"},
                                      {.title = "Processed", .key = "processed"},
                                      {.title = "Dropped", .key = "dropped"},
                                      {.title = "Squeezed", .key = "squeezed"},
                                      {.title = "Drained", .key = "drained", .programs_only = true}};

outcome show_counters(invocation &call)
{
    const request exchange{wire::drv_main, wire::counter_type, wire::counter_show};
    const std::uint32_t slot = slot_of(call), cpu = call.number_or<std::uint32_t>("cpu", 0);
    const bool sum = call.has("sum");
    void *buffer = nullptr;
    const int result = sum ? drv_get_dpdk_cpu_cntr(&buffer, slot, cpu, wire::counter_sum)
                           : drv_get_cpu_cntr(&buffer, slot, cpu, 0);
    if (result != 0)
        return call.fail(exchange, "the counters can't be read");
    const std::unique_ptr<void, decltype(&ipcmsg_free)> owned(buffer, ipcmsg_free);
    const auto *bytes = static_cast<const std::uint8_t *>(buffer);
    table rows(call.out(), counter_columns);
    const auto print = [&](const std::string &board, const cell &row, const wire::packet_counter_row &one,
                           const cell &drained) {
        rows.row({board, row, std::uint64_t{one.processed}, std::uint64_t{one.dropped},
                  std::uint64_t{one.squeezed}, drained});
    };
    if (sum) {
        const auto all = at<wire::packet_counter_sum>(bytes, 0);
        print(field_text(all.board), cell(), all.sum, cell());
        return outcome::done;
    }
    const auto head = at<wire::packet_counters>(bytes, 0);
    for (std::uint32_t i = 0; i < std::min(std::uint32_t{head.count}, wire::most_counter_rows); i++)
        print(field_text(head.board), i,
              at<wire::packet_counter_row>(bytes, sizeof head + i * sizeof(wire::packet_counter_row)),
              std::uint32_t{head.drained});
    rows.end();
    if (head.drained != 0)
        call.out().note(fmt::format("packet buffers were drained {} times", std::uint32_t{head.drained}));
    return outcome::done;
}
constexpr argument counter_arguments[] = {slot_option, cpu_option, flag("sum", "one row for all")};

outcome drain(invocation &call)
{
    if (drv_drain_pkt_buffer(slot_of(call)) != 0)
        return call.fail(request{wire::drv_main, wire::counter_type, wire::counter_drain},
                         "the packet buffers were not drained");
    return outcome::done;
}

// --- control requests

outcome show_control(invocation &call)
{
    std::uint32_t who = wire::control_read_slot;
    if (remote_hwif_ioctl(slot_of(call), 0, wire::control_read, &who) != 0)
        return call.fail(asking(wire::drv_hwif_ioctl), "the board does not answer control requests");
    call.out().record({{"Answered by slot", "slot", who}});
    return outcome::done;
}

constexpr choice control_words[] = {
    {"admin", "1 up, 0 down", wire::control_admin},
    {"mtu", "bytes; 0 for the interface's own", wire::control_mtu},
    {"pause", "receive, send, threshold in KiB", wire::control_pause},
    {"identify", "seconds that the port blinks", wire::control_identify},
    {"speed", "Mbit/s, full duplex, negotiated", wire::control_speed},
    {"vlan", "of untagged frames, tagged only, filter", wire::control_vlan},
    {"storm", "broadcasts, multicasts, unknown ones a second; 0 for any number", wire::control_storm},
    {"mirror", "to port, what it receives, what it sends", wire::control_mirror},
};
static_assert(std::size(control_words) == std::size(wire::port_controls));

outcome set_control(invocation &call, std::uint16_t port)
{
    std::uint32_t data[wire::most_control_words] = {};
    const auto given = call.texts("VALUE");
    const auto command = static_cast<std::uint32_t>(call.chosen("SETTING").value_or(0));
    if (const auto takes = wire::find_control(command)->words; given.size() > takes)
        return call.misused(
            fmt::format("{} takes {} value{}", call.text("SETTING"), takes, takes > 1 ? "s" : ""));
    for (std::size_t i = 0; i < given.size(); i++)
        data[i] = static_cast<std::uint32_t>(std::strtoul(given[i], nullptr, 0));
    if (remote_dev_ioctl(slot_of(call), port, command, data) != 0)
        return call.fail(asking(wire::drv_dev_ioctl), "the control request was not executed");
    return outcome::done;
}
constexpr argument control_arguments[] = {
    port_value, value("SETTING", kinds::one_of, "what is set", {.choices = control_words}),
    values("VALUE", kinds::number, "the setting's values"), slot_option};

constexpr column setting_columns[] = {{.title = "Setting", .key = "setting"},
                                      {.title = "First", .key = "first"},
                                      {.title = "Second", .key = "second"},
                                      {.title = "Third", .key = "third"}};

// Word by word, as the one control request with an answer has it.
outcome show_settings(invocation &call, std::uint16_t port)
{
    table rows(call.out(), setting_columns);
    for (const wire::port_control &each : wire::port_controls) {
        std::vector<cell> cells(1 + wire::most_control_words);
        cells[0] = each.name;
        for (std::uint32_t word = 0; word < each.words; word++) {
            std::uint32_t data = wire::control_place(each.command, word);
            if (remote_hwif_ioctl(slot_of(call), port, wire::control_read, &data) != 0)
                return call.fail(asking(wire::drv_hwif_ioctl), "the port's settings can't be read");
            cells[1 + word] = data;
        }
        rows.row(std::move(cells));
    }
    return outcome::done;
}

// A whole message of the driver's, executed by the board.
outcome set_lanes_remotely(invocation &call, std::uint16_t port)
{
    message asked = fresh();
    drv_port_stats_msg_init_set_px_config(asked.data(), 0, 0, 0, port,
                                          call.number_or<std::uint8_t>("FIRST", 0),
                                          call.number_or<std::uint8_t>("SECOND", 0));
    if (remote_hwif_ioctl(slot_of(call), port, wire::control_message, asked.data()) != 0)
        return call.fail(asking(wire::drv_hwif_ioctl), "the control request was not executed");
    return outcome::done;
}

// --- direct uplink

outcome show_uplink(invocation &call)
{
    call.out().record({{"Direct uplink", "enabled", drv_direct_uplink_is_enabled() != 0}});
    return outcome::done;
}

outcome set_uplink(invocation &call)
{
    const auto wanted = static_cast<int>(call.chosen("STATE").value_or(0));
    if (drv_set_direct_uplink(wanted) != 0)
        return call.fail("direct uplink was not changed",
                         "it is a file in /flash/platform, which must exist and be writable");
    // Where there is none, the library does nothing and says that this is well.
    if (drv_direct_uplink_is_enabled() != wanted)
        return call.fail("this board has no direct uplink");
    return outcome::done;
}
constexpr argument uplink_arguments[] = {value("STATE", kinds::one_of, "on or off", on_off)};

constexpr command commands[] = {
    {"show port", "one port and its driver", on_port<show_port>, port_arguments},
    {"show port count", "how many ports a board has", show_count, count_arguments},
    {"show port statistics", "counters of ports", on_port<show_stats>, stats_arguments},
    {"show port details", "what a port's driver counts by itself", on_port<show_driver_stats>,
     driver_stats_arguments},
    {"show port bridge", "counters of a bridge and its ports", show_bridge, bridge_arguments},
    {"show port valid", "whether a board has a port", on_port<show_validity>, port_arguments},
    {"show port lanes", "lane settings of a port", on_port<lanes>, port_arguments},
    {"set port lanes", "change the lane settings of a port", on_port<lanes>, set_lanes_arguments},
    {"set port eye", "let a port's eye diagram be measured", on_port<measure_eye>, port_arguments},
    {"show port serdes", "let a port's serial lanes be measured", on_port<measure_serdes>, serdes_arguments},
    {"show port driver", "the data plane's driver of a port", on_port<show_driver>, driver_arguments},
    {"show port counters", "packets that processors received", show_counters, counter_arguments},
    {"clear port buffers", "drain the packet buffers of a board", drain, count_arguments},
    {"show port control", "which board executes control requests", show_control, count_arguments},
    {"set port control", "execute a control request on a board", on_port<set_control>, control_arguments},
    {"set port control lanes", "execute a change of lane settings on a board", on_port<set_lanes_remotely>,
     set_lanes_arguments},
    {"show port settings", "what control requests have set of a port", on_port<show_settings>,
     port_arguments},
    {"show uplink", "direct uplink", show_uplink},
    {"set uplink", "switch direct uplink", set_uplink, uplink_arguments},
};

} // namespace

extern const family port_family;
const family port_family{"port", "ports, their drivers and counters", commands};

} // namespace mixsh
