/*
 * The checked scenario reader. A service asks its own table for the keys it knows, with the type and the
 * limits it needs; whatever is wrong is collected as "FILE:LINE: reason", and so is every key that nobody
 * asked for. mixd reports all of it at once and does not start.
 *
 *     scenario_table table = setup.scenario("ipdefrag");
 *     uint64_t count = table.number("fragments", 64, 1, 65535);
 *     for (scenario_table &entry : table.rows("entry"))
 *         add(entry.required_text("name"), entry.ipv4("address"));
 */
#ifndef MIXD_SCENARIO_H
#define MIXD_SCENARIO_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mixd
{

using mac_address = std::array<uint8_t, 6>;
using ipv6_address = std::array<uint8_t, 16>;

/* "02:00:00:00:00:01", both digits of every byte, of either case; nothing for every other text. */
std::optional<mac_address> read_mac(std::string_view text);

/* What went wrong while scenario files were read, shared by all tables of a file. */
struct scenario_problems {
    std::string file;
    std::vector<std::pair<size_t, std::string>> lines; /* the line, and "file:line: reason" */
    void add(size_t line, std::string_view reason);
};

/* A word of a scenario and what it stands for. */
template <class Value>
struct scenario_word {
    std::string_view word;
    Value value;
};

/*
 * One table of a scenario, or a table that is not there (then every question is answered with its default and
 * required keys are not missed). Unknown keys are reported when the table goes out of scope.
 */
class scenario_table
{
  public:
    scenario_table() = default;
    scenario_table(const void *table, std::string name, std::shared_ptr<scenario_problems> problems);
    scenario_table(scenario_table &&other) noexcept;
    scenario_table &operator=(scenario_table &&) = delete;
    scenario_table(const scenario_table &) = delete;
    scenario_table &operator=(const scenario_table &) = delete;
    ~scenario_table();

    [[nodiscard]] bool has(std::string_view key) const;
    [[nodiscard]] size_t line() const;

    /* Optional keys: the default where the key is absent or wrong (a wrong one is reported). */
    uint64_t number(std::string_view key, uint64_t fallback, uint64_t least, uint64_t most);
    std::optional<uint64_t> number(std::string_view key, uint64_t least, uint64_t most);
    int64_t signed_number(std::string_view key, int64_t fallback, int64_t least, int64_t most);
    bool boolean(std::string_view key, bool fallback);
    std::string text(std::string_view key, std::string_view fallback, size_t longest = 255);
    /* The row of a table whose `word` the key has. */
    template <class Row, size_t Count>
    const Row &one_of(std::string_view key, std::string_view fallback, const Row (&rows)[Count])
    {
        std::array<std::string_view, Count> words;
        std::transform(std::begin(rows), std::end(rows), words.begin(),
                       [](const Row &row) { return row.word; });
        return rows[word_index(key, fallback, words)];
    }
    std::vector<std::string> texts(std::string_view key, size_t longest = 255);

    /* Required keys: reported as missing where the table is present; then a zero value comes back. */
    uint64_t required_number(std::string_view key, uint64_t least, uint64_t most);
    std::string required_text(std::string_view key, size_t longest = 255);

    /* Reports the key as missing where the table is present;
     * for keys whose reader takes them for optional. */
    void require(std::string_view key);

    /* Addresses, given as text. IPv4 comes back in host byte order, the others in wire order. */
    std::optional<uint32_t> ipv4(std::string_view key);
    std::optional<ipv6_address> ipv6(std::string_view key);
    std::optional<mac_address> mac(std::string_view key);

    scenario_table table(std::string_view key);             /* [name.key] */
    std::vector<scenario_table> rows(std::string_view key); /* [[name.key]] */

    /* Reports a reason of the service's own, at the key's line (or the table's). */
    void fail(std::string_view key, std::string_view reason);

  private:
    const void *ask(std::string_view key);
    std::optional<int64_t> integer(std::string_view key, int64_t least, int64_t most);
    std::optional<std::string> string(std::string_view key, size_t longest);
    size_t word_index(std::string_view key, std::string_view fallback,
                      std::span<const std::string_view> words);

    /* A toml::table and, from ask, a toml::node: kept out of this header, which every service includes. */
    const void *table_ = nullptr;
    std::string name_; /* as in the file: "arp.entry"; empty: the file's top */
    std::shared_ptr<scenario_problems> problems_;
    std::vector<std::string> asked_;
};

/* A scenario file, or none. */
class scenario
{
  public:
    scenario(); /* no scenario: every table is absent */
    explicit scenario(const std::string &file);

    scenario_table &top() { return *top_; }
    /* All that was wrong, in line order; call it when every service has read its table.
     * Closes the top table. */
    std::vector<std::string> finish();
    /* Opens the top table again, for services that are made anew. It was in order the first time, so nobody
     * asks what is wrong with it. */
    void begin_again();

  private:
    std::shared_ptr<const void> root_;
    std::shared_ptr<scenario_problems> problems_;
    std::unique_ptr<scenario_table> top_;
};

} // namespace mixd

#endif
