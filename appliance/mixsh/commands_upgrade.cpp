// In-service upgrade.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/issu.h"

#include <fmt/format.h>
#include <libmix/issu.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

request asking(wire::issu_code code)
{
    return {wire::issu_manager, wire::issu_type, static_cast<std::uint32_t>(code)};
}

// The upgrade family keeps its text instead of printing it.
outcome failed(invocation &call, wire::issu_code code, std::string_view what)
{
    call.print()("%s\n", issu_err_str_get());
    return call.fail(asking(code), what);
}

// The manager answered, and with a number above 0: that is not an error of the system but its refusal.
bool refused()
{
    return std::string_view(issu_err_str_get()) == "Handle error" && !failed_silently();
}

const char *state_name(wire::upgrade_state state)
{
    const auto index = static_cast<std::size_t>(state);
    return index < std::size(wire::upgrade_state_names) ? wire::upgrade_state_names[index] : "unknown";
}

outcome show_upgrade(invocation &call)
{
    wire::upgrade_summary is;
    if (issu_show_sum(0, &is) != 0)
        return failed(call, wire::issu_code::show_sum, "the upgrade's state can't be read");
    call.out().record({{"State", "state", state_name(is.state)},
                       {"Done (%)", "done_percent", std::uint32_t{is.percent}},
                       {"Processors", "processors", std::uint32_t{is.processors}},
                       {"Upgraded", "upgraded", std::uint32_t{is.upgraded}},
                       {"Running version", "running", field_text(is.running)},
                       {"Target version", "target", field_text(is.target)},
                       {"Image", "image", field_text(is.image)},
                       {"Configuration locked", "locked", is.config_locked != 0},
                       {"Notices taken", "notices", std::uint32_t{is.notices}},
                       {"Last step", "last_step", field_text(is.text)}});
    return outcome::done;
}

constexpr column processor_columns[] = {
    {.title = "Slot", .key = "slot"},
    {.title = "CPU", .key = "cpu"},
    {.title = "State", .key = "state", .at_least = 15},
    {.title = "Done %", .key = "done_percent"},
    {.title = "Version", .key = "version", .may_be_cut = true},
};

table *processor_rows; // the library's callback has no context
int print_processor(const void *entry, int)
{
    wire::upgrade_processor one;
    std::memcpy(&one, entry, sizeof one);
    processor_rows->row({std::uint32_t{one.slot}, std::uint32_t{one.cpu}, state_name(one.state),
                         std::uint32_t{one.percent}, field_text(one.version)});
    return 0;
}

outcome show_processors(invocation &call)
{
    table rows(call.out(), processor_columns);
    processor_rows = &rows;
    const int result = issu_show_cpu_status(0, print_processor);
    rows.end();
    if (result != 0)
        return failed(call, wire::issu_code::cpu_status, "the processors' states can't be read");
    return outcome::done;
}

constexpr argument image_value =
    value("IMAGE", kinds::word, "an image's file name in the images' directory", {.longest = 127});
constexpr choice modes[] = {{"checked", "only an image whose lists name what runs", wire::upgrade_checked},
                            {"forced", "whatever the image's lists say", wire::upgrade_forced}};
constexpr argument start_arguments[] = {image_value,
                                        option("mode", kinds::one_of, "how strict", {.choices = modes})};

outcome start(invocation &call)
{
    const auto mode = static_cast<std::uint32_t>(call.chosen("mode").value_or(wire::upgrade_checked));
    if (issu_start(mode, call.text("IMAGE"), "") == 0)
        return outcome::done;
    constexpr std::string_view what = "the upgrade was not started";
    wire::upgrade_summary summary; // tells why
    if (!refused() || issu_show_sum(0, &summary) != 0)
        return failed(call, wire::issu_code::start, what);
    call.print()("%s\n", field_text(summary.text).c_str());
    return call.fail(what);
}

outcome no_image(invocation &call)
{
    return call.fail("there is no such image",
                     "images are files in the directory that the scenario's [upgrade] "
                     "names, else in images beside mixd's store");
}

outcome load(invocation &call)
{
    switch (issu_buf_image_load(call.text("IMAGE"))) {
    case wire::upgrade_ok:
        return outcome::done;
    case wire::upgrade_no_image:
        return no_image(call);
    case wire::upgrade_bad_image:
        return call.fail("the file is no image", "its first line must be VERSION and a version");
    default:
        return failed(call, wire::issu_code::buf_image_load, "the image was not loaded");
    }
}
constexpr argument load_arguments[] = {image_value};

outcome check(invocation &call)
{
    std::uint32_t result = 0;
    char text[256] = {};
    if (issu_check(0, &result, text, sizeof text) != 0)
        return failed(call, wire::issu_code::check, "the check can't be made");
    call.out().record({{"Possible", "possible", result == wire::upgrade_ok}, {"Reason", "reason", text}});
    return outcome::done;
}

