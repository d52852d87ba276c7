/*
 * The state store: one SQLite file for all that is configured. Write-ahead log, synchronous=FULL: what a
 * transaction has committed is there after a kill or a loss of power. Only one process has it open.
 */
#ifndef MIXD_STORE_H
#define MIXD_STORE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace mixd
{

/* A statement failed. full(): the file system had no room (or a size limit was reached); the store is
 * unchanged. */
class store_error : public std::runtime_error
{
  public:
    store_error(int code, const std::string &text) : std::runtime_error(text), code_(code) {}
    [[nodiscard]] bool full() const;
    [[nodiscard]] int code() const { return code_; }

  private:
    int code_;
};

/* A prepared statement: bind, step, read columns (from 0). Views are valid until the next step. */
class statement
{
  public:
    statement(sqlite3 *db, std::string_view sql);
    statement(statement &&other) noexcept;
    statement(const statement &) = delete;
    statement &operator=(const statement &) = delete;
    statement &operator=(statement &&) = delete;
    ~statement();

    template <class... Values>
    statement &bind(const Values &...values)
    {
        int index = 0;
        (bind_one(++index, values), ...);
        return *this;
    }
    bool step(); /* true: a row is there */
    void reset();
    [[nodiscard]] int64_t integer(int column) const;
    [[nodiscard]] std::string_view text(int column) const;
    [[nodiscard]] std::span<const uint8_t> blob(int column) const;
    /* Of a fixed size; what a stored value does not reach is zero. */
    template <size_t Size>
    [[nodiscard]] std::array<uint8_t, Size> bytes(int column) const
    {
        std::array<uint8_t, Size> bytes{};
        const std::span<const uint8_t> stored = blob(column);
        std::copy_n(stored.begin(), std::min(stored.size(), Size), bytes.begin());
        return bytes;
    }
    [[nodiscard]] bool null(int column) const;

  private:
    template <class Value>
    requires std::is_integral_v<Value>
    void bind_one(int index, Value value) { bind_integer(index, static_cast<int64_t>(value)); }
    void bind_one(int index, std::string_view value);
    void bind_one(int index, std::span<const uint8_t> value);
    void bind_one(int index, std::nullptr_t);
    void bind_integer(int index, int64_t value);

    sqlite3 *db_;
    sqlite3_stmt *statement_ = nullptr;
};

class store
{
  public:
    /* Throws startup_error with a text for the operator: in use, not a store, of a newer schema, no room. */
    explicit store(std::string file);
    store(const store &) = delete;
    store &operator=(const store &) = delete;
    ~store();

    /* Brings a service's tables to its newest schema: migrations[i] leads from version i to i + 1. */
    void migrate(std::string_view service, std::span<const char *const> migrations);

    statement prepare(std::string_view sql) { return {db_, sql}; }
    template <class... Values>
    void run(std::string_view sql, const Values &...values)
    {
        statement s = prepare(sql);
        s.bind(values...);
        while (s.step())
            ;
    }
    /* Rows changed by the last run. */
    [[nodiscard]] int64_t changes() const;
    [[nodiscard]] const std::string &file() const { return file_; }
    /* A file that was made here goes again with the store, until this is said: mixd has started. */
    void keep() { made_here_ = false; }
    [[nodiscard]] sqlite3 *handle() const { return db_; }

  private:
    void open();
    int64_t version_of(std::string_view service);

    std::string file_;
    sqlite3 *db_ = nullptr;
    bool made_here_ = false;
};

/* One transaction. What is not committed is rolled back by the destructor. Transactions don't nest. */
class transaction
{
  public:
    explicit transaction(store &db);
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    ~transaction();

    [[nodiscard]] store &db() const { return db_; }
    template <class... Values>
    void run(std::string_view sql, const Values &...values)
    {
        db_.run(sql, values...);
    }
    /* For what lives outside the store: memory that follows a commit, kernel settings that a rollback takes
     * back. */
    void after_commit(std::function<void()> action) { after_commit_.push_back(std::move(action)); }
    void on_rollback(std::function<void()> action) { on_rollback_.push_back(std::move(action)); }

    void commit(); /* throws store_error; then the transaction is rolled back by the destructor */

  private:
    store &db_;
    bool open_ = true;
    std::vector<std::function<void()>> after_commit_;
    std::vector<std::function<void()>> on_rollback_;
};

} // namespace mixd

#endif
