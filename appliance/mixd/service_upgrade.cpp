/*
 * The upgrade manager: message type 248 at daemon 17 (and the notices at 0 and 2) of every board.
 *
 * Images are files of one directory (the scenario's [upgrade] images, else "images" beside the store): a line
 * "VERSION <text>", then the lists "UP-LIST" and "DOWN-LIST" of versions that the image can replace, each
 * entry on a line, each list ended by a line "END". A timer steps an upgrade through the boards' processors
 * ([upgrade] step_ms); what runs is kept in the store.
 */
#include <cerrno>
#include <filesystem>
#include <fstream>

#include <libmix/issu.h>

#include "appliance/mixd/event.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/issu.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE upgrade(slot INTEGER, cpu INTEGER, version TEXT NOT NULL, PRIMARY KEY(slot, cpu))",
};
constexpr size_t largest_image = 1 << 20;
constexpr size_t largest_list = issu_reply_capacity - sizeof(issu_clist_reply);
constexpr uint32_t percent_a_step = 25;
constexpr size_t entries_a_page = 16;

struct image {
    std::string name;
    std::string version;
    std::string lists;
};

struct processor {
    uint16_t slot, cpu;
    std::string version;
    upgrade_state state = upgrade_state::idle;
    uint32_t percent = 0;
};

class upgrade final : public service
{
  public:
    explicit upgrade(setup &with);
    void step();

  private:
    void read_processors(setup &with, const std::string &first_version);
    int32_t answer(const request &, reply &);
    int32_t take_notice(const request &);
    int32_t start(const issu_start_request &);
    int32_t show_processors(const issu_page_request &, reply &) const;
    int32_t show_lists(const issu_clist_request &, reply &);
    int32_t show_summary(reply &) const;
    int32_t shut_module(const issu_shut_request &, reply &);
    int32_t show_version(const request &, reply &) const;
    uint32_t load(std::string_view name, std::optional<image> &into);
    std::pair<uint32_t, std::string> check(const std::optional<image> &) const;
    bool keep_version(processor &);
    void finish(upgrade_state, const std::string &text);
    void arm_timer();
    [[nodiscard]] bool running() const { return target_.has_value(); }

    store &store_;
    sd_event *loop_;
    event_source timer_;
    std::filesystem::path images_;
    uint64_t step_us_;
    std::vector<processor> processors_;
    std::optional<image> loaded_, target_;
    upgrade_state state_ = upgrade_state::idle;
    std::string image_, version_, text_ = "no upgrade so far";
    bool locked_ = false;
    uint32_t notices_ = 0;
    upgrade_summary last_notice_{}; /* its notice fields */
    graceful_record graceful_{};
};

upgrade::upgrade(setup &with) : store_(with.state()), loop_(with.loop())
{
    scenario_table table = with.scenario("upgrade");
    const auto beside_store = std::filesystem::path(with.settings().store_file).parent_path() / "images";
    images_ = table.text("images", beside_store.string(), 4095);
    step_us_ = table.number("step_ms", 500, 1, 60 * 1000) * 1000;
    read_processors(with, table.text("version", "6.0.0", 27));
    with.serve_on_boards(issu_manager, issu_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); });
    for (const uint32_t daemon : {issu_main, issu_config})
        with.serve_on_boards(static_cast<uint8_t>(daemon), issu_type,
                             [this](const request &asked, reply &) { return take_notice(asked); });
}

void upgrade::read_processors(setup &with, const std::string &first_version)
{
    for (const board &at : with.boards().boards)
        for (uint16_t cpu = 0; cpu < at.cpus; cpu++) {
            statement query = store_.prepare("SELECT version FROM upgrade WHERE slot=? AND cpu=?");
            query.bind(at.slot, cpu);
            const std::string version = query.step() ? std::string(query.text(0)) : first_version;
            processors_.push_back({static_cast<uint16_t>(at.slot), cpu, version});
        }
}

/* --- images --- */

/* Only names of the directory's own files: a path of a client leads nowhere else. */
uint32_t upgrade::load(std::string_view name, std::optional<image> &into)
{
    const std::filesystem::path file = std::filesystem::path(name).filename();
    std::error_code failed;
    if (file.empty() || file == "." || file == ".." ||
        !std::filesystem::is_regular_file(images_ / file, failed) ||
        std::filesystem::file_size(images_ / file, failed) > largest_image)
        return upgrade_no_image;
    std::ifstream in(images_ / file);
    image found{file.string(), {}, {}};
    std::string word;
    if (!(in >> word >> found.version) || word != "VERSION" || found.version.size() > 27)
        return upgrade_bad_image;
    in.ignore();
    found.lists.assign(std::istreambuf_iterator<char>(in), {});
    into = std::move(found);
    return upgrade_ok;
}

