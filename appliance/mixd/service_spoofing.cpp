/*
 * Spoofing protection: statistics (message types 90 and 138 of the main local daemon) and inspection settings
 * (types 100 and 137 of daemon 1).
 *
 * What is counted and what is set is the scenario's: [[spoofing.arp]] and [[spoofing.nd]] are statistics,
 * [[inspection.arp]] and [[inspection.nd]] settings. The host's kernel makes no such checks, so without a
 * scenario there is what the store has. Statistics that were cleared stay cleared over a restart.
 */
#include <cerrno>

#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/mac.h"
#include "appliance/wire/spoofing.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    MIXD_KEPT_ROWS_TABLE("aspf"),
    MIXD_KEPT_ROWS_TABLE("ndspf"),
    MIXD_KEPT_ROWS_TABLE("arpi"),
    MIXD_KEPT_ROWS_TABLE("ndi"),
};

constexpr uint32_t aspf_rows_of_a_page = (statistics_capacity - sizeof(aspf_page)) / sizeof(aspf_row);
constexpr uint32_t ndspf_rows_of_a_page = (statistics_capacity - sizeof(ndspf_page)) / sizeof(ndspf_row);

/* --- keys --- */

struct aspf_key {
    uint16_t vsysid;
    std::array<uint8_t, 6> mac;
    uint16_t vlan;

    auto operator<=>(const aspf_key &) const = default;
};

struct aspf_key_of {
    aspf_key operator()(const aspf_row &row) const { return {row.vsysid, std::to_array(row.mac), row.vlan}; }
};

struct ndspf_key {
    uint16_t vsysid;
    std::array<uint8_t, 16> address;

    auto operator<=>(const ndspf_key &) const = default;
};

struct ndspf_key_of {
    ndspf_key operator()(const ndspf_row &row) const { return {row.vsysid, std::to_array(row.address)}; }
};

struct inspection_key {
    uint16_t vsysid;
    std::array<char, 16> interface;
    uint16_t first_vlan;

    auto operator<=>(const inspection_key &) const = default;
};

struct inspection_key_of {
    inspection_key operator()(const ndi_row &row) const
    {
        return {row.vsysid, std::to_array(row.interface), row.first_vlan};
    }
    inspection_key operator()(const arpi_row &row) const { return (*this)(row.setting); }
};

/* --- selection --- */

struct inspection_selection {
    uint16_t vsysid = 0;
    std::string policy = {};
    std::string interface = {};
    uint16_t first_vlan = 0; /* 0: any */
    uint16_t last_vlan = 0;

    bool operator()(const ndi_row &row) const
    {
        return row.vsysid == vsysid && (policy.empty() || policy == text_in(row.policy)) &&
               (interface.empty() || interface == text_in(row.interface)) &&
               (first_vlan == 0 || row.first_vlan == 0 ||
                (row.first_vlan <= last_vlan && first_vlan <= row.last_vlan));
    }
    bool operator()(const arpi_row &row) const { return (*this)(row.setting); }
};

inspection_selection selection_of(uint16_t vsysid, uint8_t mode, const inspection_selector &by)
{
    inspection_selection wanted{.vsysid = vsysid};
    if (mode == inspection_by_policy)
        wanted.policy = text_in(by.name);
    else if (mode == inspection_by_interface)
        wanted.interface = text_in(by.name);
    else
        wanted.first_vlan = wanted.last_vlan = by.number;
    return wanted;
}

inspection_selection selection_of(const ndi_request &asked)
{
    return selection_of(asked.vsysid, asked.mode, asked.selector);
}

inspection_selection selection_of(const arpi_request &asked)
{
    inspection_selection wanted = selection_of(asked.vsysid, asked.mode, asked.selector);
    if (asked.mode != inspection_by_interface)
        return wanted;
    if (const std::string_view name = text_in(asked.ifname); !name.empty())
        wanted.interface = name;
    if (asked.first_vlan != 0) {
        wanted.interface.clear();
        wanted.first_vlan = asked.first_vlan;
        wanted.last_vlan = std::max(asked.first_vlan, asked.last_vlan);
    }
    return wanted;
}

/* --- the service --- */

class spoofing final : public service
{
  public:
    explicit spoofing(setup &with);
    void begin() override;

  private:
    void read_statistics(scenario_table table);
    void read_settings(scenario_table table);

    int32_t answer_arp(const request &, reply &);
    int32_t answer_nd(const request &, reply &);
    int32_t list_arp(const request &, reply &);
    int32_t list_nd(const request &, reply &);
    template <class Kept, class Match>
    int32_t clear(Kept &, Match &&);
    template <class Request, class Kept>
    int32_t settings(const request &, Kept &, positions<inspection_key> &, uint32_t most, reply &);

