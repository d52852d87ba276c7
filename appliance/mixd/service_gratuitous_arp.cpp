/*
 * The gratuitous-ARP senders: message type 88 of the main local daemon, and the gateway's object for them.
 *
 * Senders are committed or the scenario's [[gratuitous_arp.sender]]. With --apply each announces itself on
 * its interface: at once when it is added or its interface comes up, then at its interval. Without, the list
 * is only kept.
 */
#include <cerrno>
#include <map>

#include "appliance/mixd/announcer.h"
#include "appliance/mixd/hosts.h"
#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/network.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/arp.h"
#include "appliance/wire/gas.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {MIXD_KEPT_ROWS_TABLE("gratuitous_arp")};

constexpr size_t most_senders = 1024;
constexpr int announced_at_once = 64; /* then other clients get their turn */
constexpr uint64_t usual_interval = 60;
constexpr uint64_t retry_interval = 1; /* an interface that is there but not up yet */
constexpr uint64_t second_us = 1'000'000;
constexpr uint32_t rows_of_a_page = (gas_page_capacity - sizeof(gas_page)) / sizeof(gas_row);

struct sender_key {
    uint32_t address;
    std::array<char, 32> interface;

    auto operator<=>(const sender_key &) const = default;
};

struct sender_key_of {
    sender_key operator()(const gas_row &row) const { return {row.address, std::to_array(row.interface)}; }
};

class gratuitous_arp final : public service, private network_observer
{
  public:
    explicit gratuitous_arp(setup &with);
    void begin() override;

  private:
    void read(scenario_table table);
    void interfaces_changed() override;

    int32_t answer(const request &, reply &);
    int32_t list(const request &, reply &);
    int32_t look_up(const request &, reply &) const;
    [[nodiscard]] uint16_t router_of(const gas_row &) const;
    [[nodiscard]] bool selects(uint16_t router, const gas_row &) const;

    std::optional<refusal> change(const commit &, transaction &);
    std::optional<refusal> add(const commit &, const sender_key &, transaction &);
    std::optional<refusal> remove(const sender_key &, transaction &);

    void announce_from_now(const sender_key &);
    void arm();
    void announce_due();
    void announce(gas_row &);
    static int on_timer(sd_event_source *, uint64_t, void *data);
    [[nodiscard]] uint64_t now() const;

    network &network_;
    sd_event *loop_;
    bool described_;
    bool applied_;
    kept_rows<gas_row, sender_key_of> senders_;
    positions<sender_key> positions_;
    announcer announcer_;
    std::map<sender_key, uint64_t> due_; /* when each is announced next, µs of the monotonic clock */
    event_source timer_;
};

gratuitous_arp::gratuitous_arp(setup &with)
    : network_(with.shared_state<network>()), loop_(with.loop()), described_(!with.settings().host),
      applied_(with.settings().apply && network_.kernel() != nullptr),
      senders_(with.state(), "gratuitous_arp")
{
    read(with.scenario("gratuitous_arp"));
    timer_ = idle_timer(loop_, on_timer, this, "announcement timer");
    with.serve(0, gas_type, [this](const request &asked, reply &out) { return answer(asked, out); });
    with.on_commit(object_gas, [this](const commit &wanted, transaction &in) { return change(wanted, in); });
}

void gratuitous_arp::begin()
{
    senders_.begin(described_);
    if (!applied_)
        return;
    senders_.rows().walk({}, [this](const gas_row &row) {
        due_[sender_key_of{}(row)] = 0;
        return true;
    });
    if (const int result = announcer_.open(); result < 0 && !due_.empty())
        log(priority::warning, fmt::format("gratuitous ARP can't be sent: {}", std::strerror(-result)));
    network_.observe(*this);
}

/* --- scenarios and rows --- */

constexpr scenario_word<uint8_t> form_words[] = {
    {"request", gas_as_request}, {"reply", gas_as_reply}, {"both", gas_every_form}};

