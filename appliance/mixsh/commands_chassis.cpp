// The chassis: slots, processors, memory, modules, storage.
//
// A board is named by its slot here; the library's functions take the node, which is the slot and one.
#include "appliance/mixsh/shared.h"
#include "appliance/mixsh/times.h"
#include "appliance/wire/chassis.h"
#include "platform/board.h"

#include <libmix/chassisd.h>
#include <libmix/vchassisd.h>
#include <memory>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

// The board that a command names; without a slot this one.
struct board_words {
    std::uint32_t node, cpu;

    explicit board_words(const invocation &call)
        : node(call.has("slot") ? call.number_or<std::uint32_t>("slot", 0) + 1 : 0),
          cpu(call.number_or<std::uint32_t>("cpu", 0))
    {
    }
    request asking(std::uint32_t type, std::uint32_t subcommand) const
    {
        const std::uint32_t to = node == 0
                                     ? wire::chassis_manager
                                     : mktipcid(node, static_cast<std::uint16_t>(cpu), wire::chassis_manager);
        return {to, type, subcommand};
    }
};

// --- slots

constexpr column slot_columns[] = {
    {.title = "Slot", .key = "slot"},           {.title = "Board", .key = "board", .may_be_cut = true},
    {.title = "State", .key = "state"},         {.title = "For s", .key = "in_state_s"},
    {.title = "Card type", .key = "card_type"}, {.title = "Role", .key = "role"},
    {.title = "CPUs", .key = "processors"},
};

outcome show_slots(invocation &call)
{
    const board_words at(call);
    wire::slot_entry entries[wire::most_slots];
    std::uint32_t length = sizeof entries;
    const int result = call.has("slot") ? chassisd_get_slot_status2(at.node, at.cpu, entries, &length)
                                        : chassisd_get_slot_status(entries, &length);
    if (result != 0)
        return call.fail(at.asking(wire::slot_status_type, wire::slot_status_ask),
                         "the slot table can't be read");
    table rows(call.out(), slot_columns);
    for (std::size_t i = 0; i < length / sizeof entries[0]; i++) {
        const wire::slot_entry &one = entries[i];
        wire::slot_entry_own own;
        std::memcpy(&own, one.unused, sizeof own);
        rows.row({std::uint32_t{one.slot}, field_text(own.name), vchassisd_vm_state2str(one.state),
                  std::uint32_t{own.in_state}, fmt::format("{:#x}", std::uint32_t{one.card_type}),
                  std::uint32_t{one.role}, std::uint32_t{own.cpus}});
    }
    return outcome::done;
}

constexpr argument slots_arguments[] = {
    option("slot", kinds::number, "the board to ask for its table", slots), cpu_option};

outcome show_slot(invocation &call)
{
    const auto slot = call.number_or<std::uint16_t>("SLOT", 0);
    const int state = get_chassis_specified_slot_status(slot);
    if (state < 0)
        return call.fail(request{wire::chassis_manager, wire::slot_status_type, wire::slot_status_ask},
                         "the slot table can't be read");
    std::uint32_t removable = 0;
    const bool told = libchassisd_is_slot_cfg_removable(slot, &removable) == 0;
    call.out().record({{"Slot", "slot", std::uint32_t{slot}},
                       {"State", "state", vchassisd_vm_state2str(static_cast<std::uint32_t>(state))},
                       {"Present", "present", chassisd_card_is_present(slot) != 0},
                       {"Has entered booting", "booting", chassisd_card_is_enter_booting(slot) != 0},
                       {"Online", "online", chassisd_card_is_online(slot) == 1},
                       {"Settings can be cleared", "clearable", told ? cell(removable != 0) : cell()}});
    return outcome::done;
}

outcome clear_slot(invocation &call)
{
    if (libchassisd_clear_slot_cfg(call.number_or<std::uint16_t>("SLOT", 0)) != 0)
        return call.fail(request{wire::chassis_manager, wire::slot_cfg_type, wire::slot_cfg_clear},
                         "the slot's settings were not cleared");
    return outcome::done;
}

