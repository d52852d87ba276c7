#include "appliance/mixsh/invocation.h"

#include "appliance/mixsh/parser.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <fmt/format.h>

namespace mixsh
{

namespace
{

// libmix's print callback has no context, so what it prints belongs to the command that runs: one at a time.
std::string collected;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0)
        return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

[[gnu::format(printf, 1, 2)]] int collect(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = keep_said(format, arguments);
    va_end(arguments);
    return length;
}

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        if (end)
            lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

} // namespace

int keep_said(const char *format, va_list arguments)
{
    const auto text = formatted(format, arguments);
    collected += text;
    return static_cast<int>(text.size());
}

invocation::invocation(const command &which, std::vector<bound_word> words, output &out,
                       std::uint8_t language)
    : which_(which), words_(std::move(words)), out_(out), language_(language)
{
    collected.clear();
}

const argument &invocation::declared(std::string_view name) const
{
    const auto found = std::ranges::find(which_.arguments, name, &argument::name);
    if (found == which_.arguments.end()) {
        fmt::print(stderr, "mixsh: \"{}\" has no argument {}\n", which_.words, name);
        std::abort();
    }
    return *found;
}

const bound_word *invocation::find(std::string_view name) const
{
    const auto &is = declared(name);
    const auto found = std::ranges::find(words_, &is, &bound_word::to);
    return found == words_.end() ? nullptr : &*found;
}

bool invocation::has(std::string_view name) const
{
    return find(name) != nullptr;
}

const char *invocation::text(std::string_view name) const
{
    const auto *word = find(name);
    return word ? word->text.c_str() : nullptr;
}

const char *invocation::text_or(std::string_view name, const char *otherwise) const
{
    const auto *given = text(name);
    return given ? given : otherwise;
}

std::vector<const char *> invocation::texts(std::string_view name) const
{
    const auto &is = declared(name);
    std::vector<const char *> all;
    for (const auto &word : words_)
        if (word.to == &is)
            all.push_back(word.text.c_str());
    return all;
}

std::optional<std::uint64_t> invocation::number(std::string_view name) const
{
    const auto *word = find(name);
    if (!word)
        return {};
    std::string_view digits = word->text;
    const bool hexadecimal = digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
    if (hexadecimal)
        digits.remove_prefix(2);
    std::uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, hexadecimal ? 16 : 10);
    return value;
}

std::optional<std::int64_t> invocation::chosen(std::string_view name) const
{
    const auto *word = find(name);
    if (!word)
        return {};
    return std::ranges::find(word->to->within.choices, word->text, &choice::word)->value;
}

std::optional<std::uint32_t> invocation::ipv4(std::string_view name) const
{
    in_addr address;
    const auto *given = text(name);
    if (!given || inet_pton(AF_INET, given, &address) != 1)
        return {};
    return ntohl(address.s_addr);
}

std::optional<std::array<std::uint8_t, 16>> invocation::ipv6(std::string_view name) const
{
    std::array<std::uint8_t, 16> address;
    const auto *given = text(name);
    if (!given || inet_pton(AF_INET6, given, address.data()) != 1)
        return {};
    return address;
}

std::optional<std::array<std::uint8_t, 6>> invocation::mac(std::string_view name) const
{
    const auto *given = text(name);
    if (!given)
        return {};
    std::string digits(given);
    std::erase_if(digits, [](char c) { return c == ':' || c == '-' || c == '.'; });
    std::array<std::uint8_t, 6> address{};
    for (std::size_t i = 0; i < address.size() && 2 * i + 2 <= digits.size(); ++i)
        std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, address[i], 16);
    return address;
}

print_callback invocation::print()
{
    return collect;
}

std::string invocation::said() const
{
    auto text = collected;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

outcome invocation::fail(std::string_view what, std::string_view advice)
{
    failure_.what = what;
    failure_.reasons = lines_of(collected);
    if (!advice.empty())
        failure_.advice.emplace_back(advice);
    return outcome::failed;
}

outcome invocation::misused(std::string_view why)
{
    failure_.what = why;
    failure_.advice.push_back(usage(which_));
    return outcome::misused;
}

} // namespace mixsh
