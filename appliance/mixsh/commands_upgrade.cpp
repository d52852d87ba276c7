// In-service upgrade.
#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/wire/issu.h"
#include "platform/ipcmsg.h"

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

// The upgrade family keeps its text instead of printing it; the manager's own reason stands in the summary.
outcome failed(invocation &call, wire::issu_code code, std::string_view what)
{
    const std::string text = issu_err_str_get();
    wire::upgrade_summary summary;
    call.print()("%s\n", text.c_str());
    if (text == "Handle error" && issu_show_sum(0, &summary) == 0)
        call.print()("%s\n", field_text(summary.text).c_str());
    return call.fail(asking(code), what);
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
                       {"Done (%)", "percent", std::uint32_t{is.percent}},
                       {"Processors", "processors", std::uint32_t{is.processors}},
                       {"Upgraded", "upgraded", std::uint32_t{is.upgraded}},
                       {"Running version", "running", field_text(is.running)},
                       {"Target version", "target", field_text(is.target)},
                       {"Image", "image", field_text(is.image)},
                       {"Configuration locked", "locked", is.config_locked != 0},
                       {"Last step", "text", field_text(is.text)}});
    return outcome::done;
}

constexpr column processor_columns[] = {
    {.title = "Slot", .key = "slot"},
    {.title = "CPU", .key = "cpu"},
    {.title = "State", .key = "state", .at_least = 15},
    {.title = "Done %", .key = "percent"},
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
    if (issu_start(mode, call.text("IMAGE"), "") != 0)
        return failed(call, wire::issu_code::start, "the upgrade was not started");
    return outcome::done;
}

outcome load(invocation &call)
{
    switch (issu_buf_image_load(call.text("IMAGE"))) {
    case wire::upgrade_ok:
        return outcome::done;
    case wire::upgrade_no_image:
        return call.fail("there is no such image",
                         "images are files in the directory named in the scenario's "
                         "[upgrade], or in images beside mixd's store");
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

constexpr argument version_arguments[] = {
    option("slot", kinds::number, "a board of the chassis", slots),
    option("cpu", kinds::number, "a processor of the board", {.high = 63})};

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

outcome show_loaded(invocation &call)
{
    char version[128] = {};
    if (issu_buf_image_ver_get(version, sizeof version) != 0)
        return failed(call, wire::issu_code::buf_image_ver_get, "no image is loaded");
    call.out().record({{"Version", "version", version}});
    return outcome::done;
}

outcome show_lists(invocation &call)
{
    static char lists[wire::issu_reply_capacity + 1];
    std::uint32_t length = sizeof lists - 1;
    if (issu_image_clist_get(0, call.text_or("IMAGE", ""), wire::lists_all, lists, &length) != 0)
        return failed(call, wire::issu_code::image_clist, "the lists can't be read");
    lists[length] = '\0';
    call.out().plain(lists);
    return outcome::done;
}
constexpr argument list_arguments[] = {
    optional_value("IMAGE", kinds::word, "an image; without one the image that is loaded", {.longest = 127})};

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
    call.out().record(
        {{"Modules shut down", "modules", std::uint32_t{is.modules}}, {"Last", "last", field_text(is.last)}});
    return outcome::done;
}

constexpr command commands[] = {
    {"show upgrade", "how far the upgrade is", show_upgrade},
    {"show upgrade processors", "how far each processor is", show_processors},
    {"show upgrade version", "the version that runs", show_version, version_arguments},
    {"show upgrade image", "the version of the image that is loaded", show_loaded},
    {"show upgrade check", "whether the loaded image can replace what runs", check},
    {"show upgrade lists", "the versions that an image can replace", show_lists, list_arguments},
    {"show upgrade shutdown", "the modules that were shut down gracefully", show_gshut},
    {"set upgrade image", "load an image", load, load_arguments},
    {"set upgrade start", "upgrade to an image", start, start_arguments},
    {"set upgrade lock", "lock the configuration", lock, lock_arguments},
};

} // namespace

extern const family upgrade_family;
const family upgrade_family{"upgrade", "in-service upgrade", commands};

} // namespace mixsh