outcome detach_slot(invocation &call)
{
    if (libchassisd_detach_slot(call.number_or<std::uint32_t>("SLOT", 0)) != 0)
        return call.fail(request{wire::chassis_main, wire::slot_detach_type, wire::slot_detach},
                         "the slot was not detached");
    return outcome::done;
}

constexpr choice card_actions[] = {{"boot", "the card comes up", wire::card_boot},
                                   {"stop", "the card goes down", wire::card_stop},
                                   {"reboot", "the card starts again", wire::card_reboot}};

outcome set_card(invocation &call)
{
    const std::uint8_t card[6] = {call.number_or<std::uint8_t>("SLOT", 0)};
    const auto code = static_cast<wire::card_notice_code>(call.chosen("ACTION").value_or(wire::card_boot));
    const auto tell = code == wire::card_boot   ? libchassisd_vchassis_notify_boot_pic
                      : code == wire::card_stop ? libchassisd_vchassis_notify_stop_pic
                                                : libchassisd_vchassis_notify_reboot_pic;
    std::uint16_t answer = 0;
    const request asking{wire::chassis_manager, wire::card_notice_type, code};
    if (tell(card, &answer) != 0)
        return call.fail(asking, "the chassis manager did not take the notice");
    if (answer != 0)
        return call.fail("the chassis manager has no such card", "\"show slots\" lists those it has");
    return outcome::done;
}
constexpr argument card_arguments[] = {
    slot_value, value("ACTION", kinds::one_of, "what the card does", {.choices = card_actions})};

// --- processors and memory

void print_cpu(invocation &call, const std::uint32_t (&record)[wire::cpu_fields])
{
    call.out().record({{"Processors", "processors", record[wire::cpu_count]},
                       {"Busy (%)", "busy_percent", record[wire::cpu_busy]},
                       {"User (%)", "user_percent", record[wire::cpu_user]},
                       {"System (%)", "system_percent", record[wire::cpu_system]},
                       {"Load", "load", cell(record[wire::cpu_load] / 100.0)}});
}

outcome show_cpu(invocation &call)
{
    const board_words at(call);
    std::uint32_t record[wire::cpu_fields] = {};
    const int result = call.has("slot") ? chassisd_get_slot_cpu_info(at.node, at.cpu, record)
                                        : chassisd_get_local_cpu_info(record);
    if (result != 0)
        return call.fail(at.asking(wire::chassis_query_type, wire::chassis_cpu_record),
                         "the processor's figures can't be read");
    print_cpu(call, record);
    return outcome::done;
}

outcome show_cpu_system(invocation &call)
{
    std::uint32_t record[wire::cpu_fields] = {};
    if (chassisd_get_system_current_cpu_info(record) != 0)
        return call.fail(request{wire::chassis_manager, wire::chassis_query_type, wire::chassis_cpu_record},
                         "the system's processor figures can't be read");
    print_cpu(call, record);
    return outcome::done;
}

// Details of a board's processors: a buffer of the library's, which ends with its owner.
struct cpu_details {
    std::unique_ptr<void, decltype(&ipcmsg_free)> buffer{nullptr, ipcmsg_free};
    std::uint32_t length = 0;

    bool ask(const board_words &of, std::uint32_t subtype)
    {
        void *filled = nullptr;
        if (chassisd_get_cpu_info(of.node, of.cpu, subtype, &filled, &length) != 0)
            return false;
        buffer.reset(filled);
        return true;
    }
    // What the reply does not reach is zero.
    template <typename Record>
    Record at(std::size_t offset) const
    {
        Record out{};
        if (offset < length)
            std::memcpy(&out, static_cast<const std::uint8_t *>(buffer.get()) + offset,
                        std::min<std::size_t>(sizeof out, length - offset));
        return out;
    }
    template <typename Row, typename Print>
    void each_row(Print &&print) const
    {
        const auto head = at<wire::cpu_table_head>(0);
        for (std::size_t i = 0; i < head.count && sizeof head + (i + 1) * sizeof(Row) <= length; i++)
            print(at<Row>(sizeof head + i * sizeof(Row)));
    }
};

