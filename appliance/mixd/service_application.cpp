/*
 * The application catalogue. It is read and written in shared memory, not by messages: mixd makes it, fills
 * it with the predefined applications of the signature file before anything is answered, reads that file
 * again on SIGHUP, frees its lock when a writer dies, and keeps the user-defined applications in the store.
 *
 * While the machine runs, the segment holds the truth about user-defined applications, whoever wrote them;
 * the store follows it. A segment that the store has not seen yet (the machine was started anew) gets them
 * back.
 */
#include <filesystem>

#include "app/catalogue.h"
#include "appliance/mixd/catalogue.h"
#include "appliance/mixd/lock_keeper.h"
#include "appliance/mixd/signatures.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using mix::app::is_in_use;
using mix::wire::app_entries;
using mix::wire::app_first_user_defined;
using mix::wire::fill_text;
using mix::wire::text_in;

constexpr uint64_t follow_every_us = 1000000;
/* Writers hold the lock for microseconds, dead ones until the keeper has freed it; stopped ones for ever. */
constexpr std::chrono::milliseconds patience_at_start{6000}, patience_at_reload{50};
constexpr size_t user_defined_slots = app_entries - app_first_user_defined;

constexpr const char *migrations[] = {
    "CREATE TABLE application(slot INTEGER PRIMARY KEY, type INTEGER NOT NULL, property INTEGER NOT NULL,"
    " risk INTEGER NOT NULL, flags INTEGER NOT NULL, name TEXT NOT NULL, name_cn TEXT NOT NULL,"
    " name_cn_key INTEGER NOT NULL, technology TEXT NOT NULL, category TEXT NOT NULL, category_cn TEXT NOT "
    "NULL,"
    " subcategory TEXT NOT NULL, subcategory_cn TEXT NOT NULL);"
    "CREATE TABLE application_segment(one INTEGER PRIMARY KEY CHECK(one = 1), identity TEXT NOT NULL)",
};

/* The file that comes with mixd: beside the program, or where both are installed. */
std::string default_signatures()
{
    std::error_code failed;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", failed);
    return (program.parent_path().parent_path() / "share/mix/applications.csv").string();
}

app_entry from_store(const statement &row)
{
    app_entry out{};
    out.in_use = 1;
    out.type = static_cast<uint16_t>(row.integer(1));
    out.property = static_cast<uint32_t>(row.integer(2));
    out.risk = static_cast<uint32_t>(row.integer(3));
    out.flags = static_cast<uint32_t>(row.integer(4));
    fill_text(out.name, row.text(5));
    fill_text(out.name_cn, row.text(6));
    out.name_key = mix::app::key_of(out.name);
    out.name_cn_key = static_cast<uint32_t>(row.integer(7));
    fill_text(out.technology, row.text(8));
    fill_text(out.category, row.text(9));
    fill_text(out.category_cn, row.text(10));
    fill_text(out.subcategory, row.text(11));
    fill_text(out.subcategory_cn, row.text(12));
    return out;
}

void to_store(transaction &in, size_t slot, const app_entry &entry)
{
    in.run("INSERT OR REPLACE INTO application VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?)", slot, entry.type,
           entry.property, entry.risk, entry.flags, text_in(entry.name), text_in(entry.name_cn),
           entry.name_cn_key, text_in(entry.technology), text_in(entry.category), text_in(entry.category_cn),
           text_in(entry.subcategory), text_in(entry.subcategory_cn));
}

/* What a slot says, as far as anybody can see: free ones are all alike. */
bool same(const app_entry &one, const app_entry &other)
{
    if (!is_in_use(one) || !is_in_use(other))
        return is_in_use(one) == is_in_use(other);
    return std::memcmp(&one, &other, sizeof one) == 0;
}

/* Into a free slot: readers, who take no lock, see all of it or nothing. */
void put(app_entry &slot, app_entry one)
{
    one.in_use = 0;
    std::memcpy(&slot, &one, sizeof slot);
    __atomic_store_n(&slot.in_use, uint8_t{1}, __ATOMIC_RELEASE);
}

void log_counts()
{
    log(priority::info, fmt::format("application catalogue: {} applications, {} of them predefined",
                                    *cur_app_num, *cur_predef_app_num));
}

class application final : public service
{
  public:
    explicit application(setup &with);
    ~application() override;
    void reload() override;
    void bring_to_store() override;
    bool store_replaced() override;

