/*
 * The chassis manager: slots, processors, memory, modules and storage figures at daemon 17 of every board,
 * the slot operations at the main daemon.
 *
 * Boards are those of the scenario's [[board]] (without any: this host, in slot 0). What [[chassis.slot]]
 * says of a board replaces the host's figures, so a chassis can be shown on one machine:
 *
 *     [[chassis.slot]]
 *     slot = 2
 *     card_type = 0x1052200
 *     boot_ms = 3000        # comes up after that time
 *     cpu_busy = 35         # percent
 */
#include <cerrno>
#include <chrono>
#include <map>

#include "appliance/mixd/event.h"
#include "appliance/mixd/host_figures.h"
#include "appliance/mixd/names.h"
#include "appliance/mixd/service.h"

namespace mixd
{

namespace
{

using namespace mix::wire;
using clock = std::chrono::steady_clock;

constexpr uint32_t default_card_type = 0x1052200;

/* One card of the chassis. */
struct card {
    const board *at = nullptr;
    uint32_t type = default_card_type;
    uint32_t role = slot_role_counted;
    uint32_t kind = 0;
    std::string serial;
    std::chrono::milliseconds boot{0};
    std::optional<uint32_t> fixed_state;
    std::optional<uint32_t> busy;
    std::optional<int16_t> temperature;
    std::optional<uint64_t> memory_kib;
    clock::time_point since = clock::now();
    bool configured = true; /* false: its slot's configuration was cleared, or it was detached */

    [[nodiscard]] uint32_t state() const
    {
        if (fixed_state)
            return *fixed_state;
        const auto age = clock::now() - since;
        if (age >= boot)
            return slot_online;
        return age >= boot / 2 ? uint32_t{slot_loading} : uint32_t{slot_booting};
    }
};

class chassis : public service
{
  public:
    explicit chassis(setup &with);

  private:
    void read_cards(setup &with);
    void read_slot(scenario_table &row, const board_model &boards);
    card *in_slot(uint32_t slot);

    int32_t show_slots(const request &, reply &);
    int32_t answer_query(const request &, reply &);
    int32_t show_cpu(card &, uint32_t subtype, reply &);
    int32_t show_memory(const card &, reply &) const;
    int32_t show_temperature(const request &, reply &);
    int32_t show_storage(const std::string &path, reply &) const;
    int32_t answer_module(const request &, reply &);
    int32_t change_slot(const request &, reply &);
    int32_t detach(const request &);
    int32_t notice_card(const request &, reply &);
    int32_t show_pool(const request &, reply &) const;

    const options &options_;
    std::map<uint32_t, card> cards_; /* by slot */
    host_processors processors_;
    uint32_t memory_mode_ = mem_without_caches;
    storage_figures flash_{};
    std::map<uint32_t, std::array<uint32_t, 4>> pools_;
};

chassis::chassis(setup &with) : options_(with.settings())
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
        one.kind = each.role == "service" ? 8 : 1;
        one.serial = fmt::format("SN{:06}", each.slot);
        cards_.emplace(each.slot, one);
    }
    scenario_table table = with.scenario("chassis");
    for (scenario_table &row : table.rows("slot"))
        read_slot(row, boards);
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
    const auto slot = static_cast<uint32_t>(row.required_number("slot", 0, 253));
    if (boards.in_slot(slot) == nullptr)
        row.fail("slot", fmt::format("there is no board in slot {}", slot));
    card &one = cards_[slot];
    one.type = static_cast<uint32_t>(row.number("card_type", default_card_type, 0, UINT32_MAX));
    one.role = static_cast<uint32_t>(row.number("role", slot_role_counted, 0, UINT32_MAX));
    one.kind = static_cast<uint32_t>(row.number("module_kind", one.kind, 0, UINT32_MAX));
    one.serial = row.text("serial", one.serial, 31);
    one.boot = std::chrono::milliseconds(row.number("boot_ms", 0, 0, 3600 * 1000));
    if (const auto state = row.number("state", 0, 43))
        one.fixed_state = static_cast<uint32_t>(*state);
    if (const auto busy = row.number("cpu_busy", 0, 100))
        one.busy = static_cast<uint32_t>(*busy);
    const auto temperature = static_cast<int16_t>(row.signed_number("temperature", 0, -273, 1000));
    if (row.has("temperature"))
        one.temperature = temperature;
    one.memory_kib = row.number("memory_kib", 1, UINT64_MAX / 200);
}

card *chassis::in_slot(uint32_t slot)
{
    const auto found = cards_.find(slot);
    return found != cards_.end() && found->second.at != nullptr ? &found->second : nullptr;
}

/* --- slots -----------------------------------------------------------------------------------------------
 */

