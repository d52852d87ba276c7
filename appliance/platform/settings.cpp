#include "appliance/platform/settings.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

#include "appliance/wire/text_file.h"

namespace mixplatform
{

namespace
{

std::string at(std::string_view file, const toml::source_region &where, std::string_view reason)
{
    return std::string(file) + ':' + std::to_string(where.begin.line) + ": " + std::string(reason);
}

/* Reads a table into a profile; the first thing that is wrong is kept. */
class profile_reader
{
  public:
    explicit profile_reader(std::string_view file) : file_(file) {}

    std::optional<profile> read(const toml::table &from, std::string &why)
    {
        profile out;
        for (const auto &[key, value] : from)
            if (!take(key.str(), value, out)) {
                why = why_;
                return std::nullopt;
            }
        return out;
    }

  private:
    bool wrong(const toml::node &node, const std::string &reason)
    {
        why_ = at(file_, node.source(), reason);
        return false;
    }

    bool take_number(const toml::node &node, std::string_view what, uint32_t &out)
    {
        const auto value = node.value_exact<int64_t>();
        if (!value || *value < 0 || *value > std::numeric_limits<uint32_t>::max())
            return wrong(node, std::string(what) + " must be a number from 0 to 4294967295");
        out = static_cast<uint32_t>(*value);
        return true;
    }

    bool take_text(const toml::node &node, std::string_view what, std::string &out)
    {
        const auto value = node.value_exact<std::string>();
        if (!value)
            return wrong(node, std::string(what) + " must be a text");
        out = *value;
        return true;
    }

    bool take_test(const toml::node &node, std::string_view what, bool &out)
    {
        const auto value = node.value_exact<bool>();
        if (!value)
            return wrong(node, std::string(what) + " must be true or false");
        out = *value;
        return true;
    }

    bool take_list(const toml::node &node, std::string_view what, std::vector<uint32_t> &out)
    {
        const toml::array *list = node.as_array();
        if (list == nullptr)
            return wrong(node, std::string(what) + " must be a list of the numbers it is true for");
        for (const toml::node &each : *list) {
            uint32_t number = 0;
            if (!take_number(each, "each entry of " + std::string(what), number))
                return false;
            out.push_back(number);
        }
        return true;
    }

    bool take_table(const toml::node &node, std::string_view what, number_table &out)
    {
        const toml::table *table = node.as_table();
        if (table == nullptr)
            return wrong(node, std::string(what) + " must be a table of argument = answer");
        for (const auto &[key, value] : *table) {
            uint32_t answer = 0;
            if (!take_number(value, "each answer of " + std::string(what), answer))
                return false;
            if (key.str() == "otherwise") {
                out.otherwise = answer;
                continue;
            }
            uint32_t argument = 0;
            if (!parse_argument(key.str(), argument))
                return wrong(value, '"' + std::string(key.str()) + "\" is no argument of " +
                                        std::string(what) + " (a number, 0x for hexadecimal, or otherwise)");
            out.of[argument] = answer;
        }
        return true;
    }

    static bool parse_argument(std::string_view text, uint32_t &out)
    {
        const bool hexadecimal = text.starts_with("0x");
        if (hexadecimal)
            text.remove_prefix(2);
        const auto [end, error] =
            std::from_chars(text.data(), text.data() + text.size(), out, hexadecimal ? 16 : 10);
        return error == std::errc() && end == text.data() + text.size();
    }

    bool take(std::string_view key, const toml::node &value, profile &out)
    {
        if (key == "name")
            return take_text(value, key, out.name);
        if (key == "image_path")
            return take_text(value, key, out.image_path);
#define MIX_BOARD_NUMBER(function)                                                                           \
    if (key == #function)                                                                                    \
        return take_number(value, key, out.numbers[static_cast<size_t>(number_function::function)]);
#define MIX_BOARD_NUMBER_OF(function)                                                                        \
    if (key == #function)                                                                                    \
        return take_table(value, key, out.numbers_of[static_cast<size_t>(number_of_function::function)]);
#define MIX_BOARD_TEST_OF(function)                                                                          \
    if (key == #function)                                                                                    \
        return take_list(value, key, out.true_for[static_cast<size_t>(test_of_function::function)]);
#define MIX_BOARD_TEST(function)                                                                             \
    if (key == #function)                                                                                    \
        return take_test(value, key, out.tests[static_cast<size_t>(test_function::function)]);
#include "platform/board_functions.def"
        return wrong(value, '"' + std::string(key) + "\" is nothing a board profile has");
    }

    std::string_view file_;
    std::string why_;
};

std::optional<profile> profile_of(toml::parse_result &&parsed, std::string_view file, std::string &why)
{
    if (!parsed) {
        why = at(file, parsed.error().source(), parsed.error().description());
        return std::nullopt;
    }
    return profile_reader(file).read(parsed.table(), why);
}

void complain_once(const std::string &what)
{
    static std::atomic_flag said;
    if (!said.test_and_set())
        std::fprintf(stderr, "mixplatform: %s\n", what.c_str());
}

} // namespace

std::optional<profile> read_profile_file(const std::string &path, std::string &why)
{
    std::ifstream input;
    if (!mix::wire::open_text(input, path)) {
        why = path + ": " + strerrordesc_np(errno);
        return std::nullopt;
    }
    return profile_of(toml::parse(input, path), path, why);
}

std::optional<profile> read_profile_text(std::string_view text, std::string_view name, std::string &why)
{
    return profile_of(toml::parse(text), name, why);
}

std::optional<std::string> endpoint_of_node(const std::string &path, uint8_t node)
{
    if (access(path.c_str(), F_OK) != 0)
        return std::nullopt;
    const toml::parse_result parsed = toml::parse_file(path);
    if (!parsed) {
        complain_once(at(path, parsed.error().source(), parsed.error().description()));
        return std::nullopt;
    }
    const toml::node_view<const toml::node> entry = parsed.table()["node"][std::to_string(node)];
    if (!entry)
        return std::nullopt;
    auto directory = entry.value_exact<std::string>();
    if (!directory)
        complain_once(
            at(path, entry.node()->source(), "a node's place must be a text, the directory of its sockets"));
    return directory;
}

} // namespace mixplatform