outcome show_version(invocation &call)
{
    char version[128] = {};
    if (!call.has("slot")) {
        wire::upgrade_summary is;
        if (issu_show_sum(0, &is) != 0)
            return failed(call, wire::issu_code::show_sum, "the version can't be read");
        call.out().record({{"Version", "version", field_text(is.running)}});
        return outcome::done;
    }
    const auto slot = call.number_or<std::uint16_t>("slot", 0), cpu = call.number_or<std::uint16_t>("cpu", 0);
    if (issu_ver_get(slot, cpu, version, sizeof version) != 0)
        return call.fail(request{mktipcid(slot + 1u, cpu, wire::issu_manager), wire::issu_type,
                                 static_cast<std::uint32_t>(wire::issu_code::ver_get)},
                         "the version can't be read");
    call.out().record({{"Version", "version", version}});
    return outcome::done;
}

outcome no_image_loaded(invocation &call)
{
    return call.fail("no image is loaded", "\"set upgrade image IMAGE\" loads one");
}

outcome show_loaded(invocation &call)
{
    char version[128] = {};
    if (issu_buf_image_ver_get(version, sizeof version) != 0)
        return refused() ? no_image_loaded(call)
                         : failed(call, wire::issu_code::buf_image_ver_get, "the version can't be read");
    call.out().record({{"Version", "version", version}});
    return outcome::done;
}

constexpr char loaded_or_named[] = "an image; without one the image that is loaded";
constexpr choice list_choices[] = {{"up", "versions that it is an upgrade of", wire::lists_up},
                                   {"down", "versions that it is a downgrade of", wire::lists_down}};

// The text of the lists of the image that a command names.
bool read_lists(invocation &call, std::uint8_t which, std::string &lists)
{
    lists.resize(wire::issu_reply_capacity);
    auto length = static_cast<std::uint32_t>(lists.size());
    if (issu_image_clist_get(0, call.text_or("IMAGE", ""), which, lists.data(), &length) != 0)
        return false;
    lists.resize(length);
    return true;
}

outcome no_lists(invocation &call)
{
    if (refused())
        return call.has("IMAGE") ? no_image(call) : no_image_loaded(call);
    return failed(call, wire::issu_code::image_clist, "the lists can't be read");
}

outcome show_lists(invocation &call)
{
    std::string lists;
    if (!read_lists(call, static_cast<std::uint8_t>(call.chosen("list").value_or(wire::lists_all)), lists))
        return no_lists(call);
    call.out().plain(lists);
    return outcome::done;
}
constexpr argument list_arguments[] = {
    optional_value("IMAGE", kinds::word, loaded_or_named, {.longest = 127}),
    option("list", kinds::one_of, "one of the lists", {.choices = list_choices})};

// Entries of a list, by the reader that decides with them.
outcome show_entries(invocation &call)
{
    constexpr column columns[] = {{.title = "Entry", .key = "entry"}};
    std::string lists;
    char entry[256];
    if (!read_lists(call, wire::lists_all, lists))
        return no_lists(call);
    const std::string name = call.text("LIST");
    table rows(call.out(), columns);
    if (issu_first_ver_get(lists.c_str(), name.c_str(), entry, sizeof entry) != 0)
        return outcome::done; // no such list, or an empty one
    const char *at = lists.c_str() + lists.find(name) + name.size();
    while ((at = issu_get_clist_one(at, entry, sizeof entry)) != nullptr)
        rows.row({entry});
    return outcome::done;
}
constexpr argument entry_arguments[] = {
    value("LIST", kinds::word, "the list's name: UP-LIST, DOWN-LIST", {.longest = 127}),
    optional_value("IMAGE", kinds::word, loaded_or_named, {.longest = 127})};

// Whether a version stands in a list; nothing where the image has no such list.
cell listed(int answer)
{
    return answer < 0 ? cell() : cell(answer == 0);
}

outcome show_compatible(invocation &call)
{
    std::string lists;
    if (!read_lists(call, wire::lists_all, lists))
        return no_lists(call);
    const char *version = call.text("VERSION");
    const char *other = call.text("list");
    call.out().record({{"Version", "version", version},
                       {"Can be upgraded", "up", listed(issu_ver_up_ck(lists.c_str(), version))},
                       {"Can be downgraded", "down", listed(issu_ver_down_ck(lists.c_str(), version))},
                       {"In the named list", "in_list",
                        other != nullptr ? listed(_issu_ver_ck_(lists.c_str(), version, other)) : cell()}});
    return outcome::done;
}
constexpr argument compatible_arguments[] = {
    value("VERSION", kinds::word, "a version", {.longest = 255}),
    optional_value("IMAGE", kinds::word, loaded_or_named, {.longest = 127}),
    option("list", kinds::word, "another list of the image", {.longest = 127})};

