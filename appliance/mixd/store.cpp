#include "appliance/mixd/store.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

#include "appliance/mixd/service.h"

namespace mixd
{

namespace
{

constexpr int store_magic = 0x4d495853; /* application_id: this file is a store of mixd */
constexpr int store_layout = 1;         /* user_version: the bookkeeping tables below */

void check(sqlite3 *db, int code)
{
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE)
        throw store_error(sqlite3_extended_errcode(db), sqlite3_errmsg(db));
}

void execute(sqlite3 *db, const char *sql)
{
    check(db, sqlite3_exec(db, sql, nullptr, nullptr, nullptr));
}

int64_t pragma(sqlite3 *db, const char *sql)
{
    statement query(db, sql);
    return query.step() ? query.integer(0) : 0;
}

} // namespace

/* A size limit of the process or a quota shows as a failed write, a full file system as SQLITE_FULL. */
bool store_error::full() const
{
    return (code_ & 0xff) == SQLITE_FULL || code_ == SQLITE_IOERR_WRITE || code_ == SQLITE_IOERR_FSYNC ||
           code_ == SQLITE_IOERR_TRUNCATE || code_ == SQLITE_IOERR_SHMSIZE;
}

statement::statement(sqlite3 *db, std::string_view sql) : db_(db)
{
    check(db, sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr));
}

statement::statement(statement &&other) noexcept
    : db_(other.db_), statement_(std::exchange(other.statement_, nullptr))
{
}

statement::~statement()
{
    sqlite3_finalize(statement_);
}

bool statement::step()
{
    const int code = sqlite3_step(statement_);
    check(db_, code);
    return code == SQLITE_ROW;
}

void statement::reset()
{
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

int64_t statement::integer(int column) const
{
    return sqlite3_column_int64(statement_, column);
}

std::string_view statement::text(int column) const
{
    const auto *from = reinterpret_cast<const char *>(sqlite3_column_text(statement_, column));
    return {from ? from : "", static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

std::span<const uint8_t> statement::blob(int column) const
{
    const auto *from = static_cast<const uint8_t *>(sqlite3_column_blob(statement_, column));
    return {from, static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

bool statement::null(int column) const
{
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

void statement::bind_one(int index, std::string_view value)
{
    check(db_, sqlite3_bind_text(statement_, index, value.data() ? value.data() : "",
                                 static_cast<int>(value.size()), SQLITE_TRANSIENT));
}

void statement::bind_one(int index, std::span<const uint8_t> value)
{
    check(db_,
          sqlite3_bind_blob64(statement_, index, value.empty() ? "" : static_cast<const void *>(value.data()),
                              value.size(), SQLITE_TRANSIENT));
}

void statement::bind_one(int index, std::nullptr_t)
{
    check(db_, sqlite3_bind_null(statement_, index));
}

void statement::bind_integer(int index, int64_t value)
{
    check(db_, sqlite3_bind_int64(statement_, index, value));
}

store::store(std::string file) : file_(std::move(file))
{
    try {
        open();
    } catch (const store_error &error) {
        sqlite3_close_v2(db_);
        const bool busy = (error.code() & 0xff) == SQLITE_BUSY;
        throw startup_error(
            fmt::format("store {}: {}", file_, busy ? "another process has it open" : error.what()));
    } catch (const startup_error &) {
        sqlite3_close_v2(db_);
        throw;
    }
}

store::~store()
{
    sqlite3_close_v2(db_);
    if (made_here_)
        unlink(file_.c_str());
}

void store::open()
{
    const std::filesystem::path folder = std::filesystem::path(file_).parent_path();
    std::error_code failed;
    if (!folder.empty() && !std::filesystem::exists(folder, failed)) {
        std::filesystem::create_directories(folder, failed);
        if (failed)
            throw startup_error(fmt::format("store {}: {}: {}", file_, folder.string(), failed.message()));
    }
    const mode_t mask = umask(077); /* what is configured is nobody else's business */
    const int opened =
        sqlite3_open_v2(file_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    umask(mask);
    check(db_, opened);
    sqlite3_extended_result_codes(db_, 1);
    /* Exclusive: one mixd a store, said when it starts and not at the first change. */
    execute(db_, "PRAGMA locking_mode=EXCLUSIVE");
    execute(db_, "PRAGMA foreign_keys=ON");
    const int64_t magic = pragma(db_, "PRAGMA application_id");
    const int64_t tables = pragma(db_, "SELECT count(*) FROM sqlite_master");
    if (magic != store_magic && (magic != 0 || tables != 0))
        throw startup_error(fmt::format("store {}: this SQLite file is not a store of mixd", file_));
    const int64_t layout = pragma(db_, "PRAGMA user_version");
    if (layout > store_layout)
        throw startup_error(fmt::format("store {}: written by a newer mixd (layout {}, this one knows {})",
                                        file_, layout, store_layout));
    execute(db_, "PRAGMA journal_mode=WAL");
    execute(db_, "PRAGMA synchronous=FULL");
    execute(db_, "BEGIN IMMEDIATE");
    if (layout == 0)
        execute(db_,
                fmt::format("PRAGMA application_id={}; PRAGMA user_version={};"
                            "CREATE TABLE schema_version(service TEXT PRIMARY KEY, version INTEGER NOT NULL)",
                            store_magic, store_layout)
                    .c_str());
    execute(db_, "COMMIT");
    made_here_ = layout == 0;
}

int64_t store::version_of(std::string_view service)
{
    statement query = prepare("SELECT version FROM schema_version WHERE service=?");
    query.bind(service);
    return query.step() ? query.integer(0) : 0;
}

void store::migrate(std::string_view service, std::span<const char *const> migrations)
{
    const auto newest = static_cast<int64_t>(migrations.size());
    try {
        const int64_t version = version_of(service);
        if (version > newest)
            throw startup_error(
                fmt::format("store {}: written by a newer mixd ({} has schema {}, this one knows {})", file_,
                            service, version, newest));
        if (version == newest)
            return;
        transaction change(*this);
        for (auto i = static_cast<size_t>(version); i < migrations.size(); ++i)
            execute(db_, migrations[i]);
        change.run("INSERT OR REPLACE INTO schema_version VALUES(?,?)", service, newest);
        change.commit();
    } catch (const store_error &error) {
        throw startup_error(fmt::format("store {}: {} (schema of {})", file_, error.what(), service));
    }
}

int64_t store::changes() const
{
    return sqlite3_changes64(db_);
}

transaction::transaction(store &db) : db_(db)
{
    execute(db_.handle(), "BEGIN IMMEDIATE");
}

transaction::~transaction()
{
    if (!open_)
        return;
    /* SQLite has rolled back by itself after some failures; then there is nothing left to do. */
    if (!sqlite3_get_autocommit(db_.handle()))
        sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    for (auto action = on_rollback_.rbegin(); action != on_rollback_.rend(); ++action)
        (*action)();
}

void transaction::commit()
{
    execute(db_.handle(), "COMMIT");
    open_ = false;
    for (const auto &action : after_commit_)
        action();
}

} // namespace mixd