  private:
    void start_with_file(bool required);
    void read_file();
    [[nodiscard]] bool take_segment(bool shared);
    void adopt() const;
    void load() const;
    void load_again();
    void drop_left_overs() const;
    void restore() const;
    void read_store();
    void take_back();
    [[nodiscard]] bool is_known_segment();
    void note_segment();
    void follow();
    [[nodiscard]] static app_entry *user_defined() { return tq_app_ext_table + app_first_user_defined; }
    static int on_timer(sd_event_source *, uint64_t, void *data);

    store &store_;
    std::string file_;
    signature_list signatures_;
    std::vector<app_entry> stored_; /* the user-defined slots as the store has them */
    bool store_failed_ = false;     /* said once */
    bool to_be_loaded_ = false;     /* the list was read again, the catalogue has yet to be */
    std::unique_ptr<catalogue> segment_;
    std::unique_ptr<lock_keeper> keeper_;
    event_source timer_;
};

application::application(setup &with) : store_(with.state()), file_(with.settings().applications_file)
{
    if (!with.settings().keep_catalogue)
        return;
    if (file_.empty())
        file_ = default_signatures();
    start_with_file(!with.settings().applications_file.empty());
    read_store();
    if (!take_segment(with.settings().share_catalogue))
        return;
    keeper_ = std::make_unique<lock_keeper>(*segment_);
    if (!segment_->made_here())
        adopt();
    if (!is_known_segment())
        restore();
    note_segment();
    follow();

    sd_event_source *source = nullptr;
    need(
        sd_event_add_time_relative(with.loop(), &source, CLOCK_MONOTONIC, follow_every_us, 0, on_timer, this),
        "timer of the application catalogue");
    timer_ = event_source(source);
    log_counts();
}

application::~application()
{
    bring_to_store();
}

void application::bring_to_store()
{
    if (segment_)
        follow();
}

/* False: somebody else keeps the catalogue, and that is all right. */
bool application::take_segment(bool shared)
try {
    segment_ = std::make_unique<catalogue>(mix::app::name_of_segment().name, [this] {
        tq_app_table_create();
        load();
    });
    return true;
} catch (const kept_elsewhere &why) {
    if (!shared)
        throw startup_error(fmt::format("{}; --share-catalogue leaves it to that one", why.what()));
    log(priority::info, fmt::format("{}; it is left to that one", why.what()));
    return false;
}

/* A segment that was there before: its predefined applications become those of the list. */
void application::adopt() const
{
    if (!segment_->can_be_written_within(patience_at_start))
        throw startup_error(fmt::format("thread {} holds the lock of the application catalogue and goes no "
                                        "further: is its process stopped?",
                                        look_at(segment_->lock()).writer));
    tq_app_table_reset();
    load();
}

/* A file that was asked for by name must be there. */
void application::start_with_file(bool required)
{
    try {
        read_file();
    } catch (const std::runtime_error &why) {
        if (required)
            throw startup_error(why.what());
        log(priority::error,
            fmt::format("{}; the application catalogue has libmix's own {} applications only", why.what(),
                        tq_get_app_table_member_num()));
    }
}

void application::read_file()
{
    signatures_ = read_signatures(file_);
    for (const std::string &complaint : signatures_.complaints)
        log(priority::warning, complaint);
}

void application::reload()
{
    if (!segment_)
        return;
    try {
        read_file();
    } catch (const std::runtime_error &why) {
        log(priority::error, fmt::format("{}; the application catalogue stays as it is", why.what()));
        return;
    }
    to_be_loaded_ = true;
    load_again();
}

/* Without waiting for a writer that is stopped: mixd has other clients. The timer comes back to it. */
void application::load_again()
{
    if (!segment_->can_be_written_within(patience_at_reload))
        return;
    to_be_loaded_ = false;
    tq_app_table_reset();
    load();
    log_counts();
}

/* After a reset: attributes are only ever written over, so those of the last file would stay. */
void application::drop_left_overs() const
{
    const catalogue_write here(*segment_);
    for (uint32_t i = 0; i < app_first_user_defined; i++) {
        app_entry &entry = tq_app_ext_table[i];
        if (!is_in_use(entry)) {
            std::memset(&entry, 0, sizeof entry);
            continue;
        }
        entry.property = entry.risk = entry.flags = 0;
        std::memset(entry.technology, 0, sizeof entry - offsetof(app_entry, technology));
    }
}