outcome lock(invocation &call)
{
    if (issu_lock_cfg(static_cast<std::uint32_t>(call.chosen("STATE").value_or(0))) != 0)
        return call.fail(request{wire::issu_config, wire::issu_type,
                                 static_cast<std::uint32_t>(wire::issu_code::lock_cfg)},
                         "the configuration lock was not changed");
    return outcome::done;
}
constexpr argument lock_arguments[] = {value("STATE", kinds::one_of, "locked or not", on_off)};

outcome show_gshut(invocation &call)
{
    wire::graceful_record is;
    if (issu_show_gshut(0, &is) != 0)
        return failed(call, wire::issu_code::show_gshut, "the graceful shutdown can't be read");
    const bool any = is.modules != 0;
    call.out().record({{"Modules shut down", "modules", std::uint32_t{is.modules}},
                       {"Last", "last", field_text(is.last)},
                       {"Its part", "part", field_text(is.second)},
                       {"Processor", "cpu", any ? cell(std::uint32_t{is.cpu}) : cell()},
                       {"First number", "first", any ? cell(std::uint32_t{is.words[0]}) : cell()},
                       {"Second number", "second", any ? cell(std::uint32_t{is.words[1]}) : cell()}});
    return outcome::done;
}

outcome shut(invocation &call)
{
    std::uint32_t result = 0;
    if (issu_sm_shut(call.number_or<std::uint32_t>("cpu", 0), &result,
                     call.number_or<std::uint16_t>("first", 0), call.number_or<std::uint16_t>("second", 0),
                     call.text("MODULE"), call.text_or("part", "")) != 0)
        return failed(call, wire::issu_code::sm_shut, "the module was not shut down");
    if (result != wire::upgrade_ok)
        return call.fail(fmt::format("the upgrade manager answers {}", result));
    return outcome::done;
}
constexpr limits words_of_16_bits{.high = 65535};
constexpr argument shut_arguments[] = {
    value("MODULE", kinds::word, "a service module", {.longest = 127}),
    option("part", kinds::word, "a part of it", {.longest = 31}), option("cpu", kinds::number, "a processor"),
    option("first", kinds::number, "a number for the module", words_of_16_bits),
    option("second", kinds::number, "another", words_of_16_bits)};

// --- notices: messages that nobody answers

outcome told(invocation &call, wire::issu_code code, std::uint32_t to, int result)
{
    if (result == 0)
        return outcome::done;
    call.print()("%s\n", issu_err_str_get());
    return call.fail(request{to, wire::issu_type, static_cast<std::uint32_t>(code)},
                     "the notice was not sent");
}

struct processor_words {
    std::uint16_t slot, cpu;
    explicit processor_words(const invocation &call)
        : slot(call.number_or<std::uint16_t>("SLOT", 0)), cpu(call.number_or<std::uint16_t>("CPU", 0))
    {
    }
    std::uint32_t daemon(std::uint32_t number) const { return mktipcid(slot + 1u, cpu, number); }
};

constexpr argument value_arguments[] = {value("VALUE", kinds::number, "what is told")};
constexpr argument short_value_arguments[] = {
    value("VALUE", kinds::number, "what is told", words_of_16_bits)};
constexpr argument processor_arguments[] = {slot_value, cpu_value};
constexpr argument processor_value_arguments[] = {slot_value, cpu_value, value_arguments[0]};
constexpr argument nat_arguments[] = {value("FIRST", kinds::number, "first number", words_of_16_bits),
                                      value("SECOND", kinds::number, "second number", words_of_16_bits),
                                      value("THIRD", kinds::number, "third number", words_of_16_bits),
                                      value("FOURTH", kinds::number, "fourth number", words_of_16_bits)};
constexpr argument session_arguments[] = {slot_value, cpu_value, nat_arguments[0], nat_arguments[1]};

outcome send_nat(invocation &call)
{
    const auto n = [&](std::string_view name) { return call.number_or<std::uint16_t>(name, 0); };
    return told(call, wire::issu_code::nat_transfer, wire::issu_main,
                issu_send_nat_transfer(n("FIRST"), n("SECOND"), n("THIRD"), n("FOURTH")));
}

outcome merge_nat(invocation &call)
{
    const processor_words of(call);
    return told(call, wire::issu_code::nat_merge, of.daemon(wire::issu_main),
                issu_send_nat_merge(of.slot, of.cpu));
}

outcome report_nat(invocation &call)
{
    return told(call, wire::issu_code::report_nat_transfer, wire::issu_manager,
                issu_report_nat_transfer(call.number_or<std::uint32_t>("VALUE", 0)));
}

