/* The control service: lists what mixd serves and sets faults. Message types 245 and 250 to 254 of daemon
 * 201, whose 240 to 244 are with the services that they tell of: snapshots and the virtual chassis. */
#include <cerrno>

#include "appliance/mixd/core.h"
#include "appliance/mixd/network.h"
#include "appliance/mixd/version.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

/* Cursors are indices: the lists only grow while they are read, or a fault is skipped that was cleared. */
template <class Row, class List, class Convert>
int32_t page(const request &asked, reply &out, const List &list, Convert convert)
{
    const size_t first = asked.record<control_list>().cursor;
    const size_t fit = (control_page_size - sizeof(control_page)) / sizeof(Row);
    const size_t end = std::min(list.size(), std::min(first, list.size()) + fit);
    const size_t begin = std::min(first, end);
    out.append(control_page{static_cast<uint32_t>(end == list.size() ? 0 : end),
                            static_cast<uint32_t>(end - begin)});
    for (size_t i = begin; i < end; ++i)
        out.append(Row(convert(list[i])));
    return 0;
}

mix::wire::control_service row_of(const endpoint *one)
{
    mix::wire::control_service row{};
    row.address = join_address(one->to);
    row.type = one->type;
    fill_text(row.name, one->service);
    row.requests = one->count.requests;
    row.refused = one->count.refused;
    row.faulted = one->count.faulted;
    row.total_ns = one->count.total_ns;
    row.slowest_ns = one->count.slowest_ns;
    row.reply_bytes = one->count.reply_bytes;
    return row;
}

int32_t about(core &all, const board &at, reply &out)
{
    control_about row{};
    const options &chosen = all.settings();
    row.pid = static_cast<uint32_t>(getpid());
    row.flags = (chosen.host ? 0u : about_scenario) | (chosen.apply ? about_apply : 0u);
    row.started = static_cast<uint64_t>(all.started());
    row.clients = static_cast<uint32_t>(all.sockets().clients());
    row.addresses = static_cast<uint32_t>(all.sockets().addresses());
    fill_text(row.version, version);
    fill_text(row.run_dir, chosen.run_dir);
    fill_text(row.store, chosen.store_file);
    fill_text(row.scenario, chosen.scenario_file);
    row.slot = at.slot;
    fill_text(row.board, at.name);
    out.append(row);
    return 0;
}

int32_t list_interfaces(const network &of, const request &asked, reply &out)
{
    std::vector<const network_interface *> all;
    for (const auto &[index, one] : of.interfaces())
        all.push_back(&one);
    return page<control_interface>(asked, out, all, [](const network_interface *one) {
        control_interface row{};
        row.index = one->index;
        fill_text(row.name, one->name);
        return row;
    });
}

std::unique_ptr<service> make(setup &with)
{
    core &all = with.internals();
    const network &described = with.shared_state<network>();
    with.serve(control_daemon, control_list_interfaces, [&described](const request &asked, reply &out) {
        return list_interfaces(described, asked, out);
    });
    with.serve(control_daemon, control_set_fault, [&all](const request &asked, reply &) {
        if (asked.bytes.size() != sizeof(control_fault))
            return -EINVAL;
        return all.faults().set(asked.record<control_fault>());
    });
    with.serve(control_daemon, control_clear_faults, [&all](const request &asked, reply &) {
        if (asked.bytes.size() != sizeof(control_clear))
            return -EINVAL;
        const auto which = asked.record<control_clear>();
        return all.faults().clear(which.daemon, which.type);
    });
    with.serve(control_daemon, control_list_faults, [&all](const request &asked, reply &out) {
        return page<control_fault>(asked, out, all.faults().all(),
                                   [](const control_fault &one) { return one; });
    });
    with.serve(control_daemon, control_list_services, [&all](const request &asked, reply &out) {
        return page<mix::wire::control_service>(asked, out, all.endpoints().all(), row_of);
    });
    with.serve_on_boards(control_daemon, control_about_type,
                         [&all](const request &asked, reply &out) { return about(all, asked.at, out); });
    return std::make_unique<service>();
}

} // namespace

const service_entry control_service = {"control", {}, make};

} // namespace mixd
