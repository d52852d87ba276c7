/*
 * The chassis manager: slots, processors, memory, modules and storage figures at daemon 17 of every board,
 * the slot operations at the main daemon.
 *
 * Boards are those of the scenario's [[board]] (without any: this host, in its profile's slot). What
 * [[chassis.slot]] says of a board replaces the host's figures, so a chassis can be shown on one machine:
 *
 *     [[chassis.slot]]
 *     slot = 2
 *     card_type = 0x1052200
 *     boot_ms = 3000        # comes up after that time
 *     cpu_busy = 35         # percent
 *
 * What is changed while mixd runs (a card stopped, detached or cleared, what counts as used memory) is kept
 * in the store.
 */
#include <cerrno>
#include <chrono>
#include <map>

#include "appliance/mixd/event.h"
#include "appliance/mixd/host_figures.h"
#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/text.h"
#include "platform/services.h"

namespace mixd
{

namespace
{

using namespace mix::wire;
using clock = std::chrono::steady_clock;

constexpr const char *migrations[] = {
    MIXD_KEPT_ROWS_TABLE("chassis_card"),
};
constexpr uint32_t default_card_type = 0x1052200;
constexpr uint32_t no_fixed_state = UINT32_MAX;

/* What is changed of a card, as the store has it. */
struct card_setting {
    uint32_t slot = 0;
    uint32_t configured = 1; /* 0: its slot's configuration was cleared, or it was detached */
    uint32_t fixed_state = no_fixed_state;
    uint32_t memory_mode = mem_without_caches;
};
struct slot_of {
    uint32_t operator()(const card_setting &one) const { return one.slot; }
};

/* One card of the chassis. */
struct card {
    const board *at = nullptr;
    uint32_t type = default_card_type;
    uint32_t role = slot_role_counted;
    uint32_t kind = 0;
    std::string serial, part_number, revision;
    uint32_t made = 0;
    std::chrono::milliseconds boot{0};
    std::optional<uint32_t> busy;
    std::optional<int16_t> temperature;
    std::optional<uint64_t> memory_kib;
    clock::time_point since = clock::now();

    [[nodiscard]] uint32_t state(const card_setting &setting) const
    {
        if (setting.fixed_state != no_fixed_state)
            return setting.fixed_state;
        const auto age = clock::now() - since;
        if (age >= boot)
            return slot_online;
        return age >= boot / 2 ? uint32_t{slot_loading} : uint32_t{slot_booting};
    }
};

class chassis final : public service
{
  public:
    explicit chassis(setup &with);
    void begin() override { settings_.begin(!options_.host); }

  private:
    void read_cards(setup &with);
    void read_slot(scenario_table &row, const board_model &boards);
    void read_bypass(scenario_table &row);
    card *in_slot(uint32_t slot);
    [[nodiscard]] card_setting setting_of(uint32_t slot) const;
    [[nodiscard]] uint32_t state_of(const card &one) const { return one.state(setting_of(one.at->slot)); }
    void keep(const card_setting &);

    int32_t show_slots(const request &, reply &);
    int32_t answer_query(const request &, reply &);
    int32_t show_cpu(card &, uint32_t subtype, reply &);
    int32_t show_cpu_record(card &, uint32_t subtype, reply &);
    int32_t show_each_cpu(const card &, reply &);
    int32_t show_processes(uint32_t subtype, reply &) const;
    int32_t show_bypass(uint32_t which, reply &) const;
    int32_t show_memory(const card &, reply &) const;
    int32_t show_temperature(const request &, reply &);
    int32_t show_storage(const std::string &path, reply &) const;
    int32_t answer_module(const request &, reply &);
    int32_t change_slot(const request &, reply &);
    int32_t detach(const request &);
    int32_t notice_card(const request &, reply &);
    int32_t show_pool(const request &, reply &) const;