    store &store_;
    bool described_;
    kept_rows<aspf_row, aspf_key_of> aspf_;
    kept_rows<ndspf_row, ndspf_key_of> ndspf_;
    kept_rows<arpi_row, inspection_key_of> arpi_;
    kept_rows<ndi_row, inspection_key_of> ndi_;
    positions<aspf_key> aspf_positions_;
    positions<ndspf_key> ndspf_positions_;
    positions<inspection_key> arpi_positions_;
    positions<inspection_key> ndi_positions_;
};

spoofing::spoofing(setup &with)
    : store_(with.state()), described_(!with.settings().host), aspf_(store_, "aspf"), ndspf_(store_, "ndspf"),
      arpi_(store_, "arpi"), ndi_(store_, "ndi")
{
    read_statistics(with.scenario("spoofing"));
    read_settings(with.scenario("inspection"));
    with.serve(0, aspf_type, [this](const request &asked, reply &out) { return answer_arp(asked, out); });
    with.serve(0, ndspf_type, [this](const request &asked, reply &out) { return answer_nd(asked, out); });
    with.serve(inspection_daemon, arpi_type, [this](const request &asked, reply &out) {
        return settings<arpi_request>(asked, arpi_, arpi_positions_, arpi_rows_per_page, out);
    });
    with.serve(inspection_daemon, ndi_type, [this](const request &asked, reply &out) {
        return settings<ndi_request>(asked, ndi_, ndi_positions_, ndi_rows_per_page, out);
    });
}

void spoofing::begin()
{
    aspf_.begin(described_);
    ndspf_.begin(described_);
    arpi_.begin(described_);
    ndi_.begin(described_);
}

/* --- scenarios --- */

/* What both kinds of statistics have. */
template <class Row>
Row read_counts(scenario_table &each)
{
    Row row{};
    row.vsysid = static_cast<uint16_t>(each.number("virtual_system", 0, 0, UINT16_MAX));
    fill_text(row.interface, each.required_text("interface", sizeof row.interface - 1));
    row.dropped.mac = static_cast<uint32_t>(each.number("mac_check", 0, 0, UINT32_MAX));
    row.dropped.reverse = static_cast<uint32_t>(each.number("reverse_check", 0, 0, UINT32_MAX));
    row.dropped.rate = static_cast<uint32_t>(each.number("rate_check", 0, 0, UINT32_MAX));
    row.last = static_cast<uint32_t>(each.number("last", 0, 0, UINT32_MAX));
    return row;
}

/* The scenario's table says which key is missing or wrong; the zero that stands for it is never served. */
template <size_t Size>
void fill_bytes(uint8_t (&field)[Size], const std::optional<std::array<uint8_t, Size>> &given)
{
    if (given)
        std::copy(given->begin(), given->end(), field);
}

void spoofing::read_statistics(scenario_table table)
{
    for (scenario_table &each : table.rows("arp")) {
        auto row = read_counts<aspf_row>(each);
        each.require("mac");
        fill_bytes(row.mac, each.mac("mac"));
        row.vlan = static_cast<uint16_t>(each.number("vlan", 0, 0, highest_vlan));
        row.address = each.ipv4("address").value_or(0);
        aspf_.describe(each, row);
    }
    for (scenario_table &each : table.rows("nd")) {
        auto row = read_counts<ndspf_row>(each);
        each.require("address");
        fill_bytes(row.address, each.ipv6("address"));
        fill_bytes(row.mac, each.mac("mac"));
        ndspf_.describe(each, row);
    }
}

uint8_t read_checks(scenario_table &each)
{
    uint8_t checks = 0;
    for (const std::string &word : each.texts("checks")) {
        if (word == "mac")
            checks |= inspection_checks_mac;
        else if (word == "reverse")
            checks |= inspection_checks_reverse;
        else if (word == "rate")
            checks |= inspection_checks_rate;
        else
            each.fail("checks", "must be of mac, reverse and rate");
    }
    return checks;
}

ndi_row read_setting(scenario_table &each)
{
    ndi_row row{};
    row.vsysid = static_cast<uint16_t>(each.number("virtual_system", 0, 0, UINT16_MAX));
    row.first_vlan = static_cast<uint16_t>(each.number("first_vlan", 0, 0, highest_vlan));
    row.last_vlan = static_cast<uint16_t>(each.number("last_vlan", row.first_vlan, 0, highest_vlan));
    if (row.last_vlan < row.first_vlan || (row.first_vlan == 0 && row.last_vlan != 0))
        each.fail("last_vlan", "must not be below first_vlan, nor stand alone");
    row.rate = static_cast<uint16_t>(each.number("rate", 0, 0, UINT16_MAX));
    if (each.boolean("enabled", true))
        row.flags |= inspection_enabled;
    if (each.boolean("trusted", false))
        row.flags |= inspection_trusted;
    if (each.boolean("log_only", false))
        row.flags |= inspection_log_only;
    row.checks = read_checks(each);
    fill_text(row.interface, each.required_text("interface", sizeof row.interface - 1));
    fill_text(row.policy, each.text("policy", "", sizeof row.policy - 1));
    return row;
}