std::pair<uint32_t, std::string> upgrade::check(const std::optional<image> &wanted) const
{
    if (running())
        return {upgrade_busy, "an upgrade is running"};
    if (!wanted)
        return {upgrade_no_image, "no image is loaded"};
    for (const processor &each : processors_) {
        const char *lists = wanted->lists.c_str();
        const char *version = each.version.c_str();
        if (issu_ver_up_ck(lists, version) != 0 && issu_ver_down_ck(lists, version) != 0)
            return {upgrade_incompatible,
                    fmt::format("{} can't replace {} of slot {}", wanted->version, each.version, each.slot)};
    }
    return {upgrade_ok, fmt::format("{} can replace what runs", wanted->version)};
}

/* --- requests --- */

template <class Reply>
Reply headed(issu_code code)
{
    Reply out{};
    const auto number = static_cast<uint32_t>(code);
    std::memcpy(&out, &number, sizeof number);
    return out;
}

int32_t upgrade::answer(const request &asked, reply &out)
{
    const auto code = static_cast<issu_code>(asked.field<uint32_t>(0));
    switch (code) {
    case issu_code::show_sum:
        return show_summary(out);
    case issu_code::start:
        return start(asked.record<issu_start_request>());
    case issu_code::cpu_status:
        return show_processors(asked.record<issu_page_request>(), out);
    case issu_code::check: {
        const auto [result, text] = check(loaded_);
        auto answered = headed<issu_check_reply>(code);
        answered.result = result;
        fill_text(answered.text, text);
        out.append(answered);
        return 0;
    }
    case issu_code::sm_shut:
        return shut_module(asked.record<issu_shut_request>(), out);
    case issu_code::ver_get:
        return show_version(asked, out);
    case issu_code::buf_image_ver_get: {
        if (!loaded_)
            return ENOENT;
        auto answered = headed<issu_version_reply>(code);
        fill_text(answered.version, loaded_->version);
        out.append(answered);
        return 0;
    }
    case issu_code::show_gshut: {
        auto answered = headed<issu_gshut_reply>(code);
        std::memcpy(answered.record, &graceful_, sizeof graceful_);
        out.append(answered);
        return 0;
    }
    case issu_code::buf_image_load: {
        const auto wanted = asked.record<issu_load_request>();
        auto answered = headed<issu_result_reply>(code);
        answered.result = load(text_in(wanted.path), loaded_);
        out.append(answered);
        return 0;
    }
    case issu_code::image_clist:
        return show_lists(asked.record<issu_clist_request>(), out);
    default:
        return take_notice(asked);
    }
}

int32_t upgrade::take_notice(const request &asked)
{
    const auto code = static_cast<issu_code>(asked.field<uint32_t>(0));
    const bool known = std::any_of(std::begin(upgrade_notices), std::end(upgrade_notices),
                                   [=](const upgrade_notice_name &each) { return each.code == code; });
    if (!known)
        return EINVAL;
    const auto words = asked.record<issu_words_request>();
    if (code == issu_code::lock_cfg)
        locked_ = asked.record<issu_value_request>().value != 0;
    notices_++;
    last_notice_.last_notice = static_cast<uint32_t>(code);
    last_notice_.notice_slot = static_cast<uint16_t>(asked.at.slot);
    last_notice_.notice_cpu = asked.to.instance;
    last_notice_.notice_daemon = asked.to.daemon;
    const uint16_t carried[] = {words.a, words.b, words.c, words.d};
    std::memcpy(last_notice_.notice_words, carried, sizeof carried);
    return 0;
}

int32_t upgrade::show_summary(reply &out) const
{
    upgrade_summary summary = last_notice_;
    summary.state = state_;
    summary.processors = static_cast<uint32_t>(processors_.size());
    uint32_t percent = 0;
    for (const processor &each : processors_) {
        percent += each.percent;
        summary.upgraded += each.state == upgrade_state::done ? 1 : 0;
    }
    summary.percent = percent / summary.processors;
    summary.config_locked = locked_ ? 1 : 0;
    summary.notices = notices_;
    fill_text(summary.running, processors_.front().version);
    fill_text(summary.target, version_);
    fill_text(summary.image, image_);
    fill_text(summary.text, text_);
    auto answered = headed<issu_sum_reply>(issu_code::show_sum);
    std::memcpy(answered.summary, &summary, sizeof summary);
    out.append(answered);
    return 0;
}

int32_t upgrade::show_processors(const issu_page_request &asked, reply &out) const
{
    auto head = headed<issu_page_reply>(issu_code::cpu_status);
    out.append(head);
    const size_t first = std::min<size_t>(asked.cursor, processors_.size());
    const size_t last = std::min(first + entries_a_page, processors_.size());
    for (size_t i = first; i < last; i++) {
        const processor &each = processors_[i];
        upgrade_processor row{each.slot, each.cpu, each.state, each.percent, {}};
        fill_text(row.version, each.version);
        out.append(row);
    }
    head.cursor = static_cast<uint32_t>(last);
    head.more = last < processors_.size() ? 1 : 0;
    head.count = static_cast<uint32_t>(last - first);
    out.put(0, head);
    return 0;
}