void application::load() const
{
    if (segment_)
        drop_left_overs();
    for (const signature &one : signatures_.rows) {
        const char *name_cn = one.name_cn.c_str();
        if (tq_get_one_app_table_member(one.type) == nullptr)
            app_ext_table_add(one.name.c_str(), name_cn, 0, one.type);
        else if (std::strcmp(name_cn, tq_app_type2name_cn(one.type)) != 0)
            tq_app_edit_cn_name(one.type, name_cn); /* one of libmix's own rows */
        app_ext_table_add_element(one.type, one.property, one.risk, one.flags, one.subcategory.c_str(),
                                  one.subcategory_cn.c_str(), one.category.c_str(), one.category_cn.c_str(),
                                  one.technology.c_str());
    }
}

void application::read_store()
{
    stored_.assign(user_defined_slots, {});
    statement rows = store_.prepare("SELECT * FROM application WHERE slot BETWEEN ? AND ?");
    rows.bind(app_first_user_defined, app_entries - 1);
    while (rows.step())
        stored_[static_cast<size_t>(rows.integer(0)) - app_first_user_defined] = from_store(rows);
}

/* Here the store is the truth, for once: the segment follows it. */
bool application::store_replaced()
{
    if (!segment_)
        return true;
    read_store();
    take_back();
    note_segment();
    return true;
}

/* Without waiting for a writer that is stopped: then the segment stays the truth. */
void application::take_back()
{
    if (!segment_->can_be_written_within(patience_at_reload)) {
        log(priority::error, "the application catalogue can't be written now: its user-defined applications "
                             "are not restored");
        return;
    }
    const catalogue_write here(*segment_);
    for (size_t i = 0; i < user_defined_slots; i++) {
        app_entry &entry = user_defined()[i];
        if (same(entry, stored_[i]))
            continue;
        __atomic_store_n(&entry.in_use, uint8_t{0}, __ATOMIC_RELEASE);
        if (is_in_use(stored_[i]))
            put(entry, stored_[i]);
    }
    recount(segment_->segment());
}

/* Puts the user-defined applications of the store back where they were; a slot that is taken stays. */
void application::restore() const
{
    const catalogue_write here(*segment_);
    for (size_t i = 0; i < user_defined_slots; i++) {
        app_entry &entry = user_defined()[i];
        if (!is_in_use(stored_[i]) || is_in_use(entry))
            continue;
        put(entry, stored_[i]);
        ++*cur_app_num;
    }
}

bool application::is_known_segment()
{
    statement query = store_.prepare("SELECT identity FROM application_segment");
    return query.step() && query.text(0) == segment_->identity();
}

void application::note_segment()
{
    store_.run("INSERT OR REPLACE INTO application_segment VALUES(1, ?)",
               std::string_view(segment_->identity()));
}

/* Writes what has changed in the user-defined slots to the store. */
void application::follow()
{
    const app_entry *now = user_defined();
    if (std::equal(stored_.begin(), stored_.end(), now, same))
        return;
    /* Not in the middle of a change, and without waiting: the next time will do as well. */
    if (pthread_rwlock_trywrlock(&segment_->lock()) != 0)
        return;
    std::vector<app_entry> copy(now, now + user_defined_slots);
    pthread_rwlock_unlock(&segment_->lock());
    try {
        transaction change(store_);
        for (size_t i = 0; i < user_defined_slots; i++) {
            if (same(copy[i], stored_[i]))
                continue;
            if (is_in_use(copy[i]))
                to_store(change, app_first_user_defined + i, copy[i]);
            else
                change.run("DELETE FROM application WHERE slot=?", app_first_user_defined + i);
        }
        change.commit();
        stored_ = std::move(copy);
        store_failed_ = false;
    } catch (const store_error &why) {
        if (!store_failed_)
            log(priority::error, fmt::format("user-defined applications are not stored: {}", why.what()));
        store_failed_ = true;
    }
}

int application::on_timer(sd_event_source *, uint64_t, void *data)
{
    auto *self = static_cast<application *>(data);
    if (self->to_be_loaded_)
        self->load_again();
    self->follow();
    go_off_after(self->timer_, follow_every_us);
    return 0;
}

} // namespace

const service_entry application_service = {
    "application", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<application>(with); }};

} // namespace mixd
