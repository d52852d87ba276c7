/*
 * Rows that a scenario describes and clients change: in memory in the order of their keys, and in the store.
 *
 * A row of the scenario is taken into the store when it is new there or has changed since. What clients have
 * cleared or changed stays as they left it until the scenario describes that row otherwise; a row that the
 * scenario does not describe any more goes. Without a scenario the store's rows stay as they are.
 *
 * The store has the rows as they go over the wire: a layout that changes needs a migration.
 */
#ifndef MIXD_KEPT_ROWS_H
#define MIXD_KEPT_ROWS_H

#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include <fmt/format.h>

#include "appliance/mixd/ordered_table.h"
#include "appliance/mixd/scenario.h"
#include "appliance/mixd/service.h"

namespace mixd
{

/* The SQL of a table of kept rows. row: NULL when clients deleted it; described: the scenario's row, NULL for
 * a row that clients added. */
#define MIXD_KEPT_ROWS_TABLE(name)                                                                           \
    "CREATE TABLE " name "(key BLOB PRIMARY KEY, row BLOB, described BLOB) WITHOUT ROWID"

template <class Row, class KeyOf>
class kept_rows
{
  public:
    using table_type = ordered_table<Row, KeyOf>;
    using key_type = typename table_type::key_type;
    static_assert(std::is_trivially_copyable_v<Row>);
    static_assert(std::has_unique_object_representations_v<key_type>, "keys are compared as bytes");

    /* name: of a table made with MIXD_KEPT_ROWS_TABLE. */
    kept_rows(store &in, std::string name) : store_(in), name_(std::move(name)) {}

    /* A row of the scenario, from the table `at`; one of a key that was described already is reported. */
    void describe(scenario_table &at, const Row &row)
    {
        if (described_.put(row))
            return;
        at.fail("", "is described already");
    }
    /* Brings scenario and store together, then reads the store. To be called by the service's begin(). */
    void begin(bool with_scenario)
    {
        if (with_scenario)
            take_described();
        described_.clear();
        statement query =
            store_.prepare(fmt::format("SELECT row FROM {} WHERE length(row)={}", name_, sizeof(Row)));
        while (query.step()) {
            Row row;
            std::memcpy(&row, query.blob(0).data(), sizeof row);
            rows_.put(row);
        }
    }

    [[nodiscard]] const table_type &rows() const { return rows_; }
    /* For what is in a row but not in the store, such as counters of this run. */
    [[nodiscard]] Row *find(const key_type &key) { return rows_.find(key); }

    void put(transaction &in, const Row &row)
    {
        const key_type key = KeyOf{}(row);
        in.run(fmt::format("INSERT INTO {} VALUES(?,?,NULL) ON CONFLICT(key) DO UPDATE SET row=excluded.row",
                           name_),
               bytes_of(key), bytes_of(row));
        in.after_commit([this, row] { rows_.put(row); });
    }
    void erase(transaction &in, const key_type &key)
    {
        in.run(fmt::format("UPDATE {} SET row=NULL WHERE key=?", name_), bytes_of(key));
        in.run(fmt::format("DELETE FROM {} WHERE key=? AND described IS NULL", name_), bytes_of(key));
        in.after_commit([this, key] { rows_.erase(key); });
    }
    /* Erases all rows that match; how many. */
    template <class Match>
    size_t erase_if(transaction &in, Match &&match)
    {
        std::vector<key_type> gone;
        rows_.walk({}, [&](const Row &row) {
            if (match(row))
                gone.push_back(KeyOf{}(row));
            return true;
        });
        for (const key_type &key : gone)
            erase(in, key);
        return gone.size();
    }

  private:
    template <class Value>
    static std::span<const uint8_t> bytes_of(const Value &value)
    {
        return {reinterpret_cast<const uint8_t *>(&value), sizeof value};
    }

    void take_described()
    {
        transaction in(store_);
        for (const std::vector<uint8_t> &key : undescribed())
            in.run(fmt::format("DELETE FROM {} WHERE key=?", name_), std::span<const uint8_t>(key));
        const std::string sql = fmt::format("INSERT INTO {} VALUES(?1,?2,?2) ON CONFLICT(key) DO UPDATE "
                                            "SET row=excluded.row, described=excluded.described "
                                            "WHERE described IS NOT excluded.described",
                                            name_);
        described_.walk({}, [&](const Row &row) {
            in.run(sql, bytes_of(KeyOf{}(row)), bytes_of(row));
            return true;
        });
        in.commit();
    }
    /* Keys that an earlier scenario described and this one does not. */
    std::vector<std::vector<uint8_t>> undescribed()
    {
        std::vector<std::vector<uint8_t>> gone;
        statement query =
            store_.prepare(fmt::format("SELECT key FROM {} WHERE described IS NOT NULL", name_));
        while (query.step()) {
            const std::span<const uint8_t> stored = query.blob(0);
            key_type key{};
            if (stored.size() == sizeof key)
                std::memcpy(&key, stored.data(), sizeof key);
            if (stored.size() != sizeof key || described_.find(key) == nullptr)
                gone.emplace_back(stored.begin(), stored.end());
        }
        return gone;
    }

    store &store_;
    std::string name_;
    table_type described_;
    table_type rows_;
};

} // namespace mixd

#endif