void spoofing::read_settings(scenario_table table)
{
    for (scenario_table &each : table.rows("arp")) {
        arpi_row row{read_setting(each), {}};
        fill_text(row.description, each.text("description", "", sizeof row.description - 1));
        arpi_.describe(each, row);
    }
    for (scenario_table &each : table.rows("nd"))
        ndi_.describe(each, read_setting(each));
}

/* --- requests --- */

int32_t spoofing::answer_arp(const request &asked, reply &out)
{
    const uint32_t subcommand = asked.field<uint32_t>(0);
    if (subcommand == aspf_list)
        return list_arp(asked, out);
    if ((subcommand != aspf_clear_all && subcommand != aspf_clear_one) ||
        asked.bytes.size() < sizeof(aspf_clear_request))
        return -EINVAL;
    const auto wanted = asked.record<aspf_clear_request>();
    return clear(aspf_, [&](const aspf_row &row) {
        if (row.vsysid != wanted.vsysid || subcommand == aspf_clear_all)
            return row.vsysid == wanted.vsysid;
        return std::equal(std::begin(row.mac), std::end(row.mac), wanted.mac) &&
               (wanted.selector == 0 || wanted.selector == row.vlan);
    });
}

int32_t spoofing::answer_nd(const request &asked, reply &out)
{
    const uint32_t subcommand = asked.field<uint32_t>(0);
    if (subcommand == ndspf_list)
        return list_nd(asked, out);
    if (subcommand != ndspf_clear_all || asked.bytes.size() < sizeof(ndspf_clear_request))
        return -EINVAL;
    const auto wanted = asked.record<ndspf_clear_request>();
    return clear(ndspf_, [&](const ndspf_row &row) { return row.vsysid == wanted.vsysid; });
}

template <class Kept, class Match>
int32_t spoofing::clear(Kept &from, Match &&match)
{
    try {
        transaction in(store_);
        from.erase_if(in, match);
        in.commit();
        return 0;
    } catch (const store_error &error) {
        log(priority::error, fmt::format("store: {}", error.what()));
        return error.full() ? -ENOSPC : -EIO;
    }
}

int32_t spoofing::list_arp(const request &asked, reply &out)
{
    if (asked.bytes.size() < sizeof(spoofing_list_request))
        return -EINVAL;
    const auto wanted = asked.record<spoofing_list_request>();
    out.append(aspf_page{});
    const auto page = take_page(
        aspf_.rows(), aspf_positions_,
        {asked.from.connection, wanted.cursor, wanted.word, aspf_rows_of_a_page},
        [&](const aspf_row &row) { return row.vsysid == wanted.vsysid; },
        [&](const aspf_row &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, aspf_page{static_cast<uint16_t>(page->cursor), static_cast<uint16_t>(page->rows)});
    return 0;
}

uint64_t all_of(const spoofing_drops &dropped)
{
    return uint64_t{dropped.mac} + dropped.reverse + dropped.rate;
}

int32_t spoofing::list_nd(const request &asked, reply &out)
{
    if (asked.bytes.size() < sizeof(spoofing_list_request))
        return -EINVAL;
    const auto wanted = asked.record<spoofing_list_request>();
    out.append(ndspf_page{});
    const auto page = take_page(
        ndspf_.rows(), ndspf_positions_, {asked.from.connection, wanted.cursor, 0, ndspf_rows_of_a_page},
        [&](const ndspf_row &row) {
            return row.vsysid == wanted.vsysid && all_of(row.dropped) >= wanted.word;
        },
        [&](const ndspf_row &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, ndspf_page{static_cast<uint16_t>(page->cursor), static_cast<uint16_t>(page->rows), 0});
    return 0;
}

/* The client says how many rows it takes at a time; more than fit are never given. */
template <class Request, class Kept>
int32_t spoofing::settings(const request &asked, Kept &from, positions<inspection_key> &at, uint32_t most,
                           reply &out)
{
    const auto wanted = asked.record<Request>();
    if (asked.bytes.size() < sizeof(Request) || wanted.subcommand != inspection_show)
        return -EINVAL;
    out.append(inspection_page{});
    const auto page =
        take_page(from.rows(), at, {asked.from.connection, wanted.cursor, wanted.rows_per_page, most},
                  selection_of(wanted), [&](const auto &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, inspection_page{.count = page->rows, .cursor = page->cursor});
    return 0;
}

} // namespace

const service_entry spoofing_service = {"spoofing", migrations, [](setup &with) -> std::unique_ptr<service> {
                                            return std::make_unique<spoofing>(with);
                                        }};

} // namespace mixd