int32_t upgrade::show_version(const request &asked, reply &out) const
{
    for (const processor &each : processors_)
        if (each.slot == asked.at.slot && each.cpu == asked.to.instance) {
            auto answered = headed<issu_version_reply>(issu_code::ver_get);
            fill_text(answered.version, each.version);
            out.append(answered);
            return 0;
        }
    return ENOENT;
}

int32_t upgrade::show_lists(const issu_clist_request &asked, reply &out)
{
    std::optional<image> found = loaded_;
    if (asked.name[0] != '\0' && load(text_in(asked.name), found) != upgrade_ok)
        return ENOENT;
    if (!found)
        return ENOENT;
    std::string text = found->lists;
    if (asked.selector != lists_all) {
        const size_t at = text.find(asked.selector == lists_up ? "UP-LIST" : "DOWN-LIST");
        const size_t end = text.find("\nEND", at);
        text = at == std::string::npos ? "" : text.substr(at, end == std::string::npos ? end : end + 5 - at);
    }
    text.resize(std::min(text.size(), largest_list));
    auto answered = headed<issu_clist_reply>(issu_code::image_clist);
    answered.length = static_cast<uint32_t>(text.size());
    out.append(answered);
    out.append(text.data(), text.size());
    return 0;
}

int32_t upgrade::shut_module(const issu_shut_request &asked, reply &out)
{
    graceful_.modules++;
    fill_text(graceful_.last, text_in(asked.name));
    fill_text(graceful_.second, text_in(asked.second_name));
    graceful_.cpu = asked.cpu;
    graceful_.words[0] = asked.p;
    graceful_.words[1] = asked.q;
    auto answered = headed<issu_result_reply>(issu_code::sm_shut);
    answered.result = upgrade_ok;
    out.append(answered);
    return 0;
}

/* --- the upgrade itself --- */

int32_t upgrade::start(const issu_start_request &asked)
{
    if (running()) { /* its own texts go on */
        text_ = "refused: an upgrade is running";
        return EBUSY;
    }
    std::optional<image> wanted;
    if (load(text_in(asked.name), wanted) != upgrade_ok) {
        text_ = fmt::format("refused: there is no image {}", text_in(asked.name));
        return ENOENT;
    }
    if (const auto [result, text] = check(wanted); result != upgrade_ok && asked.mode != upgrade_forced) {
        text_ = "refused: " + text;
        return EPERM;
    }
    image_ = wanted->name;
    version_ = wanted->version;
    target_ = std::move(wanted);
    state_ = upgrade_state::checking;
    text_ = fmt::format("{} is checked", image_);
    for (processor &each : processors_) {
        each.state = upgrade_state::checking;
        each.percent = 0;
    }
    arm_timer();
    return 0;
}

int on_tick(sd_event_source *, uint64_t, void *context)
{
    static_cast<upgrade *>(context)->step();
    return 0;
}

void upgrade::arm_timer()
{
    sd_event_source *source = nullptr;
    need(sd_event_add_time_relative(loop_, &source, CLOCK_MONOTONIC, step_us_, 0, on_tick, this),
         "upgrade timer");
    timer_.reset(source);
}

upgrade_state state_at(uint32_t percent)
{
    if (percent >= 100)
        return upgrade_state::done;
    return percent > 2 * percent_a_step ? upgrade_state::restarting
           : percent > percent_a_step   ? upgrade_state::moving
                                        : upgrade_state::loading;
}

/* One processor after the other, so that the others go on working. */
void upgrade::step()
{
    for (processor &each : processors_) {
        if (each.state == upgrade_state::done)
            continue;
        each.percent += percent_a_step;
        each.state = state_at(each.percent);
        if (each.state != upgrade_state::done)
            state_ = each.state; /* the upgrade is done when the last one is */
        text_ = fmt::format("slot {} cpu {}: {}", each.slot, each.cpu,
                            upgrade_state_names[static_cast<size_t>(each.state)]);
        if (each.state == upgrade_state::done && !keep_version(each))
            return finish(upgrade_state::failed, "the new version can't be stored");
        if (each.state != upgrade_state::done || &each != &processors_.back())
            return arm_timer();
    }
    finish(upgrade_state::done, fmt::format("{} runs on every processor", version_));
}

bool upgrade::keep_version(processor &each)
try {
    transaction in(store_);
    in.run("INSERT OR REPLACE INTO upgrade VALUES(?,?,?)", each.slot, each.cpu, std::string_view(version_));
    in.commit();
    each.version = version_;
    return true;
} catch (const store_error &failed) {
    log(priority::error, fmt::format("upgrade of slot {} cpu {}: {}", each.slot, each.cpu, failed.what()));
    return false;
}

void upgrade::finish(upgrade_state how, const std::string &text)
{
    state_ = how;
    text_ = text;
    target_.reset();
    timer_.reset();
}

} // namespace

const service_entry upgrade_service = {"upgrade", migrations, [](setup &with) -> std::unique_ptr<service> {
                                           return std::make_unique<upgrade>(with);
                                       }};

} // namespace mixd