void gratuitous_arp::read(scenario_table table)
{
    for (scenario_table &each : table.rows("sender")) {
        gas_row row{};
        each.require("address");
        each.require("mac");
        row.address = each.ipv4("address").value_or(0);
        const mac_address mac = each.mac("mac").value_or(mac_address{});
        std::copy(mac.begin(), mac.end(), row.mac);
        fill_text(row.interface, each.required_text("interface", sizeof row.interface - 1));
        row.interval = static_cast<uint32_t>(each.number("seconds", usual_interval, 1, gas_longest_interval));
        row.option = each.one_of("form", "request", form_words).value;
        if (each.has("address") && !is_host(row.address))
            each.fail("address", "must be the address of a host");
        if (each.has("mac") && !is_station(mac))
            each.fail("mac", "must be the address of one station");
        senders_.describe(each, row);
    }
}

uint16_t gratuitous_arp::router_of(const gas_row &row) const
{
    const network_interface *on = network_.interface(text_in(row.interface));
    return on != nullptr ? network_.router_of(*on) : usual_virtual_router;
}

bool gratuitous_arp::selects(uint16_t router, const gas_row &row) const
{
    return router == 0 || router == router_of(row);
}

/* --- requests --- */

int32_t gratuitous_arp::answer(const request &asked, reply &out)
{
    network_.refresh();
    switch (asked.field<uint32_t>(0)) {
    case gas_list:
        return asked.bytes.size() >= sizeof(gas_list_request) ? list(asked, out) : -EINVAL;
    case gas_lookup:
        return asked.bytes.size() >= sizeof(gas_lookup_request) ? look_up(asked, out) : -EINVAL;
    default:
        return -EINVAL;
    }
}

int32_t gratuitous_arp::list(const request &asked, reply &out)
{
    const auto wanted = asked.record<gas_list_request>();
    out.append(gas_page{});
    const auto page = take_page(
        senders_.rows(), positions_, {asked.from.connection, wanted.cursor, 0, rows_of_a_page},
        [&](const gas_row &row) { return selects(wanted.selector, row); },
        [&](const gas_row &row) {
            const size_t at = out.bytes.size();
            out.append(row);
            out.put(at + offsetof(gas_row, vrid), router_of(row));
        });
    if (!page)
        return -ESTALE;
    out.put(0, gas_page{static_cast<uint16_t>(page->cursor), static_cast<uint16_t>(page->rows)});
    return 0;
}

int32_t gratuitous_arp::look_up(const request &asked, reply &out) const
{
    const auto wanted = asked.record<gas_lookup_request>();
    std::optional<uint32_t> state;
    if (wanted.address != 0)
        senders_.rows().walk(sender_key{wanted.address, {}}, [&](const gas_row &row) {
            if (row.address == wanted.address && selects(wanted.selector, row))
                state = row.state;
            return row.address == wanted.address && !state;
        });
    if (!state)
        return -ENOENT;
    out.append(*state);
    return 0;
}

/* --- changes --- */

std::optional<refusal> gratuitous_arp::change(const commit &wanted, transaction &in)
{
    const std::string_view interface = wanted.text(gas_ifname);
    if (interface.empty())
        return refusal{result_bad_value, "the interface has no name", "接口名称为空"};
    sender_key key{wanted.u32(gas_address), {}};
    interface.copy(key.interface.data(), key.interface.size() - 1);
    return wanted.operation == operation_delete ? remove(key, in) : add(wanted, key, in);
}

/* What is wrong with the values of a new sender. */
std::optional<refusal> check(const commit &wanted, const mac_address &mac)
{
    if (!is_host(wanted.u32(gas_address)))
        return not_a_host();
    if (!is_station(mac))
        return not_a_station();
    if (const uint64_t interval = wanted.word(gas_second); interval == 0 || interval > gas_longest_interval)
        return refusal{result_bad_value, "the interval must be 1 to 86400 seconds",
                       "发送间隔必须在1到86400秒之间"};
    if (const uint8_t option = wanted.u8(gas_option); option == 0 || option > gas_every_form)
        return refusal{result_bad_value, "the option must be 1 (request), 2 (reply) or 3 (both)",
                       "选项必须为1（请求）、2（应答）或3（两者）"};
    return {};
}

