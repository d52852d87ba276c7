// VLAN bitmaps of ports, made from lists of ids.
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <optional>

#include <libmix/bitmap.h>
#include <libmix/ip_util.h>

namespace mixsh
{

namespace
{

using bitmap = std::array<std::uint8_t, MIX_VLAN_BITMAP_SIZE>;

// --- lists of ids: "1,10-20,4094", or "none"

constexpr std::string_view empty_list = "none";

struct id_range {
    std::uint32_t low;
    std::uint32_t high;
};

bool is_id(std::string_view text)
{
    return range_match(fmt::format("<{}-{}>", vlan_ids.low, vlan_ids.high).c_str(),
                       std::string(text).c_str()) != 0 &&
           is_hex_str(std::string(text).c_str()) != 0;
}

std::uint32_t id_of(std::string_view text)
{
    std::uint32_t id = 0;
    std::from_chars(text.data(), text.data() + text.size(), id);
    return id;
}

// One element of a list that has been rated complete.
id_range range_of(std::string_view text)
{
    const auto hyphen = text.find('-');
    return {id_of(text.substr(0, hyphen)), id_of(hyphen == text.npos ? text : text.substr(hyphen + 1))};
}

std::string rule()
{
    return fmt::format("ids are {} to {}, the lower one first", vlan_ids.low, vlan_ids.high);
}

rating rate_element(std::string_view text)
{
    const auto hyphen = std::min(text.find('-'), text.size());
    const auto low = text.substr(0, hyphen);
    if (text.empty())
        return {verdict::incomplete, 0, {}};
    if (const auto bad = text.find_first_not_of("0123456789-"); bad != text.npos)
        return {verdict::wrong, bad, {}};
    if (!is_id(low))
        return {verdict::wrong, low.empty() ? 0 : low.size() - 1, rule()};
    if (hyphen == text.size())
        return {};
    const auto high = text.substr(hyphen + 1);
    if (high.empty())
        return {verdict::incomplete, 0, "the last id of the range is missing"};
    if (!is_id(high))
        return {verdict::wrong, text.size() - 1, rule()};
    if (id_of(low) <= id_of(high))
        return {};
    const bool may_grow = id_of(high) * 10 <= vlan_ids.high;
    return {may_grow ? verdict::incomplete : verdict::wrong, text.size() - 1, rule()};
}

rating rate_list(const argument &, const std::string &word)
{
    if (empty_list.starts_with(word))
        return {word == empty_list ? verdict::complete : verdict::incomplete, 0, {}};
    std::size_t begin = 0;
    for (;;) {
        const auto end = std::min(word.find(',', begin), word.size());
        auto rated = rate_element(std::string_view(word).substr(begin, end - begin));
        rated.at += begin;
        if (rated.is == verdict::wrong || end == word.size())
            return rated;
        if (rated.is == verdict::incomplete) // more is to come, but not a comma
            return {verdict::wrong, end, rated.why};
        begin = end + 1;
    }
}

constexpr kind vlan_list{"", "VLAN ids such as 1,10-20, or none", rate_list};

bitmap bitmap_of(std::string_view list)
{
    bitmap made;
    bitmap_port_clear(made.data());
    if (list == empty_list)
        return made;
    for (std::size_t begin = 0; begin <= list.size();) {
        const auto end = std::min(list.find(',', begin), list.size());
        const auto ids = range_of(list.substr(begin, end - begin));
        for (auto id = ids.low; id <= ids.high; ++id)
            bitmap_port_set_vid(made.data(), id);
        begin = end + 1;
    }
    return made;
}

struct list_writer {
    std::string text = {};
    std::optional<id_range> open = {};