    store &store_;
    const options &options_;
    std::map<uint32_t, card> cards_; /* by slot */
    host_processors processors_;
    kept_rows<card_setting, slot_of> settings_;
    std::array<uint64_t, 3> flash_{};   /* by storage_field, KiB; of a scenario */
    std::map<uint32_t, bool> bypasses_; /* on or off */
    std::map<uint32_t, std::array<uint32_t, 4>> pools_;
};

chassis::chassis(setup &with)
    : store_(with.state()), options_(with.settings()), settings_(store_, "chassis_card")
{
    read_cards(with);
    const auto on_boards = [&](uint32_t type, int32_t (chassis::*call)(const request &, reply &)) {
        with.serve_on_boards(chassis_manager, type, [this, call](const request &asked, reply &out) {
            return (this->*call)(asked, out);
        });
    };
    on_boards(slot_status_type, &chassis::show_slots);
    on_boards(chassis_query_type, &chassis::answer_query);
    on_boards(module_type, &chassis::answer_module);
    on_boards(slot_cfg_type, &chassis::change_slot);
    on_boards(card_notice_type, &chassis::notice_card);
    with.serve(chassis_main, slot_detach_type,
               [this](const request &asked, reply &) { return detach(asked); });
    with.serve(chassis_main, buffer_pool_type,
               [this](const request &asked, reply &out) { return show_pool(asked, out); });
}

void chassis::read_cards(setup &with)
{
    const board_model &boards = with.boards();
    for (const board &each : boards.boards) {
        card one;
        one.at = &each;
        one.kind = each.is_service ? 8 : 1;
        one.serial = fmt::format("SN{:06}", each.slot);
        cards_.emplace(each.slot, one);
    }
    scenario_table table = with.scenario("chassis");
    for (scenario_table &row : table.rows("slot"))
        read_slot(row, boards);
    for (scenario_table &row : table.rows("bypass"))
        read_bypass(row);
    for (scenario_table &row : table.rows("pool")) {
        const auto pool = static_cast<uint32_t>(row.required_number("pool", 0, 255));
        const auto total = static_cast<uint32_t>(row.required_number("total", 0, UINT32_MAX));
        const auto used = static_cast<uint32_t>(row.number("used", 0, 0, total));
        const auto failed = static_cast<uint32_t>(row.number("failed", 0, 0, UINT32_MAX));
        pools_[pool] = {total, used, total - used, failed};
    }
    flash_ = {table.number("flash_kib", 0, 0, UINT64_MAX / 2), 0, 0};
    flash_[storage_free] = flash_[storage_total];
}

void chassis::read_slot(scenario_table &row, const board_model &boards)
{
    const auto slot = static_cast<uint32_t>(row.required_number("slot", 0, highest_slot));
    if (boards.in_slot(slot) == nullptr)
        row.fail("slot", fmt::format("there is no board in slot {}", slot));
    card &one = cards_[slot];
    one.type = static_cast<uint32_t>(row.number("card_type", default_card_type, 0, UINT32_MAX));
    one.role = static_cast<uint32_t>(row.number("role", slot_role_counted, 0, UINT32_MAX));
    one.kind = static_cast<uint32_t>(row.number("module_kind", one.kind, 0, UINT32_MAX));
    one.serial = row.text("serial", one.serial, 31);
    one.part_number = row.text("part_number", "", 33);
    one.revision = row.text("revision", "", 15);
    one.made = static_cast<uint32_t>(row.number("made", 0, 0, UINT32_MAX));
    one.boot = std::chrono::milliseconds(row.number("boot_ms", 0, 0, 3600 * 1000));
    card_setting setting{slot};
    if (const auto state = row.number("state", 0, 43))
        setting.fixed_state = static_cast<uint32_t>(*state);
    settings_.describe(row, setting);
    if (const auto busy = row.number("cpu_busy", 0, 100))
        one.busy = static_cast<uint32_t>(*busy);
    const auto temperature = static_cast<int16_t>(row.signed_number("temperature", 0, -273, 1000));
    if (row.has("temperature"))
        one.temperature = temperature;
    one.memory_kib = row.number("memory_kib", 1, UINT64_MAX / 200);
}

/* The request for a bypass has its number where the other queries have their sub-type. */
void chassis::read_bypass(scenario_table &row)
{
    constexpr uint32_t last_subtype = chassis_cpu_temp;
    const auto which = static_cast<uint32_t>(row.required_number("number", 0, UINT32_MAX));
    if (which >= cpu_since_start && which <= last_subtype)
        row.fail("number", fmt::format("must not be {} to {}", uint32_t{cpu_since_start}, last_subtype));
    bypasses_[which] = row.boolean("on", false);
}

card_setting chassis::setting_of(uint32_t slot) const
{
    const card_setting *kept = settings_.rows().find(slot);
    return kept != nullptr ? *kept : card_setting{slot};
}

/* A store that has no room throws, and the client is refused. */
void chassis::keep(const card_setting &changed)
{
    transaction in(store_);
    settings_.put(in, changed);
    in.commit();
}

card *chassis::in_slot(uint32_t slot)
{
    const auto found = cards_.find(slot);
    return found != cards_.end() && found->second.at != nullptr ? &found->second : nullptr;
}

/* --- slots --- */

int32_t chassis::show_slots(const request &asked, reply &out)
{
    if (asked.bytes.size() < sizeof(slot_status_header) ||
        asked.record<slot_status_header>().subtype != slot_status_ask)
        return -EINVAL;
    out.append(slot_status_header{});
    uint16_t length = 0;
    for (const auto &[slot, one] : cards_) {
        if (one.at == nullptr)
            continue;
        const card_setting setting = setting_of(slot);
        if (setting.configured == 0)
            continue;
        slot_entry_own own{};
        fill_text(own.name, one.at->name);
        own.cpus = one.at->cpus;
        own.in_state = static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::seconds>(clock::now() - one.since).count());
        slot_entry row{};
        row.slot = static_cast<uint16_t>(slot);
        row.card_type = one.type;
        std::memcpy(row.unused, &own, sizeof own);
        row.state = one.state(setting);
        row.role = one.role;
        out.append(row);
        length = static_cast<uint16_t>(length + sizeof row);
    }
    out.put(0, slot_status_header{slot_status_answer, 0, length});
    return 0;
}

int32_t chassis::change_slot(const request &asked, reply &out)
{
    const auto wanted = asked.record<slot_cfg_message>();
    const card *one = in_slot(wanted.slot);
    card_setting setting = setting_of(wanted.slot);
    const bool there = one != nullptr && setting.configured != 0;
    const bool at_work = there && one->state(setting) == slot_online;
    slot_cfg_message answer = wanted;
    switch (wanted.code) {
    case slot_cfg_is_removable:
        answer.answer = at_work ? 0 : 1; /* a card's settings can go while the card is not at work */
        break;
    case slot_cfg_clear:
        if (!there)
            return -ENOENT;
        if (at_work)
            return -EBUSY;
        setting.configured = 0;
        keep(setting);
        break;
    default:
        return -EINVAL;
    }
    out.append(answer);
    return 0;
}

int32_t chassis::detach(const request &asked)
{
    const auto wanted = asked.record<slot_detach_request>();
    const card *one = in_slot(wanted.slot);
    if (wanted.code != slot_detach)
        return -EINVAL;
    if (one == nullptr || one->at->is_this)
        return -ENOENT;
    card_setting setting = setting_of(wanted.slot);
    setting.configured = 0;
    keep(setting);
    return 0;
}

int32_t chassis::notice_card(const request &asked, reply &out)
{
    const auto wanted = asked.record<card_notice_request>();
    const uint32_t slot = wanted.card[0]; /* the identifier's first byte */
    card *one = in_slot(slot);
    if (one == nullptr) {
        out.append(card_notice_reply{ENOENT, 0});
        return 0;
    }
    card_setting setting = setting_of(slot);
    switch (wanted.code) {
    case card_boot:
    case card_reboot:
        setting.fixed_state = no_fixed_state;
        setting.configured = 1;
        break;
    case card_stop:
        setting.fixed_state = slot_offline;
        break;
    default:
        return -EINVAL;
    }
    keep(setting);
    one->since = clock::now();
    out.append(card_notice_reply{0, 0});
    return 0;
}

/* --- figures --- */

int32_t chassis::answer_query(const request &asked, reply &out)
{
    card *one = in_slot(asked.at.slot);
    if (one == nullptr || asked.bytes.size() < sizeof(uint32_t))
        return -EINVAL;
    const auto subtype = asked.field<uint32_t>(0);
    switch (subtype) {
    case chassis_cpu_record:
    case cpu_since_start:
    case cpu_each:
    case cpu_processes:
    case cpu_memory:
    case cpu_interrupts:
    case cpu_summary:
        return show_cpu(*one, subtype, out);
    case chassis_slot_mem:
        return show_memory(*one, out);
    case chassis_set_mem_mode: {
        const auto mode = asked.record<mem_mode_request>().mode;
        if (mode > mem_with_caches)
            return -EINVAL;
        card_setting setting = setting_of(asked.at.slot);
        setting.memory_mode = mode;
        keep(setting);
        return 0;
    }
    case chassis_harddisk:
        return show_storage("/", out);
    case chassis_flash:
        return show_storage("/flash", out);
    case chassis_cpu_temp:
        return show_temperature(asked, out);
    default:
        return show_bypass(subtype, out); /* what is left asks for a bypass by its number */
    }
}

template <class Row>
int32_t append_table(uint32_t subtype, const std::vector<Row> &rows, size_t all, size_t most, reply &out)
{
    const size_t count = std::min(rows.size(), most);
    out.append(cpu_table_head{subtype, static_cast<uint32_t>(count), static_cast<uint32_t>(all)});
    out.append(rows.data(), count * sizeof(Row));
    return 0;
}

int32_t chassis::show_cpu(card &one, uint32_t subtype, reply &out)
{
    switch (subtype) {
    case cpu_each:
        return show_each_cpu(one, out);
    case cpu_processes:
    case cpu_memory:
        return show_processes(subtype, out);
    case cpu_interrupts: {
        const auto rows = options_.host ? host_interrupts() : std::vector<cpu_interrupt_row>();
        return append_table(subtype, rows, rows.size(), most_cpu_interrupts, out);
    }
    default:
        return show_cpu_record(one, subtype, out);
    }
}

int32_t chassis::show_cpu_record(card &one, uint32_t subtype, reply &out)
{
    cpu_record record{one.at->cpus};
    if (one.busy)
        record = {one.at->cpus, *one.busy, *one.busy, 0, *one.busy};
    else if (options_.host)
        record = subtype == cpu_since_start ? host_processors::since_start() : processors_.read();
    if (subtype == cpu_summary) { /* what fits there */
        out.append(cpu_summary_reply{subtype, record[cpu_count], record[cpu_load], host_up_seconds()});
        return 0;
    }
    cpu_record_reply answer{};
    std::memcpy(answer.unused, &subtype, sizeof subtype);
    std::memcpy(answer.record, record.data(), sizeof answer.record);
    out.append(answer);
    return 0;
}

int32_t chassis::show_each_cpu(const card &one, reply &out)
{
    std::vector<cpu_each_row> rows;
    if (options_.host && !one.busy)
        rows = processors_.read_each();
    else
        for (uint16_t i = 0; i < one.at->cpus; i++)
            rows.push_back({i, static_cast<uint16_t>(one.busy.value_or(0)),
                            static_cast<uint16_t>(one.busy.value_or(0)), 0});
    return append_table(cpu_each, rows, rows.size(), most_cpu_each, out);
}

/* The boards of a scenario run no processes of their own. */
int32_t chassis::show_processes(uint32_t subtype, reply &out) const
{
    size_t all = 0;
    std::vector<cpu_process_row> rows;
    if (options_.host)
        rows = host_processes(subtype == cpu_memory ? process_order::by_memory
                                                    : process_order::by_processor_time,
                              most_cpu_processes, all);
    return append_table(subtype, rows, all, most_cpu_processes, out);
}

int32_t chassis::show_bypass(uint32_t which, reply &out) const
{
    const auto found = bypasses_.find(which);
    const bool there = found != bypasses_.end();
    out.append(bypass_reply{which, there ? 1u : 0u, there && found->second ? 1u : 0u});
    return 0;
}

int32_t chassis::show_memory(const card &one, reply &out) const
{
    const uint32_t mode = setting_of(one.at->slot).memory_mode;
    memory_figures figures = host_memory(mode);
    if (one.memory_kib) {
        figures = {};
        figures[mem_total] = *one.memory_kib;
        figures[mem_free] = figures[mem_available] = *one.memory_kib / 2;
        figures[mem_used] = figures[mem_total] - figures[mem_free];
        figures[mem_used_percent] = figures[mem_used] * 100 / figures[mem_total];
        figures[mem_mode] = mode;
    }
    slot_mem_reply answer{};
    std::memcpy(answer.figures, figures.data(), sizeof answer.figures);
    out.append(answer);
    return 0;
}

int32_t chassis::show_temperature(const request &asked, reply &out)
{
    auto message = asked.record<cpu_temp_message>();
    card *one = in_slot(message.slot);
    if (one == nullptr)
        return -ENOENT;
    const std::optional<int16_t> degrees = one->temperature ? one->temperature
                                           : options_.host  ? host_temperature()
                                                            : std::nullopt;
    if (!degrees)
        return -ENODATA; /* a host without a sensor */
    message.temperature = *degrees;
    out.append(message);
    return 0;
}

int32_t chassis::show_storage(const std::string &path, reply &out) const
{
    auto figures = flash_;
    const bool described = path == "/flash" && flash_[storage_total] != 0;
    if (!described && tq_get_diskinfo_bypath(path.c_str(), &figures[storage_total], &figures[storage_used],
                                             &figures[storage_free]) != 0)
        return -ENODEV;
    storage_figures_reply answer{};
    std::memcpy(answer.figures, figures.data(), sizeof answer.figures);
    out.append(answer);
    return 0;
}

int32_t chassis::show_pool(const request &asked, reply &out) const
{
    auto message = asked.record<buffer_pool_message>();
    const auto found = pools_.find(message.pool);
    if (message.code != buffer_pool_show || found == pools_.end())
        return -ENOENT;
    std::memcpy(message.figures, found->second.data(), sizeof message.figures);
    out.append(message);
    return 0;
}

/* --- modules --- */

/* The rest of the FRU block, which lies in the message's unused bytes. */
void fill_fru(const card &one, module_message &message)
{
    module_fru fru;
    auto *block = reinterpret_cast<uint8_t *>(&message) + module_fru_at;
    std::memcpy(&fru, block, sizeof fru);
    fill_text(fru.part_number, one.part_number);
    fill_text(fru.revision, one.revision);
    fru.made = one.made;
    std::memcpy(block, &fru, sizeof fru);
}

int32_t chassis::answer_module(const request &asked, reply &out)
{
    auto message = asked.record<module_message>();
    const card *one = nullptr;
    switch (message.code) {
    case module_number:
        message.value = static_cast<uint32_t>(cards_.size());
        out.append(message);
        return 0;
    case module_info:
        if (message.value >= cards_.size())
            return -ENOENT;
        one = &std::next(cards_.begin(), message.value)->second;
        break;
    case module_of_slot:
        one = in_slot(message.slot);
        break;
    default:
        return -EINVAL;
    }
    if (one == nullptr || one->at == nullptr)
        return -ENOENT;
    const bool by_slot = message.code == module_of_slot;
    message.slot = static_cast<uint16_t>(one->at->slot);
    message.platform_id = one->type;
    message.kind = by_slot ? state_of(*one) : one->kind;
    fill_text(message.second_text, one->serial);
    fill_text(message.name, one->at->name);
    if (by_slot)
        fill_fru(*one, message);
    out.append(message);
    return 0;
}

} // namespace

const service_entry chassis_service = {"chassis", migrations, [](setup &with) -> std::unique_ptr<service> {
                                           return std::make_unique<chassis>(with);
                                       }};

} // namespace mixd