std::optional<refusal> gratuitous_arp::add(const commit &wanted, const sender_key &key, transaction &in)
{
    const auto mac = wanted.value<mac_address>(gas_mac);
    if (auto no = check(wanted, mac))
        return no;
    if (senders_.rows().find(key) != nullptr)
        return refusal{result_exists, "this interface announces the address already", "该接口已发送此地址",
                       MGI_RESP_EXISTS};
    if (senders_.rows().size() >= most_senders)
        return refusal{result_full, "there are 1024 senders already", "免费ARP发送表项已达1024条"};
    if (applied_)
        if (const int result = announcer_.open(); result < 0)
            return not_applied(-result);
    gas_row row{};
    row.address = key.address;
    std::copy(mac.begin(), mac.end(), row.mac);
    row.option = wanted.u8(gas_option);
    row.interval = static_cast<uint32_t>(wanted.word(gas_second));
    std::copy(key.interface.begin(), key.interface.end(), row.interface);
    senders_.put(in, row);
    in.after_commit([this, key] { announce_from_now(key); });
    return {};
}

std::optional<refusal> gratuitous_arp::remove(const sender_key &key, transaction &in)
{
    if (senders_.rows().find(key) == nullptr)
        return refusal{result_absent, "there is no such sender", "免费ARP发送表项不存在"};
    senders_.erase(in, key);
    in.after_commit([this, key] { due_.erase(key); });
    return {};
}

/* --- announcements --- */

uint64_t gratuitous_arp::now() const
{
    uint64_t now = 0;
    sd_event_now(loop_, CLOCK_MONOTONIC, &now);
    return now;
}

void gratuitous_arp::announce_from_now(const sender_key &key)
{
    if (!applied_)
        return;
    due_[key] = 0;
    arm();
}

/* For the sender that is due first. */
void gratuitous_arp::arm()
{
    const auto first = std::min_element(due_.begin(), due_.end(), [](const auto &left, const auto &right) {
        return left.second < right.second;
    });
    if (first == due_.end())
        return;
    sd_event_source_set_time(timer_.get(), first->second);
    sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
}

/* Senders whose interface has come are announced now, those whose interface has gone wait for it. */
void gratuitous_arp::interfaces_changed()
{
    for (auto &[key, when] : due_) {
        gas_row *row = senders_.find(key);
        if (row == nullptr)
            continue;
        const bool there = network_.interface(text_in(row->interface)) != nullptr;
        if (there && row->state == gas_waiting)
            when = 0;
        if (!there)
            row->state = gas_waiting;
    }
    arm();
}

int gratuitous_arp::on_timer(sd_event_source *, uint64_t, void *data)
{
    static_cast<gratuitous_arp *>(data)->announce_due();
    return 0;
}

void gratuitous_arp::announce_due()
{
    const uint64_t at = now();
    int announced = 0;
    for (auto &[key, when] : due_) {
        if (when > at)
            continue;
        if (announced++ == announced_at_once)
            break;
        gas_row *row = senders_.find(key);
        if (row == nullptr)
            continue;
        announce(*row);
        when = at + (row->state == gas_failing ? retry_interval : row->interval) * second_us;
    }
    arm();
}

void gratuitous_arp::announce(gas_row &row)
{
    const network_interface *on = network_.interface(text_in(row.interface));
    if (on == nullptr) {
        row.state = gas_waiting;
        row.error = 0;
        return;
    }
    const int result = announcer_.announce(on->index, row.address, std::to_array(row.mac), row.option);
    const auto error = static_cast<uint32_t>(-result);
    if (error != 0 && (row.state != gas_failing || row.error != error))
        log(priority::warning, fmt::format("gratuitous ARP on {}: {}", on->name, std::strerror(-result)));
    row.state = error == 0 ? gas_announcing : gas_failing;
    row.error = error;
    row.sent += error == 0 ? 1 : 0;
}

} // namespace

const service_entry gratuitous_arp_service = {
    "gratuitous_arp", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<gratuitous_arp>(with); }};

} // namespace mixd
