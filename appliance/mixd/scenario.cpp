#include "appliance/mixd/scenario.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstring>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>

#include "appliance/mixd/service.h"
#include "appliance/wire/text_file.h"

namespace mixd
{

namespace
{

const toml::table &as_table(const void *table)
{
    return *static_cast<const toml::table *>(table);
}

const toml::node *as_node(const void *node)
{
    return static_cast<const toml::node *>(node);
}

size_t line_of(const toml::node &node)
{
    return node.source().begin.line;
}

std::string type_name(const toml::node &node)
{
    std::ostringstream text;
    text << node.type();
    return text.str();
}

std::string joined_name(const std::string &name, std::string_view key)
{
    return name.empty() ? std::string(key) : fmt::format("{}.{}", name, key);
}

} // namespace

std::optional<mac_address> read_mac(std::string_view text)
{
    mac_address mac{};
    if (text.size() != 3 * mac.size() - 1)
        return {};
    for (size_t i = 0; i < mac.size(); ++i) {
        const char *from = text.data() + 3 * i;
        const auto [end, error] = std::from_chars(from, from + 2, mac[i], 16);
        if (error != std::errc{} || end != from + 2 || (i + 1 < mac.size() && *end != ':'))
            return {};
    }
    return mac;
}

void scenario_problems::add(size_t line, std::string_view reason)
{
    lines.emplace_back(line, fmt::format("{}:{}: {}", file, line, reason));
}

scenario_table::scenario_table(const void *table, std::string name,
                               std::shared_ptr<scenario_problems> problems)
    : table_(table), name_(std::move(name)), problems_(std::move(problems))
{
}

scenario_table::scenario_table(scenario_table &&other) noexcept
    : table_(std::exchange(other.table_, nullptr)), name_(std::move(other.name_)),
      problems_(std::move(other.problems_)), asked_(std::move(other.asked_))
{
}

/* A key that nobody asked for is a mistake in the file: a misspelt name must not pass for a setting. */
scenario_table::~scenario_table()
{
    if (!table_)
        return;
    for (const auto &[key, node] : as_table(table_)) {
        if (std::find(asked_.begin(), asked_.end(), key.str()) != asked_.end())
            continue;
        std::sort(asked_.begin(), asked_.end());
        const std::string known = asked_.empty() ? "none" : fmt::format("{}", fmt::join(asked_, ", "));
        problems_->add(line_of(node),
                       fmt::format("unknown key \"{}\" {}; known: {}", key.str(),
                                   name_.empty() ? "at the top" : "in [" + name_ + "]", known));
    }
}

const void *scenario_table::ask(std::string_view key)
{
    if (!table_)
        return nullptr;
    if (std::find(asked_.begin(), asked_.end(), key) == asked_.end())
        asked_.emplace_back(key);
    return as_table(table_).get(key);
}

bool scenario_table::has(std::string_view key) const
{
    return table_ && as_table(table_).contains(key);
}

size_t scenario_table::line() const
{
    return table_ ? line_of(as_table(table_)) : 0;
}

void scenario_table::fail(std::string_view key, std::string_view reason)
{
    if (!table_)
        return;
    const toml::node *node = as_table(table_).get(key);
    problems_->add(node ? line_of(*node) : line(),
                   fmt::format("{}{}", key.empty() ? "" : joined_name(name_, key) + ": ", reason));
}

void scenario_table::require(std::string_view key)
{
    if (table_ && !has(key))
        problems_->add(line(), fmt::format("key \"{}\" is missing in [{}]", key, name_));
}

std::optional<int64_t> scenario_table::integer(std::string_view key, int64_t least, int64_t most)
{
    const toml::node *node = as_node(ask(key));
    if (!node)
        return {};
    const auto *value = node->as_integer();
    if (!value) {
        fail(key, fmt::format("must be a whole number, not {}", type_name(*node)));
        return {};
    }
    if (value->get() < least || value->get() > most) {
        fail(key, fmt::format("{} is out of range, {} to {} is allowed", value->get(), least, most));
        return {};
    }
    return value->get();
}

std::optional<uint64_t> scenario_table::number(std::string_view key, uint64_t least, uint64_t most)
{
    /* TOML's integers are signed; a number above the signed range can't be written in a file. */
    constexpr uint64_t top = INT64_MAX;
    const auto value =
        integer(key, static_cast<int64_t>(std::min(least, top)), static_cast<int64_t>(std::min(most, top)));
    if (!value)
        return {};
    return static_cast<uint64_t>(*value);
}

uint64_t scenario_table::number(std::string_view key, uint64_t fallback, uint64_t least, uint64_t most)
{
    return number(key, least, most).value_or(fallback);
}

int64_t scenario_table::signed_number(std::string_view key, int64_t fallback, int64_t least, int64_t most)
{
    return integer(key, least, most).value_or(fallback);
}

bool scenario_table::boolean(std::string_view key, bool fallback)
{
    const toml::node *node = as_node(ask(key));
    if (!node)
        return fallback;
    const auto *value = node->as_boolean();
    if (!value) {
        fail(key, fmt::format("must be true or false, not {}", type_name(*node)));
        return fallback;
    }
    return value->get();
}

std::optional<std::string> scenario_table::string(std::string_view key, size_t longest)
{
    const toml::node *node = as_node(ask(key));
    if (!node)
        return {};
    const auto *value = node->as_string();
    if (!value) {
        fail(key, fmt::format("must be a text, not {}", type_name(*node)));
        return {};
    }
    if (value->get().size() > longest) {
        fail(key, fmt::format("is {} bytes long, at most {} fit", value->get().size(), longest));
        return {};
    }
    return value->get();
}

std::string scenario_table::text(std::string_view key, std::string_view fallback, size_t longest)
{
    return string(key, longest).value_or(std::string(fallback));
}

size_t scenario_table::word_index(std::string_view key, std::string_view fallback,
                                  std::span<const std::string_view> words)
{
    const auto place = [&](std::string_view word) {
        return static_cast<size_t>(std::find(words.begin(), words.end(), word) - words.begin());
    };
    const auto value = string(key, SIZE_MAX);
    if (value && place(*value) < words.size())
        return place(*value);
    if (value)
        fail(key, fmt::format("\"{}\" is not one of: {}", *value, fmt::join(words, ", ")));
    return place(fallback) % words.size(); /* a fallback that is no word: the first */
}

std::vector<std::string> scenario_table::texts(std::string_view key, size_t longest)
{
    std::vector<std::string> found;
    const toml::node *node = as_node(ask(key));
    if (!node)
        return found;
    const toml::array *array = node->as_array();
    if (!array) {
        fail(key, fmt::format("must be a list of texts, not {}", type_name(*node)));
        return found;
    }
    for (const toml::node &element : *array) {
        const auto *value = element.as_string();
        if (!value || value->get().size() > longest) {
            problems_->add(line_of(element),
                           fmt::format("{}: each element must be a text of at most {} bytes",
                                       joined_name(name_, key), longest));
            continue;
        }
        found.push_back(value->get());
    }
    return found;
}

uint64_t scenario_table::required_number(std::string_view key, uint64_t least, uint64_t most)
{
    require(key);
    return number(key, least, most).value_or(0);
}

std::string scenario_table::required_text(std::string_view key, size_t longest)
{
    require(key);
    return string(key, longest).value_or("");
}

std::optional<uint32_t> scenario_table::ipv4(std::string_view key)
{
    const auto value = string(key, SIZE_MAX);
    in_addr parsed{};
    if (!value)
        return {};
    if (inet_pton(AF_INET, value->c_str(), &parsed) != 1) {
        fail(key, fmt::format("\"{}\" is not an IPv4 address", *value));
        return {};
    }
    return ntohl(parsed.s_addr);
}

std::optional<ipv6_address> scenario_table::ipv6(std::string_view key)
{
    const auto value = string(key, SIZE_MAX);
    ipv6_address parsed{};
    if (!value)
        return {};
    if (inet_pton(AF_INET6, value->c_str(), parsed.data()) != 1) {
        fail(key, fmt::format("\"{}\" is not an IPv6 address", *value));
        return {};
    }
    return parsed;
}

std::optional<mac_address> scenario_table::mac(std::string_view key)
{
    const auto value = string(key, SIZE_MAX);
    if (!value)
        return {};
    const auto parsed = read_mac(*value);
    if (!parsed)
        fail(key, fmt::format("\"{}\" is not a MAC address (02:00:00:00:00:01)", *value));
    return parsed;
}

scenario_table scenario_table::table(std::string_view key)
{
    const toml::node *node = as_node(ask(key));
    if (!node)
        return {};
    const toml::table *found = node->as_table();
    if (!found) {
        fail(key, fmt::format("must be a table [{}], not {}", joined_name(name_, key), type_name(*node)));
        return {};
    }
    return {found, joined_name(name_, key), problems_};
}

std::vector<scenario_table> scenario_table::rows(std::string_view key)
{
    std::vector<scenario_table> found;
    const toml::node *node = as_node(ask(key));
    if (!node)
        return found;
    const toml::array *array = node->as_array();
    if (!array || (!array->empty() && !array->is_homogeneous<toml::table>())) {
        fail(key, fmt::format("must be a list of tables [[{}]]", joined_name(name_, key)));
        return found;
    }
    found.reserve(array->size());
    for (const toml::node &element : *array)
        found.emplace_back(element.as_table(), joined_name(name_, key), problems_);
    return found;
}

scenario::scenario()
    : problems_(std::make_shared<scenario_problems>()), top_(std::make_unique<scenario_table>())
{
}

scenario::scenario(const std::string &file) : problems_(std::make_shared<scenario_problems>())
{
    problems_->file = file;
    std::ifstream input;
    if (!mix::wire::open_text(input, file))
        throw startup_error(fmt::format("{}: {}", file, std::strerror(errno)));
    try {
        auto parsed = std::make_shared<toml::table>(toml::parse(input, file));
        top_ = std::make_unique<scenario_table>(parsed.get(), "", problems_);
        root_ = std::move(parsed);
    } catch (const toml::parse_error &error) {
        throw startup_error(fmt::format("{}:{}: {}", file, error.source().begin.line, error.description()));
    }
}

std::vector<std::string> scenario::finish()
{
    top_.reset();
    std::stable_sort(problems_->lines.begin(), problems_->lines.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> texts;
    for (auto &[line, text] : problems_->lines)
        texts.push_back(std::move(text));
    problems_->lines.clear();
    return texts;
}

void scenario::begin_again()
{
    top_ = std::make_unique<scenario_table>(root_.get(), "", problems_);
}

} // namespace mixd