int32_t chassis::show_slots(const request &asked, reply &out)
{
    if (asked.bytes.size() < sizeof(slot_status_header) ||
        asked.record<slot_status_header>().subtype != slot_status_ask)
        return -EINVAL;
    out.append(slot_status_header{});
    uint16_t length = 0;
    for (const auto &[slot, one] : cards_) {
        if (one.at == nullptr || !one.configured)
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
        row.state = one.state();
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
    card *one = in_slot(wanted.slot);
    slot_cfg_message answer = wanted;
    switch (wanted.code) {
    case slot_cfg_is_removable:
        /* A card's settings can go while the card is not at work. */
        answer.answer = one == nullptr || !one->configured || one->state() != slot_online ? 1 : 0;
        break;
    case slot_cfg_clear:
        if (one == nullptr || !one->configured)
            return -ENOENT;
        if (one->state() == slot_online)
            return -EBUSY;
        one->configured = false;
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
    card *one = in_slot(wanted.slot);
    if (wanted.code != slot_detach)
        return -EINVAL;
    if (one == nullptr || one->at->is_this)
        return -ENOENT;
    one->configured = false;
    return 0;
}

int32_t chassis::notice_card(const request &asked, reply &out)
{
    const auto wanted = asked.record<card_notice_request>();
    card *one = in_slot(wanted.card[0]); /* the identifier's first byte is the slot */
    if (one == nullptr) {
        out.append(card_notice_reply{ENOENT, 0});
        return 0;
    }
    switch (wanted.code) {
    case card_boot:
    case card_reboot:
        one->fixed_state.reset();
        one->configured = true;
        one->since = clock::now();
        break;
    case card_stop:
        one->fixed_state = slot_offline;
        one->since = clock::now();
        break;
    default:
        return -EINVAL;
    }
    out.append(card_notice_reply{0, 0});
    return 0;
}

/* --- figures ---------------------------------------------------------------------------------------------
 */

int32_t chassis::answer_query(const request &asked, reply &out)
{
    card *one = in_slot(asked.at.slot);
    if (one == nullptr || asked.bytes.size() < sizeof(uint32_t))
        return -EINVAL;
    const auto subtype = asked.field<uint32_t>(0);
    switch (subtype) {
    case 5:
    case chassis_cpu_record:
    case 7:
    case 8:
    case 9:
    case 10:
    case 24:
        return show_cpu(*one, subtype, out);
    case chassis_slot_mem:
        return show_memory(*one, out);
    case chassis_set_mem_mode: {
        const auto mode = asked.record<mem_mode_request>().mode;
        if (mode > mem_with_caches)
            return -EINVAL;
        memory_mode_ = mode;
        return 0;
    }
    case chassis_harddisk:
        return show_storage("/", out);
    case chassis_flash:
        return show_storage("/flash", out);
    case chassis_cpu_temp:
        return show_temperature(asked, out);
    default:
        /* What is left asks for a bypass by its number; no board here has one. */
        out.append(bypass_reply{subtype, 0, 0});
        return 0;
    }
}

int32_t chassis::show_cpu(card &one, uint32_t subtype, reply &out)
{
    cpu_record record = processors_.read();
    if (one.busy) {
        record = {one.at->cpus, *one.busy, *one.busy, 0, *one.busy};
    } else if (!options_.host) {
        record = {one.at->cpus, 0, 0, 0, 0};
    }
    if (subtype == 24) { /* what fits there is how many there are */
        const uint32_t head[4] = {subtype, 0, 0, record[cpu_count]};
        out.append(head);
        return 0;
    }
    cpu_record_reply answer{};
    std::memcpy(answer.unused, &subtype, sizeof subtype);
    std::memcpy(answer.record, record.data(), sizeof answer.record);
    out.append(answer);
    return 0;
}

int32_t chassis::show_memory(const card &one, reply &out) const
{
    memory_figures figures = host_memory(memory_mode_);
    if (one.memory_kib) {
        figures = {};
        figures[mem_total] = *one.memory_kib;
        figures[mem_free] = figures[mem_available] = *one.memory_kib / 2;
        figures[mem_used] = figures[mem_total] - figures[mem_free];
        figures[mem_used_percent] = figures[mem_used] * 100 / figures[mem_total];
        figures[mem_mode] = memory_mode_;
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
    std::optional<storage_figures> figures = file_system_figures(path);
    if (path == "/flash" && flash_[storage_total] != 0)
        figures = flash_;
    if (!figures)
        return -ENODEV;
    storage_figures_reply answer{};
    std::memcpy(answer.figures, figures->data(), sizeof answer.figures);
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

/* --- modules ---------------------------------------------------------------------------------------------
 */

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
    message.kind = by_slot ? one->state() : one->kind;
    fill_text(message.second_text, one->serial);
    fill_text(message.name, one->at->name);
    out.append(message);
    return 0;
}

} // namespace

const service_entry chassis_service = {
    "chassis", {}, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<chassis>(with); }};

} // namespace mixd