outcome send_sessions(invocation &call)
{
    const processor_words of(call);
    return told(call, wire::issu_code::sess_transfer, of.daemon(wire::issu_main),
                issu_send_sess_transfer(of.slot, of.cpu, call.number_or<std::uint16_t>("FIRST", 0),
                                        call.number_or<std::uint16_t>("SECOND", 0)));
}

outcome report_sessions(invocation &call)
{
    const processor_words of(call);
    return told(call, wire::issu_code::report_sess_transfer, of.daemon(wire::issu_manager),
                issu_report_sess_transfer(of.slot, of.cpu, call.number_or<std::uint32_t>("VALUE", 0)));
}

outcome poll_sync(invocation &call)
{
    return told(call, wire::issu_code::ssmha_warm_sync_poll, wire::issu_main,
                issu_send_ssmha_warm_sync_poll(call.number_or<std::uint16_t>("VALUE", 0)));
}

outcome report_sync(invocation &call)
{
    return told(call, wire::issu_code::report_ssmha_warm_sync, wire::issu_manager,
                issu_report_ssmha_warm_sync(call.number_or<std::uint16_t>("VALUE", 0)));
}

outcome switch_unit(invocation &call)
{
    const processor_words of(call);
    return told(call, wire::issu_code::dmcu_switch, of.daemon(wire::issu_main),
                issu_send_dmcu_switch(of.slot, of.cpu));
}

const char *notice_name(std::uint32_t code)
{
    for (const wire::upgrade_notice_name &each : wire::upgrade_notices)
        if (static_cast<std::uint32_t>(each.code) == code)
            return each.name;
    return "unknown";
}

outcome show_notice(invocation &call)
{
    wire::upgrade_summary is;
    if (issu_show_sum(0, &is) != 0)
        return failed(call, wire::issu_code::show_sum, "the notices can't be read");
    const bool any = is.notices != 0;
    const std::array words{std::uint16_t{is.notice_words[0]}, std::uint16_t{is.notice_words[1]},
                           std::uint16_t{is.notice_words[2]}, std::uint16_t{is.notice_words[3]}};
    call.out().record({{"Notices taken", "notices", std::uint32_t{is.notices}},
                       {"Last", "last", any ? cell(notice_name(is.last_notice)) : cell()},
                       {"Slot", "slot", any ? cell(std::uint32_t{is.notice_slot}) : cell()},
                       {"Processor", "cpu", any ? cell(std::uint32_t{is.notice_cpu}) : cell()},
                       {"Daemon", "daemon", any ? cell(std::uint32_t{is.notice_daemon}) : cell()},
                       {"Words", "words", any ? cell(fmt::format("{}", fmt::join(words, " "))) : cell()}});
    return outcome::done;
}

constexpr command commands[] = {
    {"show upgrade", "how far the upgrade is", show_upgrade},
    {"show upgrade processors", "how far each processor is", show_processors},
    {"show upgrade version", "the version that runs", show_version, board_arguments},
    {"show upgrade image", "the version of the image that is loaded", show_loaded},
    {"show upgrade check", "whether the loaded image can replace what runs", check},
    {"show upgrade lists", "the versions that an image can replace", show_lists, list_arguments},
    {"show upgrade entries", "the entries of one of an image's lists", show_entries, entry_arguments},
    {"show upgrade compatible", "whether an image can replace a version", show_compatible,
     compatible_arguments},
    {"show upgrade notice", "the last message of an upgrade's participants", show_notice},
    {"show upgrade shutdown", "the modules that were shut down gracefully", show_gshut},
    {"set upgrade image", "load an image", load, load_arguments},
    {"set upgrade start", "upgrade to an image", start, start_arguments},
    {"set upgrade lock", "lock the configuration", lock, lock_arguments},
    {"set upgrade shutdown", "shut a service module down gracefully", shut, shut_arguments},
    {"set upgrade nat", "let NAT state move", send_nat, nat_arguments},
    {"set upgrade nat merge", "let a processor merge NAT state", merge_nat, processor_arguments},
    {"set upgrade nat report", "report how far NAT state has moved", report_nat, value_arguments},
    {"set upgrade sessions", "let a processor's sessions move", send_sessions, session_arguments},
    {"set upgrade sessions report", "report how far a processor's sessions have moved", report_sessions,
     processor_value_arguments},
    {"set upgrade sync", "ask how far the warm synchronisation is", poll_sync, short_value_arguments},
    {"set upgrade sync report", "report how far the warm synchronisation is", report_sync,
     short_value_arguments},
    {"set upgrade switch", "let a processor's control unit switch over", switch_unit, processor_arguments},
};

} // namespace

extern const family upgrade_family;
const family upgrade_family{"upgrade", "in-service upgrade", commands};

} // namespace mixsh