outcome no_details(invocation &call, const board_words &of, std::uint32_t subtype)
{
    return call.fail(of.asking(wire::chassis_query_type, subtype), "the processor's figures can't be read");
}

outcome show_cpu_average(invocation &call)
{
    const board_words of(call);
    cpu_details got;
    if (!got.ask(of, wire::cpu_since_start))
        return no_details(call, of, wire::cpu_since_start);
    const auto reply = got.at<wire::cpu_record_reply>(0);
    std::uint32_t record[wire::cpu_fields];
    std::memcpy(record, reply.record, sizeof record);
    print_cpu(call, record);
    return outcome::done;
}

constexpr column each_cpu_columns[] = {{.title = "Processor", .key = "cpu"},
                                       {.title = "Busy (%)", .key = "busy_percent"},
                                       {.title = "User (%)", .key = "user_percent"},
                                       {.title = "System (%)", .key = "system_percent"}};

outcome show_cpu_each(invocation &call)
{
    const board_words of(call);
    cpu_details got;
    if (!got.ask(of, wire::cpu_each))
        return no_details(call, of, wire::cpu_each);
    table rows(call.out(), each_cpu_columns);
    got.each_row<wire::cpu_each_row>([&](const wire::cpu_each_row &one) {
        rows.row({std::uint32_t{one.number}, std::uint32_t{one.busy}, std::uint32_t{one.user},
                  std::uint32_t{one.system}});
    });
    return outcome::done;
}

constexpr column process_columns[] = {{.title = "Process", .key = "pid"},
                                      {.title = "Name", .key = "name", .may_be_cut = true},
                                      {.title = "Processor time (s)", .key = "cpu_s"},
                                      {.title = "Memory (KiB)", .key = "memory_kib"},
                                      {.title = "Threads", .key = "threads"}};

outcome show_cpu_processes(invocation &call)
{
    const board_words of(call);
    const std::uint32_t subtype = call.has("memory") ? wire::cpu_memory : wire::cpu_processes;
    cpu_details got;
    if (!got.ask(of, subtype))
        return no_details(call, of, subtype);
    table rows(call.out(), process_columns);
    got.each_row<wire::cpu_process_row>([&](const wire::cpu_process_row &one) {
        rows.row({std::uint32_t{one.pid}, field_text(one.name),
                  cell(static_cast<double>(one.cpu_ms) / 1000.0), std::uint64_t{one.memory_kib},
                  std::uint32_t{one.threads}});
    });
    rows.end();
    const auto head = got.at<wire::cpu_table_head>(0);
    if (head.all > head.count)
        call.out().note(
            fmt::format("{} of {} processes", std::uint32_t{head.count}, std::uint32_t{head.all}));
    return outcome::done;
}
constexpr argument process_arguments[] = {flag("memory", "those with the most memory first"), slot_option,
                                          cpu_option};

constexpr column interrupt_columns[] = {{.title = "Interrupt", .key = "interrupt"},
                                        {.title = "Count", .key = "count"},
                                        {.title = "Of", .key = "of", .may_be_cut = true}};

outcome show_cpu_interrupts(invocation &call)
{
    const board_words of(call);
    cpu_details got;
    if (!got.ask(of, wire::cpu_interrupts))
        return no_details(call, of, wire::cpu_interrupts);
    table rows(call.out(), interrupt_columns);
    got.each_row<wire::cpu_interrupt_row>([&](const wire::cpu_interrupt_row &one) {
        rows.row({field_text(one.name), std::uint64_t{one.count}, field_text(one.what)});
    });
    return outcome::done;
}