    void close()
    {
        if (!open)
            return;
        text += text.empty() ? "" : ",";
        text += open->low == open->high ? fmt::format("{}", open->low)
                                        : fmt::format("{}-{}", open->low, open->high);
        open.reset();
    }
    void add(std::uint32_t id)
    {
        if (open && open->high + 1 == id) {
            open->high = id;
            return;
        }
        close();
        open = {id, id};
    }
};

std::string list_of(const bitmap &from)
{
    list_writer writer;
    bitmap_port_for_each_vlan_action(from.data(), &writer, [](std::uint32_t vid, void *context) {
        static_cast<list_writer *>(context)->add(vid);
        return 0;
    });
    writer.close();
    return writer.text.empty() ? std::string(empty_list) : writer.text;
}

// --- show vlan-map

enum operation : std::int64_t { op_or, op_and, op_not, op_diff };

constexpr choice operations[] = {
    {"or", "ids of any port", op_or},
    {"and", "ids of every port", op_and},
    {"not", "ids of the first port that no other has", op_not},
    {"diff", "ids that an odd number of ports has", op_diff},
};

void combine(bitmap &into, const bitmap &other, std::int64_t by)
{
    switch (by) {
    case op_or:
        bitmap_port_or(other.data(), into.data());
        return;
    case op_and:
        bitmap_port_and(other.data(), into.data());
        return;
    case op_not:
        bitmap_port_not(other.data(), into.data());
        return;
    default:
        bitmap_port_diff(into.data(), other.data(), into.data());
        return;
    }
}

constexpr column map_columns[] = {{"Port", "port_number"},
                                  {"Combined", "combined"},
                                  {"Count", "count"},
                                  {"In range", "in_range"},
                                  {"VLANs", "vlans", true}};

cell in_range(invocation &call, const bitmap &of)
{
    if (!call.has("from"))
        return nullptr;
    const auto low = call.number_or<std::uint16_t>("from", 1);
    return bitmap_is_include_specified_vlan(of.data(), low, call.number_or<std::uint16_t>("to", low)) != 0;
}

outcome show_map(invocation &call)
{
    std::vector<bitmap> ports;
    for (const char *list : call.texts("VLANS"))
        ports.push_back(bitmap_of(list));
    table rows(call.out(), map_columns);
    const auto row = [&](cell port, cell combined, const bitmap &of) {
        return rows.row({std::move(port), std::move(combined), bitmap_get_port_vlan_num(of.data()),
                         in_range(call, of), list_of(of)});
    };
    for (std::size_t port = 0; port < ports.size(); ++port)
        if (!row(port, {}, ports[port]))
            return outcome::done;
    if (const auto by = call.chosen("combine")) {
        bitmap all = ports.front();
        for (std::size_t port = 1; port < ports.size(); ++port)
            combine(all, ports[port], *by);
        row({}, call.text("combine"), all);
    }
    return outcome::done;
}

// --- show vlan-members

constexpr column member_columns[] = {
    {"VLAN", "vlan"}, {"Ports", "ports"}, {"Lowest", "lowest"}, {"Members", "members", true}};

outcome show_members(invocation &call)
{
    std::vector<bitmap> ports;
    for (const char *list : call.texts("VLANS"))
        ports.push_back(bitmap_of(list));
    std::vector<std::uint8_t *> map;
    for (auto &port : ports)
        map.push_back(port.data());
    const auto count = static_cast<std::uint16_t>(map.size());
    const auto vid = call.number_or<std::uint32_t>("ID", 1);
    list_writer members;
    bitmap_vlan_for_each_port(map.data(), vid, count, &members, [](std::uint16_t port, void *context) {
        static_cast<list_writer *>(context)->add(port);
        return 0;
    });
    members.close();
    std::uint16_t lowest = 0;
    const bool any = bitmap_vlan_get_one_member(map.data(), vid, count, &lowest) == 0;
    table rows(call.out(), member_columns);
    rows.row({vid, bitmap_get_vlan_port_num(map.data(), vid, count), any ? cell(lowest) : cell(nullptr),
              any ? members.text : std::string(empty_list)});
    return outcome::done;
}

constexpr argument map_arguments[] = {
    values("VLANS", vlan_list, "the ids of a port; the first list is port 0"),
    option("combine", kinds::one_of, "combine all ports into one more row", {.choices = operations}),
    option("from", kinds::number, "say whether an id of this range is there", vlan_ids),
    option("to", kinds::number, "its last id; without it, from alone", vlan_ids),
};

constexpr argument member_arguments[] = {
    value("ID", kinds::number, "the VLAN", vlan_ids),
    values("VLANS", vlan_list, "the ids of a port; the first list is port 0"),
};

constexpr command commands[] = {
    {"show vlan-map", "VLAN bitmaps of ports", show_map, map_arguments},
    {"show vlan-members", "the ports of a VLAN", show_members, member_arguments},
};

} // namespace

extern const family vlan_map_family;
const family vlan_map_family{"vlan_map", "VLAN bitmaps", commands};

} // namespace mixsh
