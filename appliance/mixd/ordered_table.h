/*
 * Tables that are listed page by page while they change: rows in the order of their keys, and the positions
 * of the listings under way. A position is a key, so it survives inserts and deletes: no row comes twice,
 * none that was there all along is missed.
 */
#ifndef MIXD_ORDERED_TABLE_H
#define MIXD_ORDERED_TABLE_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace mixd
{

/* Rows side by side in blocks, so that a page is read as memory is. KeyOf: a function object, row to key. */
template <class Row, class KeyOf>
class ordered_table
{
  public:
    using key_type = decltype(KeyOf{}(std::declval<const Row &>()));

    [[nodiscard]] size_t size() const { return size_; }
    void clear()
    {
        blocks_.clear();
        size_ = 0;
    }

    [[nodiscard]] Row *find(const key_type &key)
    {
        const place at = lower_bound(key);
        return holds(at, key) ? &blocks_[at.block]->at(at.row) : nullptr;
    }
    [[nodiscard]] const Row *find(const key_type &key) const
    {
        return const_cast<ordered_table *>(this)->find(key);
    }

    /* True when there was none of that key. */
    bool put(const Row &row)
    {
        const key_type key = KeyOf{}(row);
        const place at = lower_bound(key);
        if (holds(at, key)) {
            blocks_[at.block]->at(at.row) = row;
            return false;
        }
        insert(at, row);
        ++size_;
        return true;
    }

    bool erase(const key_type &key)
    {
        const place at = lower_bound(key);
        if (!holds(at, key))
            return false;
        block &from = *blocks_[at.block];
        from.erase(from.begin() + static_cast<ptrdiff_t>(at.row));
        if (from.empty())
            blocks_.erase(blocks_.begin() + static_cast<ptrdiff_t>(at.block));
        --size_;
        return true;
    }

    /* Calls visit(row) in order, from the first row whose key is above `after` (from the start without one),
     * while it returns true. */
    template <class Visit>
    void walk(const std::optional<key_type> &after, Visit &&visit) const
    {
        walk_at(after ? upper_bound(*after) : place{0, 0}, visit);
    }
    /* The same from the first row whose key is not below `first`. */
    template <class Visit>
    void walk_from(const key_type &first, Visit &&visit) const
    {
        walk_at(lower_bound(first), visit);
    }

  private:
    static constexpr size_t fullest = 128;
    using block = std::vector<Row>;
    struct place {
        size_t block;
        size_t row;
    };

    template <class Visit>
    void walk_at(place at, Visit &visit) const
    {
        for (; at.block < blocks_.size(); at = {at.block + 1, 0}) {
            const block &in = *blocks_[at.block];
            for (size_t i = at.row; i < in.size(); ++i) {
                if (!visit(in[i]))
                    return;
            }
        }
    }

    /* The first row that is not below (above, with Upper) the key; blocks are never empty. */
    template <bool Upper>
    [[nodiscard]] place bound(const key_type &key) const
    {
        const auto before = [](const key_type &left, const key_type &right) {
            return Upper ? !(right < left) : left < right;
        };
        const auto in = std::partition_point(blocks_.begin(), blocks_.end(), [&](const auto &each) {
            return before(KeyOf{}(each->back()), key);
        });
        if (in == blocks_.end())
            return {blocks_.size(), 0};
        const auto row = std::partition_point((*in)->begin(), (*in)->end(),
                                              [&](const Row &each) { return before(KeyOf{}(each), key); });
        return {static_cast<size_t>(in - blocks_.begin()), static_cast<size_t>(row - (*in)->begin())};
    }
    [[nodiscard]] place lower_bound(const key_type &key) const { return bound<false>(key); }
    [[nodiscard]] place upper_bound(const key_type &key) const { return bound<true>(key); }

    [[nodiscard]] bool holds(const place &at, const key_type &key) const
    {
        return at.block < blocks_.size() && !(key < KeyOf{}(blocks_[at.block]->at(at.row)));
    }

    void insert(place at, const Row &row)
    {
        if (at.block == blocks_.size()) {
            if (blocks_.empty() || blocks_.back()->size() == fullest) {
                blocks_.push_back(std::make_unique<block>());
                blocks_.back()->reserve(fullest);
            }
            blocks_.back()->push_back(row);
            return;
        }
        if (blocks_[at.block]->size() == fullest)
            at = split(at);
        block &into = *blocks_[at.block];
        into.insert(into.begin() + static_cast<ptrdiff_t>(at.row), row);
    }

    place split(const place &at)
    {
        block &left = *blocks_[at.block];
        auto right = std::make_unique<block>();
        right->reserve(fullest);
        constexpr size_t half = fullest / 2;
        right->assign(left.begin() + half, left.end());
        left.resize(half);
        blocks_.insert(blocks_.begin() + static_cast<ptrdiff_t>(at.block) + 1, std::move(right));
        return at.row <= half ? at : place{at.block + 1, at.row - half};
    }

    std::vector<std::unique_ptr<block>> blocks_;
    size_t size_ = 0;
};

/*
 * Where listings are to go on. A cursor is the number of a remembered position, so that it fits 16 bits
 * whatever the key is and however large the table. The oldest positions are forgotten; one that is gone, or
 * was given to another connection, makes a listing fail instead of going on elsewhere.
 */
template <class Key>
class positions
{
  public:
    static constexpr uint32_t most = 65535;

    uint32_t keep(uint64_t connection, const Key &key)
    {
        if (kept_.size() < most) {
            kept_.push_back({connection, key});
            return static_cast<uint32_t>(kept_.size());
        }
        kept_[next_] = {connection, key};
        const uint32_t cursor = static_cast<uint32_t>(next_) + 1;
        next_ = (next_ + 1) % most;
        return cursor;
    }
    [[nodiscard]] const Key *find(uint64_t connection, uint32_t cursor) const
    {
        if (cursor == 0 || cursor > kept_.size() || kept_[cursor - 1].connection != connection)
            return nullptr;
        return &kept_[cursor - 1].key;
    }

  private:
    struct position {
        uint64_t connection;
        Key key;
    };
    std::vector<position> kept_;
    size_t next_ = 0;
};

/* Rows that are looked at for one page: a filter that matches nearly nothing must not
 * hold up other clients. */
inline constexpr uint32_t most_rows_looked_at = 65536;

/* One page of a listing. */
struct page_wanted {
    uint64_t connection;
    uint32_t cursor;   /* as the client sent it, 0 at first */
    uint32_t budget;   /* rows the client still wants; not positive as a signed number: a whole page */
    uint32_t capacity; /* rows that fit */
    uint32_t looks = most_rows_looked_at; /* fewer where it takes long to tell whether a row matches */
};

struct page_made {
    uint32_t cursor; /* 0: there is no more */
    uint32_t rows;
};

/* Calls emit(row) for the rows of the page; nothing when the cursor is not one of this connection's. */
template <class Row, class KeyOf, class Match, class Emit>
std::optional<page_made> take_page(const ordered_table<Row, KeyOf> &from,
                                   positions<typename ordered_table<Row, KeyOf>::key_type> &kept,
                                   const page_wanted &wanted, Match &&match, Emit &&emit)
{
    using key_type = typename ordered_table<Row, KeyOf>::key_type;
    std::optional<key_type> last;
    if (wanted.cursor != 0) {
        const key_type *position = kept.find(wanted.connection, wanted.cursor);
        if (position == nullptr)
            return {};
        last = *position;
    }
    const bool limited = static_cast<int32_t>(wanted.budget) > 0 && wanted.budget < wanted.capacity;
    const uint32_t most = limited ? wanted.budget : wanted.capacity;
    page_made page{0, 0};
    uint32_t looked_at = 0;
    bool more = false;
    from.walk(last, [&](const Row &row) {
        const bool matches = match(row);
        more = (matches && page.rows == most) || looked_at == wanted.looks;
        if (more)
            return false;
        ++looked_at;
        last = KeyOf{}(row);
        if (matches) {
            emit(row);
            ++page.rows;
        }
        return true;
    });
    if (more)
        page.cursor = kept.keep(wanted.connection, *last);
    return page;
}

/*
 * Visits every row, `looks` of them at a time and then, if that was not all, the next in the loop's next
 * turn. A step starts behind the last one's row, so rows may come and go in between. The status is that of
 * done(reply), which is called when visit() gave false or there are no more rows. Reply is the service's; the
 * table must outlive it.
 */
template <class Row, class KeyOf, class Visit, class Done, class Reply>
int32_t walk_in_turns(const ordered_table<Row, KeyOf> &rows, uint32_t looks, Visit visit, Done done,
                      Reply &out)
{
    using key_type = typename ordered_table<Row, KeyOf>::key_type;
    const auto turn = [&rows, looks, visit, done,
                       last = std::optional<key_type>{}](Reply &to) mutable -> std::optional<int32_t> {
        uint32_t looked_at = 0;
        bool more = false;
        rows.walk(last, [&](const Row &row) {
            more = looked_at == looks;
            if (more)
                return false;
            ++looked_at;
            last = KeyOf{}(row);
            return visit(row);
        });
        return more ? std::nullopt : std::optional<int32_t>(done(to));
    };
    auto first = turn;
    if (const std::optional<int32_t> status = first(out))
        return *status;
    out.go_on = std::move(first);
    return 0;
}

/* A `done` for it: the reply is what was gathered. */
template <class Record>
auto reply_with(std::shared_ptr<Record> gathered)
{
    return [gathered](auto &to) {
        to.append(*gathered);
        return 0;
    };
}

} // namespace mixd

#endif