outcome show_cpu_summary(invocation &call)
{
    const board_words of(call);
    cpu_details got;
    if (!got.ask(of, wire::cpu_summary))
        return no_details(call, of, wire::cpu_summary);
    const auto is = got.at<wire::cpu_summary_reply>(0);
    call.out().record({{"Processors", "processors", std::uint32_t{is.processors}},
                       {"Load", "load", cell(is.load / 100.0)},
                       {"Up for (s)", "up_s", std::uint32_t{is.up_seconds}}});
    return outcome::done;
}

outcome show_bypass(invocation &call)
{
    const auto number = call.number_or<std::uint32_t>("NUMBER", 0);
    cpu_details got;
    void *filled = nullptr;
    if (chassisd_get_bypass_info(number, &filled, &got.length) != 0)
        return call.fail(request{wire::chassis_manager, wire::chassis_query_type, number},
                         "the bypass can't be asked for");
    got.buffer.reset(filled);
    const auto is = got.at<wire::bypass_reply>(0);
    const bool there = is.supported != 0;
    call.out().record({{"Bypass", "bypass", std::uint32_t{is.which}},
                       {"There", "there", there},
                       {"On", "on", there ? cell(is.on != 0) : cell()}});
    return outcome::done;
}
constexpr argument bypass_arguments[] = {value("NUMBER", kinds::number, "a bypass of this board")};

outcome show_memory(invocation &call)
{
    const board_words at(call);
    std::uint64_t figures[wire::mem_fields] = {};
    if (chassisd_get_slot_mem(at.node, at.cpu, figures) != 0 || figures[wire::mem_total] == 0)
        return call.fail(at.asking(wire::chassis_query_type, wire::chassis_slot_mem),
                         "the memory figures can't be read");
    call.out().record(
        {{"Total (KiB)", "total_kib", figures[wire::mem_total]},
         {"Used (KiB)", "used_kib", figures[wire::mem_used]},
         {"Used (%)", "used_percent", figures[wire::mem_used_percent]},
         {"Free (KiB)", "free_kib", figures[wire::mem_free]},
         {"Available (KiB)", "available_kib", figures[wire::mem_available]},
         {"Buffers (KiB)", "buffers_kib", figures[wire::mem_buffers]},
         {"Cached (KiB)", "cached_kib", figures[wire::mem_cached]},
         {"Swap (KiB)", "swap_kib", figures[wire::mem_swap_total]},
         {"Swap free (KiB)", "swap_free_kib", figures[wire::mem_swap_free]},
         {"Used counts caches", "with_caches", figures[wire::mem_mode] == wire::mem_with_caches}});
    return outcome::done;
}

constexpr choice memory_modes[] = {{"available", "memory that could be had back is not used", 0},
                                   {"caches", "caches count as used", 1}};
outcome set_memory_mode(invocation &call)
{
    const board_words at(call);
    if (chassisd_set_slot_mem_calc_mode(at.node, at.cpu,
                                        static_cast<std::uint32_t>(call.chosen("MODE").value_or(0))) != 0)
        return call.fail(at.asking(wire::chassis_query_type, wire::chassis_set_mem_mode),
                         "the memory calculation was not changed");
    return outcome::done;
}
constexpr argument memory_mode_arguments[] = {
    value("MODE", kinds::one_of, "what counts as used", {.choices = memory_modes}), slot_option, cpu_option};

outcome show_temperature(invocation &call)
{
    std::uint32_t degrees = 0;
    const auto slot = call.number_or<std::uint32_t>("slot", tq_get_slot());
    if (chassisd_get_cpu_temp(slot, call.number_or<std::uint32_t>("cpu", 0), &degrees) != 0)
        return call.fail(request{wire::chassis_manager, wire::chassis_query_type, wire::chassis_cpu_temp},
                         "the temperature can't be read");
    call.out().record({{"Temperature (C)", "temperature_c", static_cast<std::int32_t>(degrees)}});
    return outcome::done;
}

