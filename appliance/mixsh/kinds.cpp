#include "appliance/mixsh/kinds.h"

#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/control_client.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>

namespace mixsh
{

namespace
{

rating wrong_at(std::size_t at, std::string why = {})
{
    return {verdict::wrong, at, std::move(why)};
}

// --- numbers

bool is_digit(char c, unsigned base)
{
    return (c >= '0' && c <= '9') || (base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
}

rating rate_number(const argument &self, const std::string &word)
{
    const auto range = fmt::format("expected a number from {} to {}", self.within.low, self.within.high);
    const bool hexadecimal = word.size() >= 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const std::size_t start = hexadecimal ? 2 : 0;
    for (auto at = start; at < word.size(); ++at)
        if (!is_digit(word[at], hexadecimal ? 16 : 10))
            return wrong_at(at, range);
    if (word.size() == start)
        return {verdict::incomplete, 0, range};
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(word.data() + start, word.data() + word.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || value > self.within.high)
        return wrong_at(word.size() - 1, range);
    // More digits could still bring it into the range.
    if (value < self.within.low)
        return value == 0 && !hexadecimal ? wrong_at(word.size() - 1, range)
                                          : rating{verdict::incomplete, 0, range};
    return {};
}

// --- names and prose

rating rate_text(const argument &self, const std::string &word)
{
    if (word.empty())
        return {verdict::incomplete, 0, "expected at least one character"};
    if (self.within.longest && word.size() > self.within.longest)
        return wrong_at(self.within.longest, fmt::format("at most {} bytes fit", self.within.longest));
    return {};
}

// The table's walk knows choices as words; this is asked only for a word that is none of them.
rating rate_choice(const argument &self, const std::string &word)
{
    const auto known = [&](const choice &is) { return is.word == word; };
    return std::ranges::any_of(self.within.choices, known) ? rating{} : wrong_at(0);
}

// --- addresses

// aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff or aabb.ccdd.eeff; the first separator decides.
rating rate_mac(const argument &, const std::string &word)
{
    const auto first = word.find_first_of(":-.");
    const bool quads = first != std::string::npos && word[first] == '.';
    const std::size_t group = quads ? 4 : 2;
    const std::size_t whole = quads ? 14 : 17;
    for (std::size_t at = 0; at < word.size(); ++at) {
        if (at >= whole)
            return wrong_at(at);
        const bool separator = at % (group + 1) == group;
        // Until a separator has been typed the first four digits may belong to either form.
        if (separator && first == std::string::npos) {
            if (at == 2 && word.size() <= 4 &&
                std::ranges::all_of(word, [](char c) { return is_digit(c, 16); }))
                return {verdict::incomplete, 0, {}};
            return wrong_at(std::min<std::size_t>(word.size() - 1, 4));
        }
        if (separator ? word[at] != word[first] : !is_digit(word[at], 16))
            return wrong_at(at);
    }
    return word.size() == whole ? rating{} : rating{verdict::incomplete, 0, {}};
}

// --- interfaces and files

rating rate_interface(const argument &, const std::string &word)
{
    if (word.empty())
        return {verdict::incomplete, 0, {}};
    const auto bad = word.find_first_of("/ \t\n");
    if (bad != std::string::npos)
        return wrong_at(bad);
    return {};
}

std::vector<candidate> suggest_interfaces(const argument &, const std::string &)
{
    std::vector<candidate> found;
    control::each_row<mix::wire::control_interface>(mix::wire::control_list_interfaces, [&](const auto &row) {
        found.push_back({field_text(row.name), fmt::format("interface {}", std::uint32_t{row.index})});
        return true;
    });
    return found;
}

std::vector<candidate> suggest_files(const argument &, const std::string &beginning)
{
    namespace fs = std::filesystem;
    const auto slash = beginning.rfind('/');
    const auto folder = slash == std::string::npos ? std::string() : beginning.substr(0, slash + 1);
    std::vector<candidate> found;
    std::error_code error;
    for (fs::directory_iterator at(folder.empty() ? fs::path(".") : fs::path(folder), error), end;
         !error && at != end; at.increment(error)) {
        std::error_code unreadable;
        const bool directory = at->is_directory(unreadable);
        found.push_back({folder + at->path().filename().string() + (directory ? "/" : ""),
                         directory ? "directory" : "file"});
    }
    std::ranges::sort(found, {}, &candidate::word);
    return found;
}

} // namespace

rating rate_by_matcher(int (*match)(const char *), int (*valid)(const char *), const std::string &word)
{
    constexpr int none = 0;
    constexpr int complete = 8;
    const int rated = match(word.c_str());
    if (rated == complete && (!valid || valid(word.c_str())))
        return {};
    if (rated != none)
        return {verdict::incomplete, 0, {}};
    std::size_t length = 1;
    while (length < word.size() && match(word.substr(0, length).c_str()) != none)
        ++length;
    return wrong_at(length - 1);
}

namespace kinds
{

const kind number{form_of_limits, "a number", rate_number};
const kind word{"", "a word", rate_text};
const kind text{"", "a text, in quotes if it has blanks", rate_text};
const kind one_of{"", "one of the words", rate_choice};
const kind mac{"", "a MAC address such as 00:11:22:33:44:55", rate_mac};
const kind interface_name{"", "the name of an interface", rate_interface, suggest_interfaces};
const kind file{"", "a path", rate_text, suggest_files};

} // namespace kinds

} // namespace mixsh
