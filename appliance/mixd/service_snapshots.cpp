/*
 * Saved configurations: the gateway's save makes a snapshot of the whole store, a file beside it in
 * "snapshots". A snapshot that is restored replaces the store's content, and the services start from it again
 * before that is answered.
 */
#include <array>
#include <cerrno>
#include <filesystem>

#include <fmt/format.h>
#include <sqlite3.h>

#include "appliance/mixd/control_pages.h"
#include "appliance/mixd/core.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/gateway.h"
#include "appliance/wire/snapshots.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;
namespace fs = std::filesystem;

constexpr const char *migrations[] = {
    "CREATE TABLE snapshot(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, saver TEXT NOT NULL, "
    "time TEXT NOT NULL)",
};

/* Which of the five texts is what. */
enum save_text : size_t { text_kind, text_empty, text_saver, text_module, text_time };

class snapshots final : public service
{
  public:
    explicit snapshots(setup &with) : store_(with.state()), all_(with.internals())
    {
        directory_ = fs::path(with.settings().store_file).parent_path() / "snapshots";
        with.serve(gateway_daemon, gateway_save,
                   [this](const request &asked, reply &out) { return save(asked, out); });
        with.serve(control_daemon, control_list_snapshots,
                   [this](const request &asked, reply &out) { return list(asked, out); });
        with.serve(control_daemon, control_restore_snapshot, [this](const request &asked, reply &out) {
            out.go_on = [this, name = std::string(text_in(asked.record<snapshot_name>().name))](reply &) {
                return restore(name);
            };
            return 0;
        });
        with.serve(control_daemon, control_delete_snapshot, [this](const request &asked, reply &) {
            return remove(text_in(asked.record<snapshot_name>().name));
        });
    }

  private:
    int32_t save(const request &, reply &);
    int64_t last_id();
    gateway_reply take(const save_request &);
    int32_t list(const request &, reply &);
    int32_t restore(std::string_view name);
    int32_t remove(std::string_view name);
    [[nodiscard]] fs::path file_of(std::string_view name) const
    {
        return directory_ / (std::string(name) + ".db");
    }

    store &store_;
    core &all_;
    fs::path directory_;
};

/* Names become file names. */
bool is_plain(std::string_view name)
{
    return !name.empty() && name.size() < 48 &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
               std::string_view::npos;
}

/* That of a snapshot that was deleted does not come again. */
int64_t snapshots::last_id()
{
    statement query = store_.prepare("SELECT seq FROM sqlite_sequence WHERE name='snapshot'");
    return query.step() ? query.integer(0) : 0;
}

gateway_reply snapshots::take(const save_request &wanted)
{
    const std::string_view module = wanted.texts[text_module].value_or("");
    if (!is_plain(module))
        return {.result = result_bad_value, .text = "a saved configuration needs a plain name"};
    std::error_code failed;
    fs::create_directories(directory_, failed);
    fs::permissions(directory_, fs::perms::owner_all, failed);
    const int64_t id = last_id() + 1;
    const std::string name = fmt::format("{}-{}", module, id);
    fs::remove(file_of(name), failed); /* of a save that was cut short */
    try {
        all_.bring_all_to_store();
        store_.run("VACUUM INTO ?", std::string_view(file_of(name).native()));
        transaction in(store_);
        in.run("INSERT INTO snapshot(id, name, saver, time) VALUES(?,?,?,?)", id, std::string_view(name),
               wanted.texts[text_saver].value_or(""), wanted.texts[text_time].value_or(""));
        in.commit();
    } catch (const store_error &error) {
        fs::remove(file_of(name), failed);
        log(priority::error, fmt::format("snapshot {}: {}", name, error.what()));
        return {.result = result_store_failed, .text = "the configuration could not be saved"};
    }
    return {};
}

int32_t snapshots::save(const request &asked, reply &out)
{
    save_request wanted;
    gateway_reply answered{.result = decode_save(asked.bytes, wanted).result};
    if (answered.result == result_ok)
        answered = take(wanted);
    std::array<uint8_t, 1024> room;
    writer bytes(room);
    encode_reply(answered, bytes);
    out.append(bytes.written().data(), bytes.size());
    return 0;
}

int32_t snapshots::list(const request &asked, reply &out)
{
    return page_by_number<snapshot_row>(
        store_.prepare("SELECT id, name, saver, time FROM snapshot WHERE id>=? ORDER BY id"), asked, out,
        [this](const statement &from) {
            snapshot_row row{};
            fill_text(row.name, from.text(1));
            fill_text(row.saver, from.text(2));
            fill_text(row.when, from.text(3));
            std::error_code failed;
            const auto size = fs::file_size(file_of(from.text(1)), failed);
            row.size = failed ? 0 : size;
            return row;
        });
}

/* One transaction of the database itself: all of the snapshot or nothing. */
int copy_database(const std::string &from, sqlite3 *to)
{
    sqlite3 *source = nullptr;
    int result = sqlite3_open_v2(from.c_str(), &source, SQLITE_OPEN_READONLY, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_backup *copy = sqlite3_backup_init(to, "main", source, "main");
        result = copy != nullptr ? sqlite3_backup_step(copy, -1) : SQLITE_ERROR;
        sqlite3_backup_finish(copy);
    }
    sqlite3_close(source);
    return result == SQLITE_DONE ? 0 : -EIO;
}

/* In one turn of the loop, so that nobody meets the old services on the new store. The list of snapshots is
 * not part of what a snapshot takes back. */
int32_t snapshots::restore(std::string_view name)
{
    struct entry {
        int64_t id;
        std::string name, saver, time;
    };
    std::vector<entry> known;
    bool found = false;
    {
        statement rows = store_.prepare("SELECT id, name, saver, time FROM snapshot ORDER BY id");
        while (rows.step()) {
            known.push_back({rows.integer(0), std::string(rows.text(1)), std::string(rows.text(2)),
                             std::string(rows.text(3))});
            found = found || known.back().name == name;
        }
    }
    if (!found)
        return -ENOENT;
    const int64_t last = last_id();
    if (const int failed = copy_database(file_of(name), store_.handle()); failed != 0)
        return failed;
    int32_t status = 0;
    try {
        transaction in(store_);
        in.run("DELETE FROM snapshot");
        for (const entry &each : known)
            in.run("INSERT INTO snapshot(id, name, saver, time) VALUES(?,?,?,?)", each.id,
                   std::string_view(each.name), std::string_view(each.saver), std::string_view(each.time));
        in.run("UPDATE sqlite_sequence SET seq=? WHERE name='snapshot'", last);
        in.commit();
    } catch (const store_error &failed) {
        log(priority::error, fmt::format("the list of snapshots: {}", failed.what()));
        status = -EIO;
    }
    log(priority::notice, fmt::format("snapshot {} is restored", name));
    all_.start_services_again(); /* and this one is gone */
    return status;
}

int32_t snapshots::remove(std::string_view name)
{
    transaction in(store_);
    in.run("DELETE FROM snapshot WHERE name=?", name);
    if (store_.changes() == 0)
        return -ENOENT;
    in.commit();
    std::error_code failed;
    fs::remove(file_of(name), failed); /* a save of that name would replace what is left */
    log(priority::notice, fmt::format("snapshot {} is deleted", name));
    return 0;
}

} // namespace

const service_entry snapshots_service = {
    "snapshots", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<snapshots>(with); }};

} // namespace mixd