outcome show_pool(invocation &call)
{
    std::uint32_t figures[4] = {};
    const auto pool = call.number_or<std::uint32_t>("POOL", 0);
    if (libchassisd_get_data_pak_buffer_pool_info(figures, pool) != 0)
        return call.fail(request{wire::chassis_main, wire::buffer_pool_type, wire::buffer_pool_show},
                         "the buffer pool can't be read");
    call.out().record({{"Total", "total", figures[wire::pool_total]},
                       {"Used", "used", figures[wire::pool_used]},
                       {"Free", "free", figures[wire::pool_free]},
                       {"Failed", "failed", figures[wire::pool_failed]}});
    return outcome::done;
}
constexpr argument pool_arguments[] = {value("POOL", kinds::number, "a buffer pool", {.high = 255})};

// --- modules

struct module_record {
    std::uint32_t valid;
    char slot[128];
    std::uint32_t kind;
    char name[64];
    char serial[32];
};
static_assert(sizeof(module_record) == 232);

constexpr column module_columns[] = {
    {.title = "Where", .key = "where"},
    {.title = "Kind", .key = "kind"},
    {.title = "Name", .key = "name", .may_be_cut = true},
    {.title = "Serial number", .key = "serial"},
};

outcome show_modules(invocation &call)
{
    const request asking{wire::chassis_manager, wire::module_type, wire::module_number};
    std::uint32_t count = 0;
    if (libchassisd_get_module_number(&count) != 0)
        return call.fail(asking, "the modules can't be counted");
    table rows(call.out(), module_columns);
    for (std::uint32_t i = 0; i < count; i++) {
        std::uint32_t words[sizeof(module_record) / sizeof(std::uint32_t)] = {};
        if (libchassisd_get_module_info(words, i) != 0)
            return call.fail(request{wire::chassis_manager, wire::module_type, wire::module_info},
                             "a module can't be read");
        module_record one;
        std::memcpy(&one, words, sizeof one);
        rows.row({field_text(one.slot), one.kind, field_text(one.name), field_text(one.serial)});
    }
    return outcome::done;
}

outcome show_module(invocation &call)
{
    const auto slot = call.number_or<std::uint16_t>("SLOT", 0);
    std::uint32_t state = 0;
    const std::uint32_t platform = libchassisd_get_module_plat_id(slot);
    if (platform == 0 || libchassisd_get_module_slot_state(slot, &state) != 0)
        return call.fail(request{wire::chassis_manager, wire::module_type, wire::module_of_slot},
                         "the slot's module can't be read");
    call.out().record({{"Slot", "slot", std::uint32_t{slot}},
                       {"Platform", "platform", fmt::format("{:#x}", platform)},
                       {"State", "state", vchassisd_vm_state2str(state)}});
    return outcome::done;
}

outcome show_fru(invocation &call)
{
    wire::module_fru is{};
    if (libchassisd_get_module_fru_entry(call.number_or<std::uint16_t>("SLOT", 0), &is, sizeof is) != 0)
        return call.fail(request{mktipcid_by_slot(tq_get_mcp_slot(), wire::chassis_manager),
                                 wire::module_type, wire::module_of_slot},
                         "the module's FRU can't be read");
    call.out().record({{"Slot", "slot", std::uint32_t{is.slot}},
                       {"Name", "name", field_text(is.name)},
                       {"Serial number", "serial", field_text(is.serial)},
                       {"Part number", "part_number", field_text(is.part_number)},
                       {"Revision", "revision", field_text(is.revision)},
                       {"Made", "made", local_time(is.made)},
                       {"Platform", "platform", fmt::format("{:#x}", std::uint32_t{is.platform_id})}});
    return outcome::done;
}

// --- the board that the shell runs on

std::string storage_name(int type)
{
    char name[32] = {};
    libchassisd_storage_type_2_string(static_cast<std::uint32_t>(type), name, sizeof name);
    return name;
}

outcome show_board(invocation &call)
{
    std::uint32_t devices = 0;
    libchassisd_get_block_storage_num(&devices);
    call.out().record({{"Slot", "slot", tq_get_slot()},
                       {"Master in slot", "master", tq_get_mcp_slot()},
                       {"Platform", "platform", fmt::format("{:#x}", tq_platform_id())},
                       {"Switch module", "switch_module", qsm_is_available() != 0},
                       {"Storage devices", "storage_devices", devices},
                       {"Internal storage", "internal_storage", storage_name(tq_get_internal_storage_type())},
                       {"eMMC behind USB", "emmc_by_usb", check_emmc_convert_by_usb() != 0}});
    return outcome::done;
}

// --- storage

constexpr column storage_columns[] = {
    {.title = "Storage", .key = "storage"},
    {.title = "Type", .key = "type"},
    {.title = "Device", .key = "device"},
    {.title = "Total (KiB)", .key = "total_kib"},
    {.title = "Free (KiB)", .key = "free_kib"},
    {.title = "Description", .key = "description", .may_be_cut = true},
};

void storage_row(table &rows, int which)
{
    libchassisd_block_storage one{};
    if (libchassisd_get_block_storage_info(&one, which) != 0)
        return;
    rows.row({which == 1 ? "internal" : "external", storage_name(static_cast<int>(one.type)),
              field_text(one.device), unless_zero(one.first_size),
              one.first_size != 0 ? cell(one.second_size) : cell(), field_text(one.description)});
}

outcome show_storage(invocation &call)
{
    table rows(call.out(), storage_columns);
    storage_row(rows, 1);
    if (tq_get_external_storage_type() > 0)
        storage_row(rows, 2);
    rows.end();
    if (rows.rows() == 0)
        call.out().note("this board's storage can't be told");
    return outcome::done;
}

outcome show_storage_path(invocation &call)
{
    const char *path = call.text("PATH");
    call.out().record(
        {{"Path", "path", path}, {"Type", "type", storage_name(libchassisd_get_disk_type_bypath(path))}});
    return outcome::done;
}
constexpr argument path_arguments[] = {value("PATH", kinds::file, "a path on the storage")};

outcome show_size(invocation &call, int result, const std::uint64_t (&figures)[3], const request &exchange)
{
    if (result != 0)
        return call.fail(exchange, "the storage figures can't be read");
    call.out().record({{"Total (KiB)", "total_kib", figures[wire::storage_total]},
                       {"Used (KiB)", "used_kib", figures[wire::storage_used]},
                       {"Free (KiB)", "free_kib", figures[wire::storage_free]}});
    return outcome::done;
}

outcome show_flash(invocation &call)
{
    const board_words at(call);
    std::uint64_t figures[3] = {};
    const int result = chassisd_get_slot_flash_info(at.node, at.cpu, figures);
    return show_size(call, result, figures, at.asking(wire::chassis_query_type, wire::chassis_flash));
}

outcome show_disk_size(invocation &call)
{
    std::uint64_t figures[3] = {};
    const int result = chassisd_get_harddisk_info(figures);
    return show_size(call, result, figures,
                     {wire::chassis_manager, wire::chassis_query_type, wire::chassis_harddisk});
}

// A serial number or a model as it comes: blanks and the line's end don't belong to it.
cell trimmed(const char *text)
{
    std::string out(text);
    while (!out.empty() && static_cast<unsigned char>(out.back()) <= ' ')
        out.pop_back();
    return out;
}

outcome show_disk(invocation &call)
{
    char serial[64] = {}, model[64] = {}, device[32] = {}, type[64] = {};
    const int sata = call.has("sata") ? 1 : 0;
    const bool has_serial = libchassisd_get_harddisk_sn(serial, sizeof serial - 1) == 0;
    const bool named = libchassisd_get_device_name(device, sata, sizeof device) == 0;
    const bool has_model = named && libchassisd_get_disk_device_model(model, sata, sizeof model) == 0;
    if (named)
        libchassisd_get_disk_filesystem_type_byname(device, type);
    if (!has_serial && !named)
        return call.fail("no disk of this machine tells its identity",
                         sata != 0 ? "the start-up scripts name the SATA disk in /tmp/sata_dev"
                                   : "the start-up scripts name the system's disk in /tmp/tq_systemdevice");
    call.out().record({{"Device", "device", named ? trimmed(device) : cell()},
                       {"Serial number", "serial", has_serial ? trimmed(serial) : cell()},
                       {"Model", "model", has_model ? trimmed(model) : cell()},
                       {"File system", "file_system", named ? trimmed(type) : cell()}});
    return outcome::done;
}
constexpr argument disk_arguments[] = {flag("sata", "the SATA disk instead of the system's")};

// Of one disk, whatever the machine boots from.
outcome show_serial(invocation &call)
{
    const char *device = call.text("DEVICE");
    char serial[64] = {};
    const int result = device != nullptr ? libchassisd_get_sata_ssd_disk_sn(device, serial, sizeof serial - 1)
                                         : libchassisd_get_pcie_ssd_disk_sn(serial, sizeof serial - 1);
    if (result != 0)
        return call.fail("the disk can't be asked for its serial number",
                         device != nullptr ? "" : "/bin/nvme asks the NVMe disk; it must be there");
    call.out().record({{"Device", "device", device}, {"Serial number", "serial", trimmed(serial)}});
    return outcome::done;
}
constexpr argument serial_arguments[] = {
    optional_value("DEVICE", kinds::word, "a SATA disk's name; without one the NVMe disk", {.longest = 255})};

constexpr command commands[] = {
    {"show slots", "the cards of the chassis", show_slots, slots_arguments},
    {"show slot", "one card of the chassis", show_slot, slot_arguments},
    {"clear slot", "clear the settings of a slot whose card is not at work", clear_slot, slot_arguments},
    {"delete slot", "detach a card of a virtual chassis", detach_slot, slot_arguments},
    {"set slot", "boot, stop or reboot a card of a virtual chassis", set_card, card_arguments},
    {"show cpu", "a processor's figures", show_cpu, board_arguments},
    {"show cpu system", "the figures of the busiest board", show_cpu_system},
    {"show cpu average", "a processor's figures since its board started", show_cpu_average, board_arguments},
    {"show cpu each", "a board's processors, each by itself", show_cpu_each, board_arguments},
    {"show cpu processes", "what runs on a board", show_cpu_processes, process_arguments},
    {"show cpu interrupts", "a board's interrupts", show_cpu_interrupts, board_arguments},
    {"show cpu summary", "how many processors, their load, and since when", show_cpu_summary,
     board_arguments},
    {"show bypass", "whether a bypass of this board is on", show_bypass, bypass_arguments},
    {"show board", "the board that the shell runs on", show_board},
    {"show memory", "a board's memory", show_memory, board_arguments},
    {"set memory", "what counts as used memory", set_memory_mode, memory_mode_arguments},
    {"show memory pool", "a data packet buffer pool", show_pool, pool_arguments},
    {"show temperature", "a processor's temperature", show_temperature, board_arguments},
    {"show modules", "the modules of the chassis", show_modules},
    {"show module", "the module of one slot", show_module, slot_arguments},
    {"show module fru", "what a slot's module tells of itself", show_fru, slot_arguments},
    {"show storage", "this board's internal and external storage", show_storage},
    {"show storage path", "the kind of storage that holds a path", show_storage_path, path_arguments},
    {"show storage flash", "the size of a board's flash", show_flash, board_arguments},
    {"show storage disk", "the size of the hard disk", show_disk_size},
    {"show disk", "the identity of the system's disk", show_disk, disk_arguments},
    {"show disk serial", "a disk's serial number", show_serial, serial_arguments},
};

} // namespace

extern const family chassis_family;
const family chassis_family{"chassis", "slots, processors, memory, modules, storage", commands};

} // namespace mixsh
